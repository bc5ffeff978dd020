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

// Such as end a program that does not catch them.
std::vector<int> endingSignals() {
    return {SIGTERM, SIGINT,    SIGHUP,  SIGQUIT, SIGUSR1,   SIGUSR2, SIGALRM, SIGABRT,
            SIGXCPU, SIGVTALRM, SIGPROF, SIGIO,   SIGSTKFLT, SIGPWR,  SIGRTMIN, SIGRTMAX};
}

class RuvoctlLockNative : public ::testing::Test {
protected:
    RuvoctlLockNative() : daemon_({.udp = true, .logLevel = 9}), client_(options()) {}

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
    // The same, of what the daemon has perhaps not been told yet: who is ended does
    // not wait for its last word for ever.
    bool becomesFree(const std::string& path) {
        return waitUntil([&] { return isFree(path); });
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
    for (const int signal : endingSignals()) {
        const std::string path = pathOf(signal);
        const auto handle = locks().lock(path);
        ASSERT_TRUE(handle);
        ClientProcess waiting(locking(path, ": > began"));
        ASSERT_TRUE(waiting.complains("waiting for the lock")) << waiting.errors();
        ASSERT_TRUE(isWaitedFor(path));
        waiting.signal(signal);
        EXPECT_EQ(waiting.waitForExit(), 128 + signal) << waiting.errors();
        locks().unlock(*handle);
        EXPECT_TRUE(becomesFree(path)) << signal;
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
    EXPECT_TRUE(becomesFree("a"));
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
        EXPECT_TRUE(becomesFree(path)) << round;
    }
}

TEST_F(RuvoctlLockNative, LosesNoSignalThatComesWhileTheCommandIsBeingStarted) {
    for (int round = 0; round < 30; ++round) {
        const std::string path = "race-" + std::to_string(round);
        const auto handle = locks().lock(path);
        ASSERT_TRUE(handle);
        ClientProcess waiting(line({"lock", path, "--", "sleep", "600"}));
        ASSERT_TRUE(isWaitedFor(path));
        std::thread ending([&] { waiting.signal(round % 2 == 0 ? SIGTERM : SIGUSR1); });
        locks().unlock(*handle);
        ending.join();
        EXPECT_EQ(waiting.waitForExit(), 128 + (round % 2 == 0 ? SIGTERM : SIGUSR1))
            << waiting.errors();
        EXPECT_TRUE(becomesFree(path)) << round;
    }
}

// The same at a terminal: what is typed before there is a command reaches ruvoctl
// alone. The moment moves from round to round.
TEST_F(RuvoctlLockNative, LosesNothingThatIsTypedWhileTheCommandIsBeingStarted) {
    // The thread sanitizer sleeps for a second at the end of a program, unless it is told
    // not to; here some sixty end.
    const std::string typist =
        "import os, pty, subprocess, sys, time\n"
        "os.environ['TSAN_OPTIONS'] = os.environ.get('TSAN_OPTIONS', '') + ':atexit_sleep_ms=0'\n"
        "ruvoctl = sys.argv[1:]\n"
        "for round in range(20):\n"
        "    handle = subprocess.check_output(ruvoctl + ['lock', 'a', '--wait', '0'])\n"
        "    child, terminal = pty.fork()\n"
        "    if child == 0: os.execvp(ruvoctl[0], ruvoctl + ['lock', 'a', '--', 'sleep', '600'])\n"
        "    said = b''\n"
        "    while b'waiting' not in said: said += os.read(terminal, 1000)\n"
        "    unlocking = subprocess.Popen(ruvoctl + ['unlock', handle.strip()], stdout=2)\n"
        "    begun = time.monotonic()\n"
        "    while time.monotonic() - begun < round * 0.0005: pass\n"
        "    os.write(terminal, b'\\x03')\n"
        "    status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])\n"
        "    os.close(terminal)\n"
        "    unlocking.wait()\n"
        "    if status != 130: sys.exit('round %d: status %d' % (round, status))\n";
    Arguments all = {"python3", "-c", typist};
    for (const std::string& word : line({})) all.push_back(word);
    const ClientRun done = runProgram(all);
    EXPECT_EQ(done.status, 0) << done.errors;
    EXPECT_TRUE(becomesFree("a"));
}

TEST_F(RuvoctlLockNative, LeavesNothingBehindWhenItIsEndedWhileItWaitsOverUdp) {
    const auto handle = locks().lock("a");
    ASSERT_TRUE(handle);
    ClientProcess waiting(ruvoctlLine(
        {"--udp", "--port", std::to_string(daemon_.udpPort()), "lock", "a", "--", "true"}));
    ASSERT_TRUE(isWaitedFor("a"));
    waiting.signal(SIGTERM);
    EXPECT_EQ(waiting.waitForExit(), 128 + SIGTERM) << waiting.errors();
    locks().unlock(*handle);
    EXPECT_TRUE(becomesFree("a"));
}

TEST_F(RuvoctlLockNative, HandsSignalsOnToTheCommand) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2, SIGALRM}) {
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
    for (const int signal : endingSignals()) {
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

namespace {

// For programs that start ruvoctl at a terminal of its own, whose session it leads,
// with a command that makes the file "ready", and "runs" on SIGUSR1. A signal that
// was handed on to the command shows that it has been begun, and a sleep after that
// that ruvoctl is past all that belongs to the beginning.
const std::string kTypist =
    "import os, pty, signal, sys, time\n"
    "def until(condition):\n"
    "    end = time.monotonic() + 30\n"
    "    while not condition():\n"
    "        if time.monotonic() > end: sys.exit('waited in vain')\n"
    "        time.sleep(0.01)\n"
    "def appears(name): until(lambda: os.path.exists(sys.argv[1] + '/' + name))\n"
    "def state(): return open('/proc/%d/stat' % child).read().rsplit(')', 1)[1].split()[0]\n"
    "child, terminal = pty.fork()\n"
    "if child == 0: os.execvp(sys.argv[2], sys.argv[2:])\n"
    "appears('ready')\n"
    "os.kill(child, signal.SIGUSR1)\n"
    "appears('runs')\n"
    "until(lambda: state() == 'S')\n";
const std::string kAtTerminal = "trap ': > runs' USR1; ";

}  // namespace

// Somebody at a terminal presses Ctrl-C, which the system tells both programs of. A
// signal that is handed on after it would come behind one that the command got twice.
TEST_F(RuvoctlLockNative, DoesNotTellTheCommandTwiceWhatIsTyped) {
    const std::string typist = kTypist +
        "os.write(terminal, b'\\x03')\n"
        "appears('told')\n"
        "os.kill(child, signal.SIGTERM)\n"
        "try:\n"
        "    while os.read(terminal, 1000): pass\n"
        "except OSError: pass\n"
        "sys.exit(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))\n";
    const std::string script = kAtTerminal +
        "trap 'echo told >> told' INT; trap 'exit 5' TERM; : > ready; "
        "while :; do sleep 0.01; done";
    Arguments all = {"python3", "-c", typist, directory_.text()};
    for (const std::string& word : locking("a", script)) all.push_back(word);
    const ClientRun done = runProgram(all);
    EXPECT_EQ(done.status, 5) << done.errors;
    EXPECT_EQ(readFile(file("told")), "told\n");
    EXPECT_TRUE(isFree("a"));
}

// Of that the system tells the leader of the session alone. Here this is ruvoctl.
TEST_F(RuvoctlLockNative, TellsTheCommandThatTheTerminalHasGone) {
    const std::string typist = kTypist +
        "os.close(terminal)\n"
        "sys.exit(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))\n";
    const std::string script = kAtTerminal +
        "trap ': > told; exit 9' HUP; : > ready; "
        "for i in $(seq 1000); do sleep 0.01; done; exit 3";
    Arguments all = {"python3", "-c", typist, directory_.text()};
    for (const std::string& word : locking("a", script)) all.push_back(word);
    const ClientRun done = runProgram(all);
    EXPECT_EQ(done.status, 9) << done.errors;
    EXPECT_TRUE(exists(file("told")));
    EXPECT_TRUE(isFree("a"));
}

TEST_F(RuvoctlLockNative, WorksWhereTheQueueOfSignalsIsFull) {
    const auto withoutQueue = [](const Arguments& words) {
        Arguments all = {"bash", "-c", "ulimit -i 0 && exec \"$@\"", "bash"};
        all.insert(all.end(), words.begin(), words.end());
        return all;
    };
    ClientProcess running(withoutQueue(
        locking("a", "trap 'exit 9' TERM; : > ready; while :; do sleep 0.01; done")));
    ASSERT_TRUE(appears("ready")) << running.errors();
    running.signal(SIGTERM);
    EXPECT_EQ(running.waitForExit(), 9) << running.errors();
    EXPECT_TRUE(isFree("a"));
    const ClientRun printed = runProgram(withoutQueue(line({"lock", "b"})));
    EXPECT_EQ(printed.status, 0) << printed.errors;
    EXPECT_NE(printed.output, "");
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
        EXPECT_EQ(running.errors(),
                  "ruvoctl: the command ended with status 6, but the lock of \"a\" could not be "
                  "given back: the daemon at tcp:127.0.0.1:" +
                      std::to_string(daemon.tcpPort()) +
                      " is gone. If it has stopped, its locks are gone too; if only the "
                      "connection was lost, 'ruvoctl unlock 1' gives this one back\n");
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

TEST_F(RuvoctlLockNative, EndsSoonWhenItIsEndedWhileTheDaemonDoesNotAnswer) {
    ClientProcess running(line({"--timeout", "600", "lock", "a", "--", "sh", "-c",
                                "cd '" + directory_.text() + "'; : > ready; "
                                "until [ -e go ]; do sleep 0.01; done; exit 4"}));
    ASSERT_TRUE(appears("ready"));
    daemon_.process().signal(SIGSTOP);
    writeFile(file("go"), "");
    // The first may come while the command still runs.
    EXPECT_TRUE(waitUntil([&] {
        running.signal(SIGTERM);
        return running.waitForExit(milliseconds(50)).has_value();
    }));
    EXPECT_THAT(running.waitForExit(), ::testing::AnyOf(4, 128 + SIGTERM));
    EXPECT_THAT(running.errors(), HasSubstr("the command ended with status "));
    EXPECT_THAT(running.errors(), HasSubstr(" does not answer. It has been asked, "));
    daemon_.process().signal(SIGCONT);
    EXPECT_TRUE(becomesFree("a"));
}

TEST_F(RuvoctlLockNative, LeavesTheLockToTheCommandWhenItIsKilled) {
    ClientProcess running(locking(
        "a", "echo $RUVO_LOCK_HANDLE > handle; : > ready; until [ -e go ]; do sleep 0.01; done; "
             ": > done"));
    ASSERT_TRUE(appears("ready"));
    running.signal(SIGKILL);
    EXPECT_EQ(running.waitForExit(), 128 + SIGKILL);
    EXPECT_FALSE(isFree("a"));
    writeFile(file("go"), "");
    EXPECT_TRUE(appears("done"));  // it goes on
    EXPECT_FALSE(isFree("a"));
    const std::string handle = readFile(file("handle"));
    const ClientRun unlocked =
        runProgram(line({"unlock", handle.substr(0, handle.find('\n'))}));
    EXPECT_EQ(unlocked.status, 0) << unlocked.errors;
    EXPECT_TRUE(isFree("a"));
}

// Somebody who reads what it prints, or what it complains of, has gone.
TEST_F(RuvoctlLockNative, LeavesNoLockToABrokenPipe) {
    const std::string reader =
        "import os, subprocess, sys\n"
        "ends = os.pipe()\n"
        "os.close(ends[0])\n"
        "sys.exit(subprocess.run(sys.argv[3:], restore_signals=sys.argv[1] == 'ends',\n"
        "                        **{sys.argv[2]: ends[1]}).returncode)\n";
    for (const std::string pipes : {"ends", "fails"}) {
        Arguments all = {"python3", "-c", reader, pipes, "stdout"};
        for (const std::string& word : line({"lock", "a"})) all.push_back(word);
        const ClientRun unread = runProgram(all);
        EXPECT_EQ(unread.status, 4) << pipes;
        EXPECT_EQ(unread.errors, "ruvoctl: cannot write to standard output\n");
        EXPECT_TRUE(isFree("a")) << pipes;

        all = {"python3", "-c", reader, pipes, "stderr"};
        for (const std::string& word : locking("a", "exit 6")) all.push_back(word);
        const auto handle = locks().lock("a");
        ASSERT_TRUE(handle);
        const auto waits = [&] {
            const std::string log = daemon_.log();
            const std::string text = "lock(a): delaying for -1ms";
            std::size_t count = 0;
            for (auto at = log.find(text); at != log.npos; at = log.find(text, at + 1)) ++count;
            return count;
        };
        const std::size_t before = waits();
        ClientProcess waiting(all);
        EXPECT_TRUE(waitUntil([&] { return waits() > before; }));
        locks().unlock(*handle);
        EXPECT_EQ(waiting.waitForExit(), 6) << pipes;
        EXPECT_TRUE(isFree("a")) << pipes;
    }
}

TEST_F(RuvoctlLockNative, IsNotEndedByAPipeThatBreaks) {
    ClientProcess running(
        locking("a", ": > ready; until [ -e go ]; do sleep 0.01; done; exit 4"));
    ASSERT_TRUE(appears("ready"));
    running.signal(SIGPIPE);
    EXPECT_FALSE(isFree("a"));
    writeFile(file("go"), "");
    EXPECT_EQ(running.waitForExit(), 4);
    EXPECT_TRUE(isFree("a"));
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
