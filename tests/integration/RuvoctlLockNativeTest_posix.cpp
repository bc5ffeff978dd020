// What becomes of locks when somebody ends the client, its command or the daemon.
// Native ones, for that takes signals.

#include "client/RuvoLocks.h"
#include "tests/support/ClientLauncher.h"
#include "tests/support/DaemonLauncher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace IntegrationTests {
namespace {

using ::testing::HasSubstr;
using namespace TestSupport;
using Arguments = std::vector<std::string>;
using Ruvo::RuvoLocks;
using std::chrono::milliseconds;

const int kSignals[] = {SIGTERM, SIGINT, SIGHUP, SIGQUIT};

class RuvoctlLockNative : public ::testing::Test {
protected:
    RuvoctlLockNative() : daemon_({.logLevel = 9}), client_(options()) {}

    Ruvo::RuvoClientOptions options() const {
        Ruvo::RuvoClientOptions options;
        options.port = daemon_.tcpPort();
        options.timeout = kPatience;
        return options;
    }
    Arguments line(const Arguments& arguments) const {
        Arguments all = {"--port", std::to_string(daemon_.tcpPort())};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return ruvoctlLine(all);
    }
    // ruvoctl lock PATH -- sh -c SCRIPT, in a directory for its files.
    Arguments locking(const std::string& path, const std::string& script) const {
        return line({"lock", path, "--", "sh", "-c", "cd '" + directory_.text() + "'; " + script});
    }
    std::string file(std::string_view name) const { return directory_.file(name); }
    bool appears(std::string_view name) const {
        return waitUntil([&] { return exists(file(name)); });
    }
    RuvoLocks locks() { return RuvoLocks(client_); }
    // Nobody holds it, also none who has gone.
    bool isFree(const std::string& path) {
        const auto handle = locks().lock(path);
        if (handle) locks().unlock(*handle);
        return handle.has_value();
    }
    // A request of somebody who waits for it has come to rest in the daemon.
    bool isWaitedFor(const std::string& path) const {
        return daemon_.logs(9, "RuvoRAEngine::RANode::lock(" + path +
                                   "): delaying for -1ms or until node is unlocked");
    }

    Daemon daemon_;
    TemporaryDirectory directory_;
    Ruvo::RuvoClient client_;
};

std::string pathOf(int signal) { return "signal-" + std::to_string(signal); }

}  // namespace

TEST_F(RuvoctlLockNative, LeavesNothingBehindWhenItIsEndedWhileItWaits) {
    for (const int signal : kSignals) {
        const std::string path = pathOf(signal);
        const auto handle = locks().lock(path);
        ASSERT_TRUE(handle);
        ClientProcess waiting(locking(path, ": > began"));
        ASSERT_TRUE(waiting.complains("waiting for the lock")) << waiting.errors();
        ASSERT_TRUE(isWaitedFor(path));
        waiting.signal(signal);
        EXPECT_EQ(waiting.waitForExit(), 128 + signal) << waiting.errors();
        locks().unlock(*handle);
        EXPECT_TRUE(isFree(path)) << signal;
        EXPECT_FALSE(exists(file("began")));
    }
}

TEST_F(RuvoctlLockNative, LeavesNothingBehindWhenItIsKilledWhileItWaits) {
    const auto handle = locks().lock("a");
    ASSERT_TRUE(handle);
    ClientProcess waiting(line({"lock", "a"}));
    ASSERT_TRUE(isWaitedFor("a"));
    waiting.signal(SIGKILL);
    EXPECT_EQ(waiting.waitForExit(), 128 + SIGKILL);
    locks().unlock(*handle);
    // The daemon may grant it before it sees that nobody waits any more.
    EXPECT_TRUE(waitUntil([&] { return isFree("a"); }));
}

// Whether the end or the lock comes first, nobody is left with a lock that
// nobody knows.
TEST_F(RuvoctlLockNative, LeavesNothingBehindWhenTheLockComesInThatMoment) {
    for (int round = 0; round < 30; ++round) {
        const std::string path = "race-" + std::to_string(round);
        const auto handle = locks().lock(path);
        ASSERT_TRUE(handle);
        ClientProcess waiting(line({"lock", path}));
        ASSERT_TRUE(isWaitedFor(path));
        std::thread ending([&] { waiting.signal(SIGTERM); });
        locks().unlock(*handle);
        ending.join();
        const auto status = waiting.waitForExit();
        if (status == 0) {
            locks().unlock(std::stoi(waiting.output()));
        } else {
            EXPECT_EQ(status, 128 + SIGTERM) << waiting.errors();
            EXPECT_EQ(waiting.output(), "");
        }
        EXPECT_TRUE(isFree(path)) << round;
    }
}

