#pragma once

#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace ArbiterCheck {

using Clock = std::chrono::steady_clock;
using Time = Clock::time_point;
using std::chrono::milliseconds;

constexpr Time kNever = Time::max();

// What one client saw of one request for a lock. All times are of one clock; each
// is taken before a request is sent or after an answer has been read, so that
// what happened in between is sure to lie between them.
struct Attempt {
    enum class End {
        Granted,  // told a handle
        Refused,  // told 0
        Closed    // the client closed its connection, or was killed, untold
    };

    int client = 0;
    int node = 0;
    int waitMs = 0;
    Time sent{};
    Time ended{};
    End end = End::Refused;
    std::int32_t handle = 0;
    Time unlockSent = kNever;  // of what was granted
    Time unlockAnswered = kNever;
};

// What all clients saw, and the proof that it is what a correct arbiter lets
// them see. One thread.
class LockHistory {
public:
    // A free node goes to one of those that want it within `bound`. Where the next
    // to have it is the one that waited, nobody else can have woken it, so it was
    // late, not forgotten: then kLate times as long. `begun` is when all nodes were
    // known to be free.
    static constexpr int kLate = 10;
    LockHistory(Time begun, milliseconds bound) : begun_(begun), bound_(bound) {}

    void add(const Attempt& attempt) { attempts_.push_back(attempt); }
    void add(const std::vector<Attempt>& attempts) {
        attempts_.insert(attempts_.end(), attempts.begin(), attempts.end());
    }
    // Meanwhile somebody waited who had nobody in its way: the machine was busy
    // with others. Of what is that late, something else may be somewhat later.
    void addStall(Time begin, Time end) { stalls_.push_back({begin, end}); }

    // Clients go away from this node at moments when they may just have been told:
    // it may stay locked, so only its holders and handles are looked at.
    void setWild(int node) { wild_.insert(node); }

    const std::vector<Attempt>& attempts() const { return attempts_; }

    // A line for everything that a correct arbiter would not have done: two
    // holders at one moment; a request that still waited although its node stayed
    // free; one that was refused too early, or although nobody had the lock; a
    // handle told twice or out of order; what ended before it began. Every node
    // counts for itself.
    std::vector<std::string> complaints() const;

    // The longest time from the answer to an unlock to the handle of somebody who
    // waited for it.
    double longestWakeMs() const;

private:
    using Attempts = std::vector<Attempt>;
    struct Span {
        Time begin;
        Time end;
    };

    Clock::duration stalledWithin(Time begin, Time end) const;
    void checkTimes(const Attempt& attempt, std::vector<std::string>& found) const;
    void checkHandles(std::vector<std::string>& found) const;
    void checkHolders(const Attempts& granted, std::vector<std::string>& found) const;
    void checkWakes(const Attempts& all, const Attempts& granted,
                    std::vector<std::string>& found) const;
    void checkGap(Span gap, const Attempt* next, const Attempts& all,
                  std::vector<std::string>& found) const;
    Clock::duration boundWithin(Time begin, Time end) const;
    void checkRefusals(const Attempts& all, const Attempts& granted,
                       std::vector<std::string>& found) const;

    const Time begun_;
    const milliseconds bound_;
    Attempts attempts_;
    std::vector<Span> stalls_;
    std::set<int> wild_;
};

}  // namespace ArbiterCheck
