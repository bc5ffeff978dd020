// The real client against the real daemon, each of them native or Windows.

#include "tests/support/ClientLauncher.h"
#include "tests/support/DaemonLauncher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <sstream>

namespace IntegrationTests {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using namespace TestSupport;
using Arguments = std::vector<std::string>;

// One daemon serves all of these; each test uses names of its own.
class RuvoctlClient : public ::testing::Test {
protected:
    static void SetUpTestSuite() { daemon_ = new Daemon({.udp = true, .logLevel = 9}); }
    static void TearDownTestSuite() {
        EXPECT_EQ(daemon_->stop(), 0);
        delete daemon_;
        daemon_ = nullptr;
    }
    static Daemon& daemon() { return *daemon_; }

    static Arguments withPort(const Arguments& arguments) {
        Arguments all = {"--port", std::to_string(daemon_->tcpPort())};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }
    static Arguments overUdp(const Arguments& arguments) {
        Arguments all = {"--udp", "--port", std::to_string(daemon_->udpPort())};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }
    static ClientRun run(const Arguments& arguments) { return runRuvoctl(withPort(arguments)); }

    // A run that must do what it was asked, and print this.
    static void expectDone(const Arguments& arguments, const std::string& output) {
        const ClientRun done = run(arguments);
        EXPECT_EQ(done.status, 0) << ::testing::PrintToString(arguments) << done.errors;
        EXPECT_EQ(done.output, output);
        EXPECT_EQ(done.errors, "");
    }

private:
    static Daemon* daemon_;
};

Daemon* RuvoctlClient::daemon_ = nullptr;

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

}  // namespace

TEST_F(RuvoctlClient, TakesAJobThroughItsLife) {
    const ClientRun created =
        run({"job", "create", "nightly-backup", "--description", "every night at two"});
    ASSERT_EQ(created.status, 0) << created.errors;
    const std::string id = linesOf(created.output).at(0);
    EXPECT_EQ(created.output, id + "\n");

    expectDone({"job", "lookup", "nightly-backup"}, id + "\n");
    expectDone({"job", "get", "nightly-backup"}, "0\n");
    expectDone({"job", "progress", "nightly-backup", "50"}, "job " + id + ": progress 50\n");
    expectDone({"job", "get", id}, "50\n");
    expectDone({"job", "map", id, "11", "-12"}, "job " + id + ": 2 numbers mapped\n");
    expectDone({"job", "cancel", "nightly-backup"}, "job " + id + ": cancelled\n");
    expectDone({"job", "progress", id, "-1"}, "job " + id + ": progress -1\n");
    expectDone({"job", "delete", "nightly-backup"}, "job " + id + ": deleted\n");

    const ClientRun gone = run({"job", "lookup", "nightly-backup"});
    EXPECT_EQ(gone.status, 1);
    EXPECT_EQ(gone.output, "");
    EXPECT_EQ(gone.errors, "ruvoctl: there is no job named \"nightly-backup\"\n");
    EXPECT_EQ(run({"job", "delete", "9876"}).status, 1);
}

TEST_F(RuvoctlClient, RefusesASecondJobOfTheSameName) {
    ASSERT_EQ(run({"job", "create", "twice"}).status, 0);
    const ClientRun second = run({"job", "create", "twice"});
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.errors, HasSubstr("\"twice\" already"));
}

TEST_F(RuvoctlClient, CarriesNamesOfEveryKind) {
    for (const std::string name : {"2024", "with blanks  ", "quo\"te", "back\\slash\\", "\xc3\xa4\xe2\x82\xac",
                                   "*", "^$", "%PATH%"}) {
        const ClientRun created = run({"job", "create", name, "--json"});
        ASSERT_EQ(created.status, 0) << name << created.errors;
        const auto json = nlohmann::json::parse(created.output);
        EXPECT_EQ(json["name"], name);
        expectDone({"job", "get", "--name", name}, "0\n");
        EXPECT_EQ(nlohmann::json::parse(run({"job", "delete", "--name", name, "--json"}).output),
                  nlohmann::json({{"id", json["id"]}, {"deleted", true}}));
    }
}