TEST_F(RuvoctlLockNative, HandsSignalsOnToTheCommand) {
    for (const int signal : kSignals) {
        const std::string path = pathOf(signal);
        const std::string number = std::to_string(signal);
        ClientProcess running(locking(path, "trap 'echo told; exit 9' " + number + "; : > ready" +
                                                number + "; while :; do sleep 0.01; done"));
        ASSERT_TRUE(appears("ready" + number));
        EXPECT_FALSE(isFree(path));
        running.signal(signal);
        EXPECT_EQ(running.waitForExit(), 9) << running.errors();
        EXPECT_EQ(running.output(), "told\n");
        EXPECT_TRUE(isFree(path)) << signal;
    }
}

TEST_F(RuvoctlLockNative, EndsAsTheCommandThatASignalEnds) {
    for (const int signal : kSignals) {
        const std::string ready = "ready" + std::to_string(signal);
        ClientProcess running(
            locking(pathOf(signal), ": > " + ready + "; exec sleep 60"));
        ASSERT_TRUE(appears(ready));
        running.signal(signal);
        EXPECT_EQ(running.waitForExit(), 128 + signal) << running.errors();
        EXPECT_TRUE(isFree(pathOf(signal))) << signal;
    }
    ClientProcess killed(locking("a", "kill -9 $$"));
    EXPECT_EQ(killed.waitForExit(), 128 + SIGKILL);
    EXPECT_TRUE(isFree("a"));
}

TEST_F(RuvoctlLockNative, HoldsTheLockAsLongAsTheCommandHoldsOut) {
    ClientProcess running(locking(
        "a", "trap 'echo told' TERM; : > ready; until [ -e go ]; do sleep 0.01; done; exit 4"));
    ASSERT_TRUE(appears("ready"));
    for (int i = 1; i <= 2; ++i) {
        running.signal(SIGTERM);
        ASSERT_TRUE(waitUntil([&] {
            const std::string told = running.output();
            return std::count(told.begin(), told.end(), '\n') == i;
        }));
    }
    EXPECT_FALSE(isFree("a"));
    EXPECT_FALSE(running.waitForExit(milliseconds(0)).has_value());
    writeFile(file("go"), "");
    EXPECT_EQ(running.waitForExit(), 4);
    EXPECT_TRUE(isFree("a"));
}

TEST_F(RuvoctlLockNative, SurvivesTheEndOfTheSessionWhenItIsToldSo) {
    Arguments all = {"nohup"};
    for (const std::string& word :
         locking("a", ": > ready; until [ -e go ]; do sleep 0.01; done; echo done > out")) {
        all.push_back(word);
    }
    const auto handle = locks().lock("a");
    ASSERT_TRUE(handle);
    ClientProcess running(all);
    ASSERT_TRUE(isWaitedFor("a"));
    running.signal(SIGHUP);
    locks().unlock(*handle);
    ASSERT_TRUE(appears("ready")) << running.errors();
    running.signal(SIGHUP);
    EXPECT_FALSE(isFree("a"));
    writeFile(file("go"), "");
    EXPECT_EQ(running.waitForExit(), 0) << running.errors();
    EXPECT_EQ(readFile(file("out")), "done\n");
    EXPECT_TRUE(isFree("a"));
}

// Somebody at a terminal presses Ctrl-C, which the system tells both programs of. A
// signal that is handed on after it would come behind one that the command got twice.
TEST_F(RuvoctlLockNative, DoesNotTellTheCommandTwiceWhatIsTyped) {
    const std::string typist =
        "import os, pty, signal, sys, time\n"
        "directory = sys.argv[1]\n"
        "child, terminal = pty.fork()\n"
        "if child == 0: os.execvp(sys.argv[2], sys.argv[2:])\n"
        "while not os.path.exists(directory + '/ready'): time.sleep(0.01)\n"
        "os.write(terminal, b'\\x03')\n"
        "while not os.path.exists(directory + '/told'): time.sleep(0.01)\n"
        "os.kill(child, signal.SIGTERM)\n"
        "try:\n"
        "    while os.read(terminal, 1000): pass\n"
        "except OSError: pass\n"
        "sys.exit(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))\n";
    const std::string script =
        "trap 'echo told >> told' INT; trap 'exit 5' TERM; : > ready; "
        "while :; do sleep 0.01; done";
    Arguments all = {"python3", "-c", typist, directory_.text()};
    for (const std::string& word : locking("a", script)) all.push_back(word);
    const ClientRun done = runProgram(all);
    EXPECT_EQ(done.status, 5) << done.errors;
    EXPECT_EQ(readFile(file("told")), "told\n");
    EXPECT_TRUE(isFree("a"));
}

