// Locks of the real client in the real daemon, each of them native or Windows.

#include "tests/support/ClientLauncher.h"
#include "tests/support/DaemonLauncher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace IntegrationTests {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using namespace TestSupport;
using Arguments = std::vector<std::string>;

// A line for the client's command interpreter, as words.
Arguments shell(const std::string& posix, const std::string& windows) {
    return isClientEmulated() ? Arguments{"cmd", "/c", windows} : Arguments{"sh", "-c", posix};
}

// One daemon serves all of these; each test uses paths of its own.
class RuvoctlLocks : public ::testing::Test {
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
    static ClientRun run(const Arguments& arguments) { return runRuvoctl(withPort(arguments)); }
    static Arguments locking(Arguments options, const Arguments& command) {
        options.insert(options.begin(), "lock");
        options.push_back("--");
        options.insert(options.end(), command.begin(), command.end());
        return options;
    }
    static bool isFree(const std::string& path) {
        return run(locking({path, "--wait", "0"}, shell("exit 0", "exit 0"))).status == 0;
    }
    // What `ruvoctl lock` prints, without its line end.
    static std::string handleOf(const std::string& path) {
        const ClientRun locked = run({"lock", path, "--wait", "0"});
        EXPECT_EQ(locked.status, 0) << locked.errors;
        return locked.output.substr(0, locked.output.find('\n'));
    }

private:
    static Daemon* daemon_;
};

Daemon* RuvoctlLocks::daemon_ = nullptr;

}  // namespace

TEST_F(RuvoctlLocks, RunsACommandWhileTheyAreHeld) {
    ClientProcess watcher(ruvoctlLine(withPort({"watch", "^VornRAEvent:run:a$", "--count", "2"})));
    ASSERT_TRUE(watcher.complains("watching")) << watcher.errors();
    const ClientRun done = run(locking(
        {"run:a"}, shell("echo \"<$RUVO_LOCK_HANDLE>\"; echo error >&2; exit 7",
                         "echo ^<%RUVO_LOCK_HANDLE%^>& echo error>&2& exit 7")));
    EXPECT_EQ(done.status, 7);
    EXPECT_THAT(done.output, ::testing::MatchesRegex("<[0-9]+>\n"));
    EXPECT_EQ(done.errors, "error\n");
    EXPECT_EQ(watcher.waitForExit(), 0) << watcher.errors();
    EXPECT_EQ(watcher.output(),
              "VornRAEvent:run:a locked sender=\"udp:127.0.0.1\" message=\"run:a\"\n"
              "VornRAEvent:run:a unlocked sender=\"udp:127.0.0.1\" message=\"run:a\"\n");
    EXPECT_TRUE(isFree("run:a"));
}

TEST_F(RuvoctlLocks, LetTheCommandReadWhatIsTyped) {
    Arguments line = {"sh", "-c", "echo typed | \"$@\"", "sh"};
    const auto words =
        isClientEmulated() ? Arguments{"cmd", "/v:on", "/c", "set /p word=& echo ^<!word!^>"}
                           : Arguments{"sh", "-c", "read -r word; echo \"<$word>\""};
    for (const std::string& word : ruvoctlLine(withPort(locking({"stdin"}, words)))) {
        line.push_back(word);
    }
    const ClientRun done = runProgram(line);
    EXPECT_EQ(done.status, 0) << done.errors;
    EXPECT_EQ(done.output, "<typed>\n");
}

TEST_F(RuvoctlLocks, KeepOthersOut) {
    const std::string handle = handleOf("out");
    const ClientRun refused = run(locking({"out", "--wait", "0"}, shell("exit 0", "exit 0")));
    EXPECT_EQ(refused.status, 75);
    EXPECT_EQ(refused.errors, "ruvoctl: somebody else holds the lock of \"out\"\n");
    EXPECT_EQ(run({"lock", "out", "--wait", "50"}).status, 75);
    EXPECT_TRUE(isFree("out:below"));
    const ClientRun unlocked = run({"unlock", handle});
    EXPECT_EQ(unlocked.status, 0) << unlocked.errors;
    EXPECT_EQ(unlocked.output, "lock " + handle + ": unlocked\n");
    EXPECT_TRUE(isFree("out"));
    EXPECT_EQ(run({"unlock", handle}).status, 0);  // twice changes nothing
}

