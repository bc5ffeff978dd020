#include "tests/client/RuvoctlRun.h"
#include "tests/client/ScriptedDaemon.h"
#include "tests/client/TestCommands.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <future>
#include <thread>

using namespace ClientTest;
using TestSupport::exists;
using TestSupport::waitUntil;

namespace {

using Arguments = std::vector<std::string>;
using Script = ScriptedDaemon::Script;
using Transport = ScriptedDaemon::Transport;

std::string lockRequest(std::string_view path, std::int64_t wait) {
    return engineRequest("Arbiter", "RUVO_RA_LOCK", str(path) + i32(wait));
}

std::string unlockRequest(std::int64_t handle) {
    return engineRequest("Arbiter", "RUVO_RA_UNLOCK", i32(handle));
}

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// The client must close its end without another word.
void expectNothingMore(ScriptedPeer& peer) {
    EXPECT_THROW((void)peer.read(1), std::runtime_error) << "the client sent more";
}

Script grantAndTakeBack(const std::string& path, std::int32_t handle) {
    return [=](ScriptedPeer& peer) {
        peer.open();
        peer.serve(lockRequest(path, 0), i32(handle));
        peer.serve(unlockRequest(handle), i32(0));
        expectNothingMore(peer);
    };
}

// ruvoctl lock PATH OPTIONS -- COMMAND.
Arguments locking(const Arguments& options, const Words& command) {
    Arguments all = {"lock", "a"};
    all.insert(all.end(), options.begin(), options.end());
    all.push_back("--");
    all.insert(all.end(), command.begin(), command.end());
    return all;
}

class RuvoctlLock : public testing::Test {
protected:
    // The status of a run against a daemon with these scripts.
    int run(std::vector<Script> scripts, Arguments arguments,
            Transport transport = Transport::Tcp) {
        ScriptedDaemon daemon(std::move(scripts), transport);
        arguments.insert(arguments.begin(), {"--port", std::to_string(daemon.port())});
        if (transport == Transport::Udp) arguments.insert(arguments.begin(), "--udp");
        return ruvoctl_.run(arguments);
    }
    int run(Script script, const Arguments& arguments, Transport transport = Transport::Tcp) {
        return run(std::vector<Script>{std::move(script)}, arguments, transport);
    }
    std::string out() const { return ruvoctl_.out.text(); }
    std::string err() const { return ruvoctl_.err.text(); }
    std::string file(std::string_view name) { return directory_.file(name); }
    void create(std::string_view name) { TestSupport::writeFile(file(name), ""); }

    RuvoctlRun ruvoctl_;
    TestSupport::TemporaryDirectory directory_;
};

}  // namespace

TEST_F(RuvoctlLock, UnlocksWhenTheCommandHasEnded) {
    const Script script = [&](ScriptedPeer& peer) {
        peer.open();
        peer.serve(lockRequest("a", 0), i32(5));
        EXPECT_TRUE(waitUntil([&] { return exists(file("begun")); }));
        create("go");
        peer.serve(unlockRequest(5), i32(0));
        expectNothingMore(peer);
    };
    EXPECT_EQ(run(script, locking({}, until(file("begun"), file("go"), 3))), 3) << err();
    EXPECT_TRUE(exists(file("go")));
    EXPECT_EQ(out(), "");
    EXPECT_EQ(err(), "");
    EXPECT_TRUE(ruvoctl_.catching);
}

TEST_F(RuvoctlLock, EndsWithTheStatusOfTheCommand) {
    for (const int status : {0, 1, 75, 255}) {
        EXPECT_EQ(run(grantAndTakeBack("a", 1), locking({"--json"}, exitingWith(status))), status);
    }
    EXPECT_EQ(out(), "");  // it is the command's
}

TEST_F(RuvoctlLock, TellsTheCommandTheHandle) {
    EXPECT_EQ(run(grantAndTakeBack("a", 4711), locking({}, writingTheHandle(file("out")))), 0);
    EXPECT_EQ(TestSupport::readFile(file("out")).substr(0, 4), "4711");
}