TEST_F(RuvoctlClient, WatchesAJobFromItsCreationToItsEnd) {
    ClientProcess watcher(ruvoctlLine(withPort({"watch", "^VornJSEvent:watched$", "--count", "4"})));
    ASSERT_TRUE(watcher.complains("watching")) << watcher.errors();

    // Each change shows before the next one is made.
    EXPECT_EQ(run({"job", "create", "watched"}).status, 0);
    EXPECT_TRUE(watcher.outputs("VornJSEvent:watched created"));
    EXPECT_EQ(run({"job", "create", "unwatched"}).status, 0);
    EXPECT_EQ(run({"job", "progress", "watched", "1"}).status, 0);
    EXPECT_TRUE(watcher.outputs("VornJSEvent:watched progress"));
    EXPECT_EQ(run({"job", "cancel", "watched"}).status, 0);
    EXPECT_TRUE(watcher.outputs("VornJSEvent:watched cancelled"));
    EXPECT_EQ(run({"job", "delete", "watched"}).status, 0);

    EXPECT_EQ(watcher.waitForExit(), 0) << watcher.errors();
    const auto lines = linesOf(watcher.output());
    ASSERT_EQ(lines.size(), 4U) << watcher.output();
    EXPECT_THAT(lines[3], StartsWith("VornJSEvent:watched completed sender=\"udp:127.0.0.1\" "
                                     "message=\"watched\""));
    EXPECT_TRUE(daemon().logs(9, "RUVO_NN_UNREGISTER::handleClient: nconsumers=0"));
}

TEST_F(RuvoctlClient, WatchesAJobWithTheLongestName) {
    const TemporaryDirectory directory;
    const std::string name(1048576, 'n');
    writeFile(directory.file("name"), name);
    ClientProcess watcher(ruvoctlLine(withPort({"watch", "^VornJSEvent:nnnn", "--count", "2"})));
    ASSERT_TRUE(watcher.complains("watching")) << watcher.errors();
    const ClientRun created = run({"raw", "JobStatus", "RUVO_JS_CREATE", "s:",
                                   "F:" + clientPath(directory.file("name")), "--expect", "i"});
    ASSERT_EQ(created.status, 0) << created.errors;
    EXPECT_EQ(run({"notify", "VornJSEvent:nnnn next"}).status, 0);
    EXPECT_EQ(watcher.waitForExit(), 0) << watcher.errors();
    const auto lines = linesOf(watcher.output());
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_TRUE(lines[0] == "VornJSEvent:" + name + " created sender=\"udp:127.0.0.1\" message=\"" +
                                name + "\"");
    EXPECT_THAT(lines[1], StartsWith("VornJSEvent:nnnn next "));
    EXPECT_EQ(run({"job", "delete", linesOf(created.output).at(0)}).status, 0);
}

TEST_F(RuvoctlClient, SaysWhyABlockThatIsTooLargeIsRefused) {
    const TemporaryDirectory directory;
    writeFile(directory.file("data"), "");
    std::filesystem::resize_file(toPath(directory.file("data")), 67108865);
    const ClientRun refused =
        run({"notify", "large", "--data-file", clientPath(directory.file("data"))});
    EXPECT_EQ(refused.status, 3);
    EXPECT_THAT(refused.errors, HasSubstr("the data has 67108865 bytes, and the daemon refuses "
                                          "blocks over \"ruvod.limits.block-bytes\" (64 MiB"));
}

TEST_F(RuvoctlClient, DeliversTheBytesOfAFileToEveryWatcher) {
    TemporaryDirectory directory;
    std::string data;
    for (int i = 0; i < 1000000; ++i) data += static_cast<char>(i * 7);
    writeFile(directory.file("data"), data);
    const Arguments watch = {"watch", "^file\\.", "--count", "1", "--json"};
    ClientProcess first(ruvoctlLine(withPort(watch)));
    ClientProcess second(ruvoctlLine(overUdp(watch)));
    ASSERT_TRUE(first.complains("watching")) << first.errors();
    ASSERT_TRUE(second.complains("watching")) << second.errors();

    EXPECT_EQ(run({"notify", "file.changed", "--message", "\xc3\xa4", "--sender", "me",
                   "--data-file", clientPath(directory.file("data"))})
                  .status,
              0);
    for (ClientProcess* watcher : {&first, &second}) {
        EXPECT_EQ(watcher->waitForExit(), 0) << watcher->errors();
        const auto json = nlohmann::json::parse(watcher->output());
        EXPECT_EQ(json["event"], "file.changed");
        EXPECT_EQ(json["sender"], "me");
        EXPECT_EQ(json["message"], "\xc3\xa4");
        EXPECT_EQ(json["dataSize"], 1000000);
        EXPECT_EQ(json["data"].get<std::string>().substr(0, 12), "00070e151c23");
        EXPECT_EQ(json["data"].get<std::string>().size(), 2000000U);
    }
}

TEST_F(RuvoctlClient, TakesDeliveriesOverUdp) {
    ClientProcess watcher(
        ruvoctlLine(withPort({"watch", "^by-datagram$", "--delivery", "udp", "--count", "1"})));
    ASSERT_TRUE(watcher.complains("deliveries to udp:127.0.0.1:")) << watcher.errors();
    EXPECT_EQ(run({"notify", "by-datagram", "--data", "text"}).status, 0);
    EXPECT_EQ(watcher.waitForExit(), 0) << watcher.errors();
    EXPECT_EQ(watcher.output(),
              "by-datagram sender=\"ruvoctl\" message=\"\" data=\"text\" (4 bytes)\n");
}