TEST_F(RuvoctlLocks, AreWaitedFor) {
    const std::string handle = handleOf("wait,a");
    ClientProcess waiting(
        ruvoctlLine(withPort(locking({"wait:a"}, shell("exit 5", "exit 5")))));
    ASSERT_TRUE(waiting.complains("waiting for the lock of \"wait:a\"")) << waiting.errors();
    EXPECT_TRUE(daemon().logs(
        9, "RuvoRAEngine::RANode::lock(wait,a): delaying for -1ms or until node is unlocked"));
    EXPECT_FALSE(waiting.waitForExit(std::chrono::milliseconds(0)).has_value());
    EXPECT_EQ(run({"unlock", handle}).status, 0);
    EXPECT_EQ(waiting.waitForExit(), 5) << waiting.errors();
    EXPECT_TRUE(isFree("wait:a"));
}

TEST_F(RuvoctlLocks, AreGivenBackWhenTheCommandCannotBeRun) {
    const ClientRun missing = run(locking({"missing"}, {"no-such-program-anywhere"}));
    EXPECT_EQ(missing.status, 127);
    EXPECT_THAT(missing.errors,
                StartsWith("ruvoctl: cannot run \"no-such-program-anywhere\": "));
    EXPECT_TRUE(isFree("missing"));
    const TemporaryDirectory directory;
    writeFile(directory.file("text"), "x");
    EXPECT_EQ(run(locking({"missing"}, {clientPath(directory.file("text"))})).status, 126);
    EXPECT_TRUE(isFree("missing"));
}

TEST_F(RuvoctlLocks, SpeakJson) {
    const auto locked = nlohmann::json::parse(run({"lock", "json\"x", "--json"}).output);
    EXPECT_EQ(locked["path"], "json\"x");
    const std::string handle = locked["handle"].dump();
    EXPECT_EQ(nlohmann::json::parse(run({"unlock", handle, "--json"}).output),
              nlohmann::json({{"handle", locked["handle"]}, {"unlocked", true}}));
}

TEST_F(RuvoctlLocks, AreHeldOverUdp) {
    Arguments arguments = {"--udp", "--port", std::to_string(daemon().udpPort())};
    for (const std::string& word : locking({"udp"}, shell("exit 3", "exit 3"))) {
        arguments.push_back(word);
    }
    const ClientRun done = runRuvoctl(arguments);
    EXPECT_EQ(done.status, 3) << done.errors;
    EXPECT_EQ(done.errors, "");
    EXPECT_TRUE(isFree("udp"));
}

TEST_F(RuvoctlLocks, CarryWordsOfEveryKindToTheCommand) {
    const Arguments odd = {"", "a b", "quo\"te", "back\\slash\\", "\xc3\xa4\xe2\x82\xac", "[a,b]",
                           "--json", "%PATH%", "$HOME", "*", "&"};
    // The client under test prints what it was given.
    Arguments command = ruvoctlLine({"--port", std::to_string(daemon().tcpPort()), "raw", "M"});
    if (isClientEmulated()) command.erase(command.begin());
    if (isClientEmulated()) command.front() = clientPath(command.front() + ".exe");
    for (const std::string& word : odd) {
        Arguments words = command;
        words.insert(words.end(), {"--", "C", word + "?"});  // no type: it is complained of
        const ClientRun done = run(locking({"words"}, words));
        EXPECT_EQ(done.status, 2) << word;
        EXPECT_THAT(done.errors, HasSubstr("ruvoctl: \"" + word + "?\"")) << word;
    }
}

}  // namespace IntegrationTests