TEST_F(RuvoctlLock, DoesNotRunTheCommandWithoutTheLock) {
    const Script refuse = [](ScriptedPeer& peer) {
        peer.open();
        peer.serve(lockRequest("a", 0), i32(0));
        expectNothingMore(peer);
    };
    EXPECT_EQ(run(refuse, locking({"--wait", "0"}, writingTheHandle(file("out")))), 75);
    EXPECT_EQ(err(), "ruvoctl: somebody else holds the lock of \"a\"\n");
    EXPECT_FALSE(exists(file("out")));
    EXPECT_EQ(run(refuse, {"lock", "a", "--wait", "0", "--json"}), 75);
    EXPECT_EQ(out(), "");
}

TEST_F(RuvoctlLock, WaitsForEverUnlessToldAndSaysSo) {
    const auto waiting = [](std::int64_t wait, std::int32_t answer) -> Script {
        return [=](ScriptedPeer& peer) {
            peer.open();
            peer.serve(lockRequest("a", 0), i32(0));
            peer.serve(lockRequest("a", wait), i32(answer));
            if (answer > 0) peer.serve(unlockRequest(answer), i32(0));
            expectNothingMore(peer);
        };
    };
    EXPECT_EQ(run(waiting(-1, 8), locking({}, exitingWith(4))), 4) << err();
    EXPECT_EQ(err(), "ruvoctl: waiting for the lock of \"a\"\n");
    EXPECT_EQ(run(waiting(-1, 8), locking({"--wait", "forever"}, exitingWith(4))), 4) << err();
    EXPECT_EQ(run(waiting(250, 8), locking({"--wait", "250"}, exitingWith(4))), 4) << err();
    EXPECT_EQ(run(waiting(1, 0), locking({"--wait=1"}, exitingWith(4))), 75) << err();
    EXPECT_EQ(run(waiting(2147483647, 0), {"lock", "a", "--wait", "2147483647"}), 75) << err();
}

TEST_F(RuvoctlLock, PrintsTheHandleAndLeavesTheLock) {
    const auto grant = [](const std::string& path) -> Script {
        return [=](ScriptedPeer& peer) {
            peer.open();
            peer.serve(lockRequest(path, 0), i32(12));
            expectNothingMore(peer);
        };
    };
    EXPECT_EQ(run(grant("store:shelf,3"), {"lock", "store:shelf,3"}), 0) << err();
    EXPECT_EQ(out(), "12\n");
    EXPECT_EQ(run(grant("-odd"), {"lock", "--", "-odd"}), 0) << err();
    EXPECT_EQ(run(grant("[b]"), {"lock", "[b]", "--json"}), 0) << err();
    EXPECT_EQ(out(), "12\n12\n{\"path\":\"[b]\",\"handle\":12}\n");
}

TEST_F(RuvoctlLock, UnlocksWhenNobodyCanReadTheHandle) {
    ruvoctl_.out.breakOff();
    EXPECT_EQ(run(grantAndTakeBack("a", 3), {"lock", "a"}), 4);
    EXPECT_TRUE(has(err(), "cannot write to standard output")) << err();
}

TEST_F(RuvoctlLock, UnlocksWhenTheCommandCannotBeRun) {
    EXPECT_EQ(run(grantAndTakeBack("a", 3), locking({}, {"no-such-program-anywhere", "x"})), 127);
    EXPECT_TRUE(has(err(), "ruvoctl: cannot run \"no-such-program-anywhere\": ")) << err();
    EXPECT_EQ(run(grantAndTakeBack("a", 3), locking({}, {file("missing\x1b")})), 127);
    EXPECT_TRUE(has(err(), "missing\\x1b\"")) << err();
    create("text");
    EXPECT_EQ(run(grantAndTakeBack("a", 3), locking({}, {file("text")})), 126);
}

TEST_F(RuvoctlLock, EndsTheWaitWhenItIsAskedToEnd) {
    for (const std::int32_t granted : {0, 7}) {
        RuvoctlRun ruvoctl;
        const Script waiting = [&](ScriptedPeer& peer) {
            peer.open();
            peer.serve(lockRequest("a", 0), i32(0));
            peer.expect(u16(1) + lockRequest("a", -1));
            EXPECT_TRUE(waitUntil([&] { return has(ruvoctl.err.text(), "waiting"); }));
            ruvoctl.requests.add({.signal = 15});
            peer.awaitClose();
            peer.send(i32(granted));
        };
        std::vector<Script> scripts = {waiting};
        if (granted > 0) {
            scripts.push_back([=](ScriptedPeer& peer) {
                peer.open();
                peer.serve(unlockRequest(granted), i32(0));
                expectNothingMore(peer);
            });
        }
        ScriptedDaemon daemon(scripts);
        Arguments arguments = locking({}, writingTheHandle(file("out")));
        arguments.insert(arguments.begin(), {"--port", std::to_string(daemon.port())});
        EXPECT_EQ(ruvoctl.run(arguments), 143) << ruvoctl.err.text();
        EXPECT_FALSE(exists(file("out")));
        EXPECT_EQ(ruvoctl.out.text(), "");
    }
}

