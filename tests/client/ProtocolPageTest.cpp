#include "tests/support/ProtocolPage.h"

#include "client/Delivery.h"
#include "client/RuvoJobs.h"
#include "tests/client/ScriptedDaemon.h"

#include <gtest/gtest.h>

#include <cstdlib>


using TestSupport::ProtocolPage;

TEST(ProtocolPage, SaysInHexWhatTheLibrarySends) {
    const ProtocolPage page;
    EXPECT_EQ(page.said("client"),
              "RUVO\n" + ClientTest::u16(1) +
                  Ruvo::RuvoJobs::createRequest("nightly-backup", "at two").bytes());
    EXPECT_EQ(page.said("daemon"), "+\r\n" + ClientTest::i32(1));
}

TEST(ProtocolPage, ShowsAConversationThatTheLibraryHolds) {
    const ProtocolPage page;
    ClientTest::ScriptedDaemon daemon([&](ClientTest::ScriptedPeer& peer) {
        for (const auto& piece : page.pieces()) {
            if (piece.speaker == "client") peer.expect(piece.bytes);
            if (piece.speaker == "daemon") peer.send(piece.bytes);
        }
        peer.awaitClose();
    });
    Ruvo::RuvoClient client(daemon.options());
    EXPECT_EQ(Ruvo::RuvoJobs(client).create("nightly-backup", "at two"), 1);
}

TEST(ProtocolPage, ShowsADeliveryThatTheLibraryUnderstands) {
    const std::string bytes = ProtocolPage().said("delivery");
    Ruvo::RuvoDelivery delivery;
    std::size_t consumed = 0;
    ASSERT_EQ(Ruvo::decodeDelivery(bytes, {}, delivery, consumed), Ruvo::DecodeOutcome::Complete);
    EXPECT_EQ(consumed, bytes.size());
    EXPECT_EQ(delivery.handle, 7);
    EXPECT_EQ(delivery.sender, "udp:127.0.0.1");
    EXPECT_EQ(delivery.event, "VornJSEvent:nightly-backup");
    EXPECT_EQ(delivery.message, "nightly-backup");
    EXPECT_EQ(delivery.data, ClientTest::bytes({2, 0, 0, 0}));
}

TEST(ProtocolPage, ExplainsEachTextAsItIs) {
    int texts = 0;
    for (const auto& piece : ProtocolPage().pieces()) {
        EXPECT_FALSE(piece.bytes.empty()) << piece.comment;
        EXPECT_FALSE(piece.comment.empty());
        if (piece.comment.front() != '"') continue;
        ++texts;
        const std::string text = piece.comment.substr(1, piece.comment.find('"', 1) - 1);
        EXPECT_EQ(piece.bytes.substr(0, text.size()), text);
    }
    EXPECT_GE(texts, 10);
}

TEST(ProtocolPage, NamesEveryCommandAndAnswerThatTheLibraryUses) {
    const char* const root = std::getenv("RUVO_SOURCE_DIR");
    ASSERT_NE(root, nullptr);
    const std::string page = TestSupport::readFile(std::string(root) + "/docs/protocol.md");
    for (const char* file : {"RuvoJobs.cpp", "RuvoNotifier.cpp"}) {
        const std::string source = TestSupport::readFile(std::string(root) + "/client/" + file);
        int commands = 0;
        for (auto at = source.find("\"RUVO_"); at != std::string::npos;
             at = source.find("\"RUVO_", at + 1)) {
            const std::string command = source.substr(at + 1, source.find('"', at + 1) - at - 1);
            EXPECT_NE(page.find("| `" + command + "` |"), std::string::npos) << command;
            ++commands;
        }
        EXPECT_GE(commands, 3) << file;
    }
}
