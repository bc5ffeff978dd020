// What docs/protocol.md shows, done with a real daemon.

#include "tests/support/ClientLauncher.h"
#include "tests/support/DaemonLauncher.h"
#include "tests/support/ProtocolPage.h"
#include "tests/support/TestListener.h"

#include <gtest/gtest.h>

namespace IntegrationTests {

using namespace TestSupport;

TEST(ProtocolPage, ShowsAConversationAndADeliveryOfARealDaemon) {
    Daemon daemon;
    const ProtocolPage page;
    const TcpListener listener;
    auto registering = daemon.client();
    registering.send(WireText()
                         .shortNumber(1)
                         .request("Notifier", "RUVO_NN_REGISTER")
                         .string("^VornJSEvent:")
                         .string(listener.remoteName())
                         .number(7));
    ASSERT_EQ(registering.readNumber(), 0);

    WireClient client(daemon.tcpPort());
    for (const auto& piece : page.pieces()) {
        if (piece.speaker == "client") client.send(piece.bytes);
        if (piece.speaker != "daemon") continue;
        EXPECT_EQ(client.read(piece.bytes.size()), piece.bytes);
    }
    const std::string delivery = page.said("delivery");
    ASSERT_FALSE(delivery.empty());
    EXPECT_EQ(readBytes(listener.accept(), delivery.size()), delivery);
}

TEST(ProtocolPage, ShowsAPythonClientThatWorks) {
    Daemon daemon;
    const auto programs = ProtocolPage().blocks("python");
    ASSERT_EQ(programs.size(), 1U);
    const TemporaryDirectory directory;
    writeFile(directory.file("client.py"), programs[0]);
    for (int run = 0; run < 2; ++run) {  // and it cleans up
        const ClientRun result = runProgram(
            {"python3", directory.file("client.py"), std::to_string(daemon.tcpPort())});
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(result.output, "created job 1\nevent VornJSEvent:example code 2\n");
    }
}

}  // namespace IntegrationTests