// Why it ended is one thing, what it could not do then another.
TEST_F(RuvoctlLock, TellsWhatGoesWrongWhenTheWaitIsEndedAndKeepsTheStatus) {
    const std::vector<Script> scripts = {
        [&](ScriptedPeer& peer) {
            peer.open();
            peer.serve(lockRequest("a", 0), i32(0));
            peer.expect(u16(1) + lockRequest("a", -1));
            ruvoctl_.requests.add({.signal = 15});
            ruvoctl_.requests.add({.signal = 1});
            peer.awaitClose();
            peer.send(i32(7));
        },
        [](ScriptedPeer& peer) {
            peer.open();
            peer.expect(u16(1) + unlockRequest(7));
            peer.close();
        }};
    ScriptedDaemon daemon(scripts);
    Arguments arguments = locking({}, writingTheHandle(file("out")));
    arguments.insert(arguments.begin(), {"--port", std::to_string(daemon.port())});
    EXPECT_EQ(ruvoctl_.run(arguments), 143) << err();
    EXPECT_TRUE(has(err(), "\nruvoctl: the lock was granted while the wait for it ended, and "
                           "stays: handle 7 could not be unlocked: "))
        << err();
    EXPECT_FALSE(exists(file("out")));
}

TEST_F(RuvoctlLock, DoesNotBeginTheCommandWhenItIsAskedToEndBefore) {
    for (const bool withCommand : {true, false}) {
        RuvoctlRun ruvoctl;
        ruvoctl.requests.add({.signal = 2, .reachedOthers = true});
        ScriptedDaemon daemon([](ScriptedPeer& peer) {
            peer.expect("RUVO\n");
            peer.send("+\r\n" + i32(5));  // there before it is looked for
            peer.expect(u16(1) + lockRequest("a", 0));
            peer.serve(unlockRequest(5), i32(0));
            expectNothingMore(peer);
        });
        Arguments arguments = {"lock", "a"};
        if (withCommand) arguments = locking({}, writingTheHandle(file("out")));
        arguments.insert(arguments.begin(), {"--port", std::to_string(daemon.port())});
        EXPECT_EQ(ruvoctl.run(arguments), 130) << ruvoctl.err.text();
        EXPECT_FALSE(exists(file("out")));
        EXPECT_EQ(ruvoctl.out.text(), "");
    }
}

TEST_F(RuvoctlLock, DoesNotBeginTheCommandWhenItIsAskedToEndInTheLastMoment) {
    ruvoctl_.settle = [&](int count) {
        if (count == 2) ruvoctl_.requests.add({.signal = 2, .reachedOthers = true});
    };
    EXPECT_EQ(run(grantAndTakeBack("a", 5), locking({}, writingTheHandle(file("out")))), 130);
    EXPECT_FALSE(exists(file("out")));
    EXPECT_EQ(err(), "");
}

TEST_F(RuvoctlLock, HandsOnWhatComesWhileTheCommandIsBeingStarted) {
    ruvoctl_.settle = [&](int count) {
        // From the terminal, but perhaps before there was the command.
        if (count == 3) ruvoctl_.requests.add({.signal = 15, .reachedOthers = true});
    };
    EXPECT_EQ(run(grantAndTakeBack("a", 5), locking({}, until(file("begun"), file("go"), 3))), 143);
    EXPECT_EQ(err(), "");
}

TEST_F(RuvoctlLock, GivesTheLockBackWhenItIsAskedToEndBeforeItTellsTheHandle) {
    ruvoctl_.settle = [&](int count) {
        if (count == 1) ruvoctl_.requests.add({.signal = 15});
    };
    EXPECT_EQ(run(grantAndTakeBack("a", 5), {"lock", "a"}), 143);
    EXPECT_EQ(out(), "");
    EXPECT_EQ(err(), "");
}

