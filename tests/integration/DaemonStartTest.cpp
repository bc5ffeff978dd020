// Starting and stopping the daemon, what keeps it from starting, and what not.

#include "runtime/platform/Socket.h"
#include "tests/support/DaemonLauncher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

namespace IntegrationTests {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;
using namespace TestSupport;

int linesIn(const std::string& text) {
    return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

// ---- good starts ---------------------------------------------------------------

TEST(DaemonStart, PrintsItsAddressesAndThenThatItIsReady) {
    Daemon daemon({.udp = true});
    EXPECT_THAT(daemon.process().output(),
                MatchesRegex("ruvohost: listening on tcp:.*:[0-9]+\n"
                             "ruvohost: listening on udp:.*:[0-9]+\n"
                             "ruvohost: ready\n"));
    EXPECT_NE(daemon.tcpPort(), 0);
    EXPECT_NE(daemon.udpPort(), 0);
    EXPECT_TRUE(daemon.serves());
}

TEST(DaemonStart, EndsWithStatusZeroAndLeavesNothing) {
    Daemon daemon;
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_EQ(daemon.process().errors(), "");
    EXPECT_TRUE(isEmulated() || !daemon.process().hasLeftOthers());
}

TEST(DaemonStart, LogsTheStepsOfItsLife) {
    Daemon daemon({.logLevel = 9});
    EXPECT_EQ(daemon.stop(), 0);
    const std::string log = daemon.log();
    std::size_t at = 0;
    for (const char* line : {"] 9 RuvoService::go: entering\n",
                             "] 5 RuvoServiceThread::run: Exiting.\n",
                             "] 9 RuvoService::stopIt: done stopping service.\n",
                             "] 9 RuvoService::~RuvoService: done\n",
                             "] 9 ~RuvoServiceClientThreadPool: all client threads exited.\n",
                             "] 9 ruvos::Module::detach: entering\n",
                             "] 9 ruvos::Module::detach: exiting\n"}) {
        const auto found = log.find(line, at);
        ASSERT_NE(found, std::string::npos) << line;
        at = found;
    }
    EXPECT_EQ(log.find("threads still running"), std::string::npos);
}

TEST(DaemonStart, OpensNoListenerWithoutItsKey) {
    Daemon daemon;
    EXPECT_EQ(daemon.udpPort(), 0);
    EXPECT_THAT(daemon.process().output(), Not(HasSubstr("udp:")));
    EXPECT_TRUE(daemon.logsBeginning(
        2, "VornEventMonitorManager::startMonitors: could not start UDPServer"));
}

TEST(DaemonStart, TakesTheLowSixteenBitsOfAPortThatIsTooLarge) {
    const std::uint16_t port = freeTcpPort();
    Daemon daemon({.properties = "ruvod.tcp-server.port=" + std::to_string(65536 + port) + "\n"});
    EXPECT_EQ(daemon.tcpPort(), port);
    EXPECT_TRUE(daemon.serves());
    EXPECT_TRUE(daemon.logsBeginning(2, "RuvoService::readSettings: ruvod.tcp-server.port: "));
}

TEST(DaemonStart, HandsItsPortOnToTheNextDaemonAtOnce) {
    const std::uint16_t port = freeTcpPort();
    const std::string properties = "ruvod.tcp-server.port=" + std::to_string(port) + "\n";
    for (int i = 0; i < 2; ++i) {
        Daemon daemon({.properties = properties});
        EXPECT_EQ(daemon.tcpPort(), port);
        EXPECT_TRUE(daemon.serves());
        EXPECT_EQ(daemon.stop(), 0);
    }
}

// ---- what it goes on without ---------------------------------------------------

TEST(DaemonStart, GoesOnWithoutAListenerWhosePortIsInUse) {
    VornPlatform::Socket inUse;
    ASSERT_FALSE(VornPlatform::listenTcp(0, 1, "*", inUse));
    VornPlatform::SocketAddress address;
    VornPlatform::localAddress(inUse.handle(), address);
    const std::string port = std::to_string(address.port());

    Daemon daemon(
        {.properties = "ruvod.tcp-server.port=" + port + "\n", .udp = true, .logLevel = 9});
    EXPECT_EQ(daemon.tcpPort(), 0);
    EXPECT_TRUE(daemon.logsBeginning(9, "RuvoTCPServer::initialize: exception setting server - "));
    EXPECT_TRUE(daemon.logsBeginning(
        2, "VornEventMonitorManager::startMonitors: could not start TCPServer"));

    auto client = WireClient::udp(daemon.udpPort());
    client.send("RUVO\n");
    EXPECT_EQ(client.readDatagram(), "+\r\n");
    client.send(WireText().shortNumber(1).shortNumber(9999));
    EXPECT_EQ(daemon.process().waitForExit(), 0);
}

TEST(DaemonStart, GoesOnWithoutItsOperatingDirectory) {
    const TemporaryDirectory logs;
    const std::string missing = foreignPath(logs.file("missing"));
    Daemon daemon({.properties = "ruvod.operating-directory=" + missing + "\nlogging.file=" +
                                 foreignPath(logs.file("own.log")) + "\n"});
    EXPECT_TRUE(daemon.serves());
    EXPECT_THAT(readFile(logs.file("own.log")),
                HasSubstr("] 0 RuvoService::startIt: the operating directory \"" + missing +
                          "\" cannot be changed to: "));
}

TEST(DaemonStart, KeepsTheDefaultOfAValueThatItCannotUse) {
    Daemon daemon({.properties = "ruvod.limits.clients=lots\nruvod.limits.delivery-ms=-1\n"
                                 "ruvod.nobody.knows=1\n"});
    EXPECT_TRUE(daemon.serves());
    EXPECT_TRUE(daemon.logs(2, "RuvoService::readSettings: ruvod.limits.clients: \"lots\" is not "
                               "a number from 1 to 1000000"));
    EXPECT_TRUE(daemon.logs(2, "RuvoService::readSettings: ruvod.limits.delivery-ms: \"-1\" is "
                               "not a number from 1 to 600000"));
    EXPECT_THAT(daemon.log(), Not(HasSubstr("nobody.knows")));
}

TEST(DaemonStart, GoesOnWithoutAMonitorThatDoesNotExist) {
    Daemon daemon({.properties = "ruvod.load-monitors=nosuchmonitor\n"});
    EXPECT_TRUE(daemon.serves());
    EXPECT_TRUE(daemon.logsBeginning(2, "RuvoService::loadMonitors: "));
}

// ---- what keeps it from starting -----------------------------------------------

TEST(DaemonStart, FailsWithOneLineWithoutItsFile) {
    const auto run = runHost({"--properties", foreignPath("/nowhere/ruvod.properties")});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(linesIn(run.errors), 1) << run.errors;
    EXPECT_THAT(run.errors, StartsWith("ruvohost: "));
    EXPECT_THAT(run.errors, HasSubstr("couldn't open file"));
    EXPECT_THAT(run.errors, HasSubstr("ruvod.properties"));
}

TEST(DaemonStart, FailsWithOneLineWithoutTheKeyOfItsDirectory) {
    const TemporaryDirectory directory;
    writeFile(directory.file("d.properties"), "logging.target=0\n");
    const auto run = runHost({"--properties", foreignPath(directory.file("d.properties"))});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, "ruvohost: property not found: ruvod.operating-directory\n");
}

// ---- the command line ----------------------------------------------------------

TEST(HostCommand, ShowsHelpWithExamplesAndItsVersion) {
    auto run = runHost({"--help"});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.output, HasSubstr("Examples:"));
    EXPECT_EQ(run.errors, "");
    run = runHost({"--version"});
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.output, MatchesRegex("ruvohost [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(HostCommand, EndsWithStatusTwoWhenItIsUsedBadly) {
    const std::vector<std::vector<std::string>> lines{
        {}, {"run"}, {"check"}, {"--nonsense"}, {"jump"}, {"--properties"}, {"run", "check"}};
    for (const auto& line : lines) {
        const auto run = runHost(line);
        EXPECT_EQ(run.status, 2) << ::testing::PrintToString(line);
        EXPECT_EQ(run.output, "") << ::testing::PrintToString(line);
        EXPECT_NE(run.errors, "") << ::testing::PrintToString(line);
    }
}

TEST(HostCommand, SaysThatItCannotRegisterWithTheServiceManager) {
    for (const char* command : {"install", "remove"}) {
        const auto run = runHost({command});
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(linesIn(run.errors), 1);
    }
}

TEST(HostCommand, ChecksAFile) {
    const TemporaryDirectory directory;
    const std::string name = directory.file("c.properties");
    const std::string good =
        "ruvod.operating-directory=" + foreignPath(directory.text()) + "\nlogging.level=1\n";
    writeFile(name, good);
    auto run = runHost({"check", "--properties", foreignPath(name)});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.errors, "");

    writeFile(name, good + "ruvod.unknown=1\nruvod.limits.clients=0\n");
    run = runHost({"check", "--properties", foreignPath(name)});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(linesIn(run.output), 2);
    EXPECT_THAT(run.output, HasSubstr(":3: ruvod.unknown: the key is unknown\n"));
    EXPECT_THAT(run.output, HasSubstr(":4: ruvod.limits.clients: \"0\" is not a number"));
    EXPECT_EQ(run.errors, "");

    run = runHost({"check", "--properties", foreignPath(directory.file("none"))});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.output, HasSubstr("the file cannot be read\n"));
    EXPECT_FALSE(exists(directory.file("ruvod.log")));
}

}  // namespace
}  // namespace IntegrationTests
