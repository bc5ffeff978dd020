// What only a native daemon can show: signals, and what the system tells of the
// process.

#include "tests/support/DaemonLauncher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>

#include <chrono>
#include <string>
#include <vector>

namespace IntegrationTests {
namespace {

using ::testing::HasSubstr;
using namespace TestSupport;

TEST(NativeDaemon, StopsAtEachOfTheStoppingSignals) {
    for (const int number : {SIGTERM, SIGINT}) {
        Daemon daemon;
        daemon.process().signal(number);
        EXPECT_EQ(daemon.process().waitForExit(), 0) << number;
        EXPECT_EQ(daemon.process().errors(), "");
    }
}

TEST(NativeDaemon, TakesStoppingSignalsMoreThanOnce) {
    Daemon daemon;
    for (int i = 0; i < 20; ++i) daemon.process().signal(i % 2 == 0 ? SIGTERM : SIGINT);
    EXPECT_EQ(daemon.process().waitForExit(), 0);
}

TEST(NativeDaemon, StopsWhenTheSignalComesWhileItStarts) {
    const TemporaryDirectory directory;
    writeFile(directory.file("d.properties"),
              "ruvod.operating-directory=" + directory.text() + "\nruvod.tcp-server.port=0\n");
    for (int i = 0; i < 10; ++i) {
        HostProcess process({"--properties", directory.file("d.properties")}, directory.text());
        // From the first moment on that it can be told from the system's default.
        ASSERT_TRUE(waitUntil([&] {
            return readFile("/proc/" + std::to_string(process.id()) + "/status")
                       .find("SigBlk:\t0000000000004003") != std::string::npos;
        }));
        process.signal(SIGTERM);
        EXPECT_EQ(process.waitForExit(), 0);
        EXPECT_EQ(process.errors(), "");
    }
}

TEST(NativeDaemon, ReadsItsFileAgainAtSighup) {
    Daemon daemon;
    auto client = daemon.client();
    daemon.writeProperties("ruvod.limits.clients=1\nruvod.udp-server.port=0\n");
    daemon.process().signal(SIGHUP);
    EXPECT_TRUE(daemon.logs(3, "RuvoService::reloadProperties: " +
                                   daemon.file("daemon.properties") + " was read again"));
    // A listener that was not open is opened now; whoever is connected stays so.
    EXPECT_TRUE(daemon.logsBeginning(4, "RuvoUDPServer::initialize: listening on udp:"));
    WireClient second(daemon.tcpPort());
    EXPECT_EQ(second.readRest(), "");
    client.send(WireText().shortNumber(1).request("JobStatus", "RUVO_JS_LOOKUP").string("x"));
    EXPECT_EQ(client.readNumber(), -1);
}

TEST(NativeDaemon, KeepsItsValuesWhenTheFileIsGoneAtSighup) {
    Daemon daemon({.properties = "ruvod.limits.clients=1\n"});
    std::filesystem::remove(toPath(daemon.file("daemon.properties")));
    daemon.process().signal(SIGHUP);
    EXPECT_TRUE(daemon.logsBeginning(2, "RuvoService::reloadProperties: the old values stay: "));
    auto client = daemon.client();
    WireClient second(daemon.tcpPort());
    EXPECT_EQ(second.readRest(), "");
}

TEST(NativeDaemon, SurvivesAStormOfSighups) {
    Daemon daemon;
    for (int i = 0; i < 200; ++i) {
        daemon.process().signal(SIGHUP);
        EXPECT_TRUE(i % 20 != 0 || daemon.serves());
    }
    EXPECT_TRUE(daemon.serves());
}

TEST(NativeDaemon, ReturnsEveryThreadAndDescriptor) {
    Daemon daemon({.udp = true});
    const int id = daemon.process().id();
    const int descriptors = descriptorsOf(id);
    // A client that says nothing makes what later ones share: the timers' thread.
    const int threads = threadsOf(id) + 1;
    {
        const WireClient silent(daemon.tcpPort());
        EXPECT_TRUE(waitUntil([&] { return threadsOf(id) == threads + 1; })) << threadsOf(id);
    }
    EXPECT_TRUE(waitUntil([&] { return threadsOf(id) == threads; })) << threadsOf(id);
    EXPECT_TRUE(waitUntil([&] { return descriptorsOf(id) <= descriptors; })) << descriptorsOf(id);
    {
        std::vector<WireClient> clients;
        for (int i = 0; i < 300; ++i) clients.push_back(daemon.client());
        EXPECT_GE(threadsOf(id), threads + 300);
        EXPECT_GE(descriptorsOf(id), descriptors + 300);
        for (int i = 0; i < 50; ++i) {
            auto datagrams = WireClient::udp(daemon.udpPort());
            datagrams.send("RUVO\n");
            EXPECT_EQ(datagrams.readDatagram(), "+\r\n");
            datagrams.send("");
        }
    }
    EXPECT_TRUE(waitUntil([&] { return threadsOf(id) <= threads; })) << threadsOf(id);
    EXPECT_TRUE(waitUntil([&] { return descriptorsOf(id) <= descriptors; })) << descriptorsOf(id);
}

TEST(NativeDaemon, GoesOnWhenNobodyReadsItsOutput) {
    // The file it writes to is taken from under it; a log to a full device too.
    Daemon daemon({.properties = "logging.file=/dev/full\n"});
    EXPECT_TRUE(daemon.serves());
    EXPECT_EQ(daemon.stop(), 0);
}

TEST(NativeDaemon, RefusesAClientThatLeftBeforeItWasLookedAt) {
    Daemon daemon({.properties = "ruvod.local-access=owner\n"});
    daemon.process().signal(SIGSTOP);
    {
        // What it asks for must not be done in the name of whoever is nobody.
        WireClient client(daemon.tcpPort());
        client.send(WireText().line("RUVO").shortNumber(1).shortNumber(9999));
    }
    daemon.process().signal(SIGCONT);
    EXPECT_TRUE(
        daemon.logs(3, "RuvoService::handleClient: Remote access attempt not allowed"));
    EXPECT_TRUE(daemon.serves());
}

}  // namespace
}  // namespace IntegrationTests