TEST_F(RuvoctlLock, DoesNotTakeWhatItCouldNotGiveBack) {
    ruvoctl_.cannotCatch = true;
    const Script refuse = [](ScriptedPeer& peer) {
        peer.open();
        expectNothingMore(peer);
    };
    EXPECT_EQ(run(refuse, locking({}, writingTheHandle(file("out")))), 1);
    EXPECT_EQ(err(), "ruvoctl: no signals\n");
    EXPECT_FALSE(exists(file("out")));
}

TEST_F(RuvoctlLock, EndsSoonWhenItIsAskedToWhileTheDaemonDoesNotAnswer) {
    const Script script = [&](ScriptedPeer& peer) {
        peer.open();
        peer.serve(lockRequest("a", 0), i32(5));
        peer.expect(u16(1) + unlockRequest(5));
        ruvoctl_.requests.add({.signal = 15});
        peer.awaitClose();
    };
    EXPECT_EQ(run(script, locking({"--timeout", "600"}, exitingWith(7))), 7);
    EXPECT_TRUE(has(err(), "the command ended with status 7, but the lock of \"a\" could not be "
                           "given back: the daemon at tcp:127.0.0.1:"))
        << err();
}

TEST_F(RuvoctlLock, UnlocksInTimeWhenTheSystemIsAboutToEndIt) {
    const Script script = [&](ScriptedPeer& peer) {
        peer.open();
        peer.serve(lockRequest("a", 0), i32(5));
        EXPECT_TRUE(waitUntil([&] { return exists(file("begun")) && ruvoctl_.idleLooks >= 2; }));
        // It has 2.1 s, of which 2 are for unlocking.
        ruvoctl_.requests.add({.signal = 1, .reachedOthers = true, .graceMs = 2100});
        peer.serve(unlockRequest(5), i32(0));
        create("go");
        expectNothingMore(peer);
    };
    EXPECT_EQ(run(script, locking({}, until(file("begun"), file("go"), 3))), 129) << err();
    EXPECT_TRUE(waitUntil([&] { return !exists(file("begun")); }));  // the command's end
}

TEST_F(RuvoctlLock, TellsThatTheDaemonHasGoneAndKeepsTheStatus) {
    const Script script = [&](ScriptedPeer& peer) {
        peer.open();
        peer.serve(lockRequest("a", 0), i32(5));
        EXPECT_TRUE(waitUntil([&] { return exists(file("begun")); }));
        peer.close();
        create("go");
    };
    // A second conversation would fail the test: nobody serves it.
    EXPECT_EQ(run(script, locking({"--timeout", "5"}, until(file("begun"), file("go"), 3))), 3);
    EXPECT_TRUE(has(err(), "ruvoctl: the command ended with status 3, but the lock of \"a\" could "
                           "not be given back: the daemon at tcp:127.0.0.1:"))
        << err();
    EXPECT_TRUE(has(err(), " is gone. If it has stopped, its locks are gone too; if only the "
                           "connection was lost, 'ruvoctl unlock 5' gives this one back\n"))
        << err();
}

TEST_F(RuvoctlLock, TellsThatTheDaemonDoesNotAnswerAndKeepsTheStatus) {
    const Script steps = [](ScriptedPeer& peer) {
        peer.open();
        peer.serve(lockRequest("a", 0), i32(5));
        peer.expect(u16(1) + unlockRequest(5));
    };
    const int status = runIntoSilence(steps, [&](const Script& script, const std::string& seconds) {
        return run(script, locking({"--timeout", seconds}, exitingWith(0)));
    });
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(has(err(), "ruvoctl: the command ended with status 0, but the lock of \"a\" could "
                           "not be given back: the daemon at tcp:127.0.0.1:"))
        << err();
    EXPECT_TRUE(has(err(), " does not answer. It has been asked, and may do it yet. Unless it has "
                           "been restarted since, 'ruvoctl unlock 5' asks once more; after a "
                           "restart that may be somebody else's lock\n"))
        << err();
}

TEST_F(RuvoctlLock, TellsASilentDaemonFromALockThatIsHeld) {
    const Script steps = [](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(1) + lockRequest("a", 0));
    };
    const int status = runIntoSilence(steps, [&](const Script& script, const std::string& seconds) {
        return run(script, {"--timeout", seconds, "lock", "a"});
    });
    EXPECT_EQ(status, 3);
    EXPECT_TRUE(has(err(), "does not answer")) << err();
}

