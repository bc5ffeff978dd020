#pragma once

#include "tests/arbiter/checker/LockHistory.h"
#include "tests/support/DaemonLauncher.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

namespace ArbiterCheck {

// The paths, by what is done to those who want them.
enum class Kind {
    Quiet,    // a few clients each, who give it back at the moment when the next
              // one asks for it and come back late: a waiter that nobody woke is not
              // woken by somebody else either
    Busy,     // everybody, all the time
    Leaving,  // as Busy; clients go away while they wait, when it is certain that
              // somebody else holds it
    Wild      // clients go away and are killed at any moment
};

struct Node {
    Kind kind;
    std::string path;
    std::mutex gate;    // who leaves holds it, and so does who has it or gives it back
    bool held = false;  // under the gate: a client knows that it has it
    int wanted = 0;     // under the gate: counts the requests, before they are sent
    std::condition_variable wantedMore;
};

// What a run has come to.
struct Totals {
    std::uint64_t pairs = 0;  // of lock and unlock
    std::uint64_t refused = 0;
    std::uint64_t left = 0;    // connections closed while they waited
    std::uint64_t killed = 0;  // processes
    std::uint64_t broken = 0;  // connections closed in a request or between two
    std::uint64_t stuck = 0;   // wild nodes that had to be unlocked for clients that went
    double longestWakeMs = 0;  // from the answer to an unlock to the next one's handle
};

// Drives clients against a daemon in rounds. After each all clients are gone,
// every node is free, and what they saw has been checked.
class LockLoad {
public:
    LockLoad(TestSupport::Daemon& daemon, int clients, milliseconds bound, unsigned seed);

    // One round; at most `pairs` pairs. What is wrong, if anything.
    std::vector<std::string> run(milliseconds duration, std::uint64_t pairs);
    const Totals& totals() const { return totals_; }

private:
    class Client;

    void leaveProcesses();
    void watch(LockHistory& history);
    void tidyUp(LockHistory& history, std::vector<std::string>& found);
    std::int32_t handlesSoFar();
    bool isOver() const { return Clock::now() >= end_ || pairsLeft_ <= 0; }

    TestSupport::Daemon& daemon_;
    const int clients_;
    const milliseconds bound_;
    std::mt19937 random_;
    std::vector<std::unique_ptr<Node>> nodes_;
    Totals totals_;
    std::vector<bool> told_;   // by handle, those of the round
    std::int32_t before_ = 0;  // the last handle of the rounds before
    Time end_{};
    std::atomic<std::int64_t> pairsLeft_{0};
    std::atomic<bool> clientsRun_{false};
};

}  // namespace ArbiterCheck
