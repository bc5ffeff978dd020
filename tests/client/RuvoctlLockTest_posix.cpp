// What can only be said of commands in terms of POSIX: their words and signals.

#include "tests/client/RuvoctlRun.h"
#include "tests/client/ScriptedDaemon.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <signal.h>

using namespace ClientTest;
using TestSupport::exists;
using TestSupport::waitUntil;

namespace {

using Arguments = std::vector<std::string>;

std::string request(std::string_view command, const std::string& arguments) {
    return engineRequest("Arbiter", command, arguments);
}

void grantAndTakeBack(ScriptedPeer& peer) {
    peer.open();
    peer.serve(request("RUVO_RA_LOCK", str("a") + i32(0)), i32(5));
    peer.serve(request("RUVO_RA_UNLOCK", i32(5)), i32(0));
    peer.awaitClose();
}

// One run of "ruvoctl lock a -- COMMAND", in a directory of its own.
struct Locked {
    int run(const Arguments& command) {
        ScriptedDaemon daemon(grantAndTakeBack);
        Arguments arguments = {"--port", std::to_string(daemon.port()), "lock", "a", "--"};
        arguments.insert(arguments.end(), command.begin(), command.end());
        return ruvoctl.run(arguments);
    }
    std::string file(std::string_view name) const { return directory.file(name); }

    RuvoctlRun ruvoctl;
    TestSupport::TemporaryDirectory directory;
};

}  // namespace

TEST(RuvoctlLockPosix, HandsEveryWordOverAsItIs) {
    Locked locked;
    const Arguments words = {"",     "a b",    "[a,b]", "[]",   "{}",  "--",     "--json", "-x",
                             "stop", "--wait", "lock",  "\"'`", "*",   "\\",     "=",      "%x%",
                             "\n",   "-",      "[",     "]",    "[\"]", "--help", "\xff"};
    Arguments command = {"sh", "-c", "out=$1; shift; printf '%s;' \"$@\" > \"$out\"", "sh",
                         locked.file("out")};
    command.insert(command.end(), words.begin(), words.end());
    EXPECT_EQ(locked.run(command), 0) << locked.ruvoctl.err.text();
    std::string expected;
    for (const std::string& word : words) expected += word + ';';
    EXPECT_EQ(TestSupport::readFile(locked.file("out")), expected);
}

TEST(RuvoctlLockPosix, TellsOfTheSignalThatEndedTheCommand) {
    for (const int signal : {SIGKILL, SIGTERM, SIGINT}) {
        Locked locked;
        EXPECT_EQ(locked.run({"sh", "-c", "kill -" + std::to_string(signal) + " $$"}),
                  128 + signal);
    }
}

TEST(RuvoctlLockPosix, HandsRequestsOnAndWaitsForTheCommandAllTheSame) {
    Locked locked;
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        peer.serve(request("RUVO_RA_LOCK", str("a") + i32(0)), i32(5));
        EXPECT_TRUE(waitUntil(
            [&] { return exists(locked.file("begun")) && locked.ruvoctl.idleLooks >= 2; }));
        locked.ruvoctl.requests.add({.signal = SIGINT, .reachedOthers = true});
        locked.ruvoctl.requests.add({.signal = SIGTERM});
        EXPECT_TRUE(waitUntil([&] { return exists(locked.file("told")); }));
        TestSupport::writeFile(locked.file("go"), "");
        peer.serve(request("RUVO_RA_UNLOCK", i32(5)), i32(0));
        peer.awaitClose();
    });
    EXPECT_EQ(locked.ruvoctl.run(
                  {"--port", std::to_string(daemon.port()), "lock", "a", "--", "sh", "-c",
                   "cd \"$1\"; trap 'exit 9' INT; trap ': > told' TERM; : > begun; "
                   "until [ -e go ]; do sleep 0.01; done; exit 4",
                   "sh", locked.directory.text()}),
              4)
        << locked.ruvoctl.err.text();
}