TEST_F(RuvoctlLock, GivesSignsOfLifeOverUdpWhileTheCommandRuns) {
    ruvoctl_.signOfLife = std::chrono::milliseconds(1);
    const Script script = [&](ScriptedPeer& peer) {
        peer.open();
        peer.serve(lockRequest("a", 0), i32(5));
        const std::string sign = u16(1) + u16(0);
        for (int i = 0; i < 3; ++i) peer.expect(sign);
        create("go");
        const std::string unlock = u16(1) + unlockRequest(5);
        while (peer.read(4) == sign) {
        }
        peer.expect(unlock.substr(4));
        peer.send(i32(0));
        peer.awaitClose();
    };
    EXPECT_EQ(run(script, locking({}, until(file("begun"), file("go"), 3)), Transport::Udp), 3)
        << err();
    EXPECT_EQ(err(), "");
}

TEST_F(RuvoctlLock, Unlocks) {
    const auto taking = [](std::int64_t handle) -> Script {
        return [=](ScriptedPeer& peer) {
            peer.open();
            peer.serve(unlockRequest(handle), i32(0));
            expectNothingMore(peer);
        };
    };
    EXPECT_EQ(run(taking(17), {"unlock", "17"}), 0) << err();
    EXPECT_EQ(run(taking(-1), {"unlock", "-1"}), 0) << err();
    EXPECT_EQ(run(taking(2147483647), {"unlock", "2147483647", "--json"}), 0) << err();
    EXPECT_EQ(out(),
              "lock 17: unlocked\nlock -1: unlocked\n{\"handle\":2147483647,\"unlocked\":true}\n");
}

TEST_F(RuvoctlLock, RefusesBadUsage) {
    const std::vector<Arguments> bad = {
        {"lock"},
        {"lock", ""},
        {"lock", "", "--", "x"},
        {"lock", "--"},
        {"lock", "a", "--"},
        {"lock", "--", "a", "--"},
        {"lock", "a", "--", ""},
        {"lock", "a", "x"},
        {"lock", "a", "x", "--json"},
        {"lock", "a", "x", "--", "y"},
        {"lock", "a", "x", "y", "--"},
        {"lock", "--", "a", "x"},
        {"lock", "--", "a", "--", "x"},
        {"lock", "--", "lock", "x"},
        {"lock", "a", "--wait"},
        {"lock", "a", "--wait", "--", "x"},
        {"lock", "a", "--wait", "-1"},
        {"lock", "a", "--wait=-1"},
        {"lock", "a", "--wait", "2147483648"},
        {"lock", "a", "--wait", "1.5"},
        {"lock", "a", "--wait", "5s"},
        {"lock", "a", "--wait", ""},
        {"lock", "a", "--wait", "Forever"},
        {"lock", "a", "--unknown", "--", "x"},
        {"unlock"},
        {"unlock", ""},
        {"unlock", "x"},
        {"unlock", "1", "2"},
        {"unlock", "2147483648"},
        {"unlock", "0x1"},
    };
    for (const Arguments& arguments : bad) {
        RuvoctlRun ruvoctl;
        std::string line;
        for (const std::string& argument : arguments) line += argument + " ";
        EXPECT_EQ(ruvoctl.run(arguments), 2) << line;
        EXPECT_EQ(ruvoctl.err.text().rfind("ruvoctl: ", 0), 0U) << line << ruvoctl.err.text();
        EXPECT_EQ(ruvoctl.out.text(), "") << line;
    }
    RuvoctlRun ruvoctl;
    EXPECT_EQ(ruvoctl.run({"lock", "a", "--wait", "5s"}), 2);
    EXPECT_EQ(ruvoctl.err.text(),
              "ruvoctl: --wait, where it is not \"forever\", takes a whole number, 0 to "
              "2147483647, not \"5s\"\nTry 'ruvoctl --help'.\n");
}

TEST_F(RuvoctlLock, ExplainsItself) {
    EXPECT_EQ(ruvoctl_.run({"lock", "--help"}), 0);
    for (const char* part : {"--wait MS|forever", "RUVO_LOCK_HANDLE", "75", "126", "127"}) {
        EXPECT_TRUE(has(out(), part)) << part << out();
    }
}
