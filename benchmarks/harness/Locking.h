#pragma once

#include "benchmarks/harness/Conversation.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace RuvoBench {

// A client of the arbiter with one path. Its requests are made beforehand. One
// thread.
class LockClient {
public:
    LockClient(std::uint16_t port, std::string_view path, std::int32_t waitMs = 0);

    // Locks and unlocks the path; throws when it was not locked.
    void pair();

    // The halves of it, and of these the halves again: asking and being told.
    void askForLock();
    std::int32_t awaitHandle();  // throws when there is none
    void askForUnlock(std::int32_t handle);
    void awaitDone();
    // As askForLock(), and returns when the daemon is about to let it wait.
    void beginToWait();

    int socket() const { return conversation_.socket(); }

private:
    std::int32_t awaitNumber();

    Conversation conversation_;
    const std::string lock_;
    const std::string wait_;
    std::string unlock_;
};

// Pairs of one client for the time of `slice`: their p50 in microseconds.
double pairP50(LockClient& client, std::chrono::milliseconds slice);
// Pairs a second of all of them together, a thread each.
double pairRate(std::deque<LockClient>& clients, std::chrono::milliseconds slice);

}  // namespace RuvoBench