TEST_F(RuvoctlClient, EndsAWatchAtItsTime) {
    ClientProcess watcher(ruvoctlLine(withPort({"watch", "^nothing$", "--timeout", "0.2"})));
    EXPECT_EQ(watcher.waitForExit(), 1);
    EXPECT_THAT(watcher.errors(), HasSubstr("the time is over after 0 events"));
    EXPECT_EQ(watcher.output(), "");
}

TEST_F(RuvoctlClient, ControlsTheDaemonOverUdp) {
    const ClientRun created = runRuvoctl(overUdp({"job", "create", "by-udp"}));
    ASSERT_EQ(created.status, 0) << created.errors;
    const std::string id = linesOf(created.output).at(0);
    // More than a datagram holds.
    Arguments map = {"job", "map", "by-udp"};
    for (int i = 0; i < 500; ++i) map.push_back(std::to_string(i));
    EXPECT_EQ(runRuvoctl(overUdp(map)).output, "job " + id + ": 500 numbers mapped\n");
    EXPECT_EQ(runRuvoctl(overUdp({"job", "progress", "by-udp", "7"})).status, 0);
    EXPECT_EQ(runRuvoctl(overUdp({"job", "get", "by-udp"})).output, "7\n");
    EXPECT_EQ(runRuvoctl(overUdp({"notify", "by-udp"})).status, 0);
    EXPECT_EQ(runRuvoctl(overUdp({"job", "delete", id})).status, 0);
}

TEST_F(RuvoctlClient, SendsRawRequests) {
    expectDone({"raw", "JobStatus", "RUVO_JS_LOOKUP", "s:no such job", "--expect", "i"}, "-1\n");
    expectDone({"raw", "JobStatus", "RUVO_JS_GET_ALL_PROGRESS", "--quiet", "0.1"}, "");
    expectDone({"raw", "Notifier", "NO_SUCH_COMMAND", "--quiet", "0.3"}, "fffffc19\n");
    const ClientRun none = run({"raw", "NoSuchMonitor", "X", "--expect", "i"});
    EXPECT_EQ(none.status, 1);
    EXPECT_THAT(none.errors, HasSubstr("ended the conversation"));
}

TEST_F(RuvoctlClient, TellsThatARequestIsOverTheDaemonsLimits) {
    TemporaryDirectory directory;
    writeFile(directory.file("large"), std::string(1048577, 'x'));
    const std::string file = clientPath(directory.file("large"));
    const ClientRun refused =
        run({"raw", "JobStatus", "RUVO_JS_LOOKUP", "F:" + file, "--expect", "i"});
    EXPECT_EQ(refused.status, 1) << refused.errors;
    EXPECT_TRUE(daemon().serves());
}

TEST(Ruvoctl, StopsTheDaemonAndTellsItsWatchers) {
    Daemon daemon;
    const std::string port = std::to_string(daemon.tcpPort());
    ClientProcess watcher(ruvoctlLine({"--port", port, "watch", "."}));
    ASSERT_TRUE(watcher.complains("watching")) << watcher.errors();
    const ClientRun stopped = runRuvoctl({"--port", port, "stop"});
    EXPECT_EQ(stopped.status, 0) << stopped.errors;
    EXPECT_EQ(stopped.output, "the daemon stops\n");
    EXPECT_EQ(daemon.process().waitForExit(), 0);
    EXPECT_EQ(watcher.waitForExit(), 3);
    EXPECT_THAT(watcher.errors(), HasSubstr("the daemon has gone"));

    const ClientRun after = runRuvoctl({"--port", port, "job", "lookup", "a"});
    EXPECT_EQ(after.status, 3);
    EXPECT_THAT(after.errors, HasSubstr("cannot reach tcp:127.0.0.1:" + port));
}

TEST(Ruvoctl, SaysThatTheDaemonTakesNoMoreClients) {
    Daemon daemon({.properties = "ruvod.limits.clients=1\n"});
    const std::string port = std::to_string(daemon.tcpPort());
    {
        const WireClient only = daemon.client();
        const ClientRun refused = runRuvoctl({"--port", port, "job", "lookup", "a"});
        EXPECT_EQ(refused.status, 1);
        EXPECT_THAT(refused.errors, HasSubstr("access refused"));
        EXPECT_THAT(refused.errors, HasSubstr("as many clients as it may"));
    }
    EXPECT_TRUE(waitUntil([&] {
        return runRuvoctl({"--port", port, "job", "create", "room-again"}).status == 0;
    }));
}

}  // namespace IntegrationTests