TEST_F(RuvoctlLockNative, LetsOneCommandInAtATime) {
    constexpr int kClients = 6;
    writeFile(file("count"), "0\n");
    std::vector<std::unique_ptr<ClientProcess>> clients;
    for (int i = 0; i < kClients; ++i) {
        clients.push_back(std::make_unique<ClientProcess>(
            locking("a", "mkdir inside || exit 1; read -r n < count; sleep 0.02; "
                         "echo $((n + 1)) > count; rmdir inside")));
    }
    for (const auto& client : clients) EXPECT_EQ(client->waitForExit(), 0) << client->errors();
    EXPECT_EQ(readFile(file("count")), std::to_string(kClients) + "\n");
    EXPECT_TRUE(isFree("a"));
}

TEST_F(RuvoctlLockNative, TellsThatTheDaemonHasGoneAndKeepsTheStatus) {
    for (const bool killed : {false, true}) {
        Daemon daemon;
        const std::string ready = killed ? "killed" : "stopped";
        ClientProcess running(ruvoctlLine(
            {"--port", std::to_string(daemon.tcpPort()), "lock", "a", "--", "sh", "-c",
             "cd '" + directory_.text() + "'; : > " + ready + "; until [ -e go" + ready +
                 " ]; do sleep 0.01; done; exit 6"}));
        ASSERT_TRUE(appears(ready));
        if (killed) {
            daemon.kill();
        } else {
            EXPECT_EQ(daemon.stop(), 0);
        }
        writeFile(file("go" + ready), "");
        EXPECT_EQ(running.waitForExit(), 6);
        EXPECT_THAT(running.errors(), HasSubstr("the lock of \"a\" was not unlocked: "));
        EXPECT_THAT(running.errors(), HasSubstr("'ruvoctl unlock 1'"));
    }
}

TEST_F(RuvoctlLockNative, TellsThatTheDaemonHasGoneWhileItWaits) {
    ASSERT_TRUE(locks().lock("a"));
    ClientProcess waiting(locking("a", ": > began"));
    ASSERT_TRUE(isWaitedFor("a"));
    client_.close();
    EXPECT_EQ(daemon_.stop(), 0);
    EXPECT_EQ(waiting.waitForExit(), 3);
    EXPECT_THAT(waiting.errors(), HasSubstr("ended the conversation"));
    EXPECT_FALSE(exists(file("began")));
}

TEST_F(RuvoctlLockNative, GivesTheLockBackWhenItsHandleCannotBeWritten) {
    for (const std::string output : {">/dev/full", ">&-"}) {
        Arguments all = {"sh", "-c", "\"$@\" " + output, "sh"};
        for (const std::string& word : line({"lock", "a"})) all.push_back(word);
        const ClientRun run = runProgram(all);
        EXPECT_EQ(run.status, 4) << output;
        EXPECT_EQ(run.errors, "ruvoctl: cannot write to standard output\n");
        EXPECT_TRUE(isFree("a")) << output;
    }
}

TEST_F(RuvoctlLockNative, LetsTheCommandUnlockByItself) {
    const std::string unlock = "\"$0\" --port " + std::to_string(daemon_.tcpPort()) +
                               " unlock \"$RUVO_LOCK_HANDLE\"";
    ClientProcess running(line({"lock", "a", "--", "sh", "-c",
                                "cd '" + directory_.text() + "'; " + unlock +
                                    " && : > free; until [ -e go ]; do sleep 0.01; done",
                                ruvoctlLine({}).front()}));
    ASSERT_TRUE(appears("free")) << running.errors();
    const auto handle = locks().lock("a");
    EXPECT_TRUE(handle);
    writeFile(file("go"), "");
    EXPECT_EQ(running.waitForExit(), 0) << running.errors();
    EXPECT_FALSE(locks().lock("a"));  // it is not unlocked a second time
}

}  // namespace IntegrationTests
