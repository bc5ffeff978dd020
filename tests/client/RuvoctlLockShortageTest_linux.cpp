// Memory that runs out at each moment after which a lock might be left behind.

#include "client/ruvoctl/EndRequests.h"
#include "client/ruvoctl/Ruvoctl.h"
#include "tests/client/ScriptedDaemon.h"
#include "tests/support/FailingMemory.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using namespace ClientTest;

namespace {

constexpr int kMostAllocations = 2000;

struct Outcome {
    int status = -1;
    bool failed = false;  // an allocation did
    bool granted = false;
    bool unlocked = false;
    std::string output;
    std::string errors;
};

// One that tells what it was asked; a client may end at any moment.
ScriptedDaemon::Script recording(Outcome& outcome) {
    return [&outcome](ScriptedPeer& peer) {
        const std::string lock =
            u16(1) + engineRequest("Arbiter", "RUVO_RA_LOCK", str("a") + i32(0));
        const std::string unlock = u16(1) + engineRequest("Arbiter", "RUVO_RA_UNLOCK", i32(5));
        peer.open();
        try {
            if (peer.read(lock.size()) != lock) return;
            outcome.granted = true;
            peer.send(i32(5));
            outcome.unlocked = peer.read(unlock.size()) == unlock;
            peer.send(i32(0));
        } catch (const std::runtime_error&) {
            return;  // it has gone
        }
        peer.awaitClose();
    };
}

// Of all allocations from the moment on when there may be something to undo the
// n-th fails.
Outcome runWithFailure(int n, const std::vector<std::string>& words) {
    Outcome outcome;
    std::ostringstream out;
    std::ostringstream err;
    Ruvoctl::EndRequests requests;
    {
        ScriptedDaemon daemon(recording(outcome));
        std::vector<std::string> arguments = {"--port", std::to_string(daemon.port())};
        arguments.insert(arguments.end(), words.begin(), words.end());
        Ruvoctl::Surroundings surroundings{
            out, err, [](const char*) { return std::optional<std::string>(); },
            [n] { FailingMemory::begin(n); }, [&] { return requests.any(); }};
        surroundings.nextRequest = [&] { return requests.next(); };
        surroundings.settleRequests = [] {};
        outcome.status = Ruvoctl::run(arguments, surroundings);
        outcome.failed = FailingMemory::end();
    }
    outcome.output = out.str();
    outcome.errors = err.str();
    return outcome;
}

void expectNothingLeft(const std::vector<std::string>& words) {
    for (int n = 0; n < kMostAllocations; ++n) {
        const Outcome outcome = runWithFailure(n, words);
        const bool isKnown = outcome.output == "5\n";
        EXPECT_TRUE(!outcome.granted || outcome.unlocked != isKnown)
            << n << ": status " << outcome.status << ", " << outcome.errors;
        if (!outcome.failed) {
            EXPECT_EQ(outcome.status, 0);
            EXPECT_GT(n, 0);
            return;
        }
    }
    ADD_FAILURE() << "it never ran without a failure";
}

}  // namespace

TEST(RuvoctlLockShortage, LeavesNoLockBehindACommand) {
    expectNothingLeft({"lock", "a", "--", "true", "a word that takes some memory of its own"});
}

TEST(RuvoctlLockShortage, LeavesNoLockWhoseHandleNobodyWasTold) {
    expectNothingLeft({"lock", "a"});
}
