#pragma once

#include "client/ruvoctl/Session.h"
#include "runtime/platform/Process.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Ruvoctl {

// A lock that this run of the program asks for and holds, and the conversation for
// that: there before the first request, so that nothing that goes wrong after it
// leaves a lock behind. It is unlocked over that conversation and no other: one
// that has ended means that the daemon has, and with it the lock; in the next
// daemon's life the handle may be that of somebody else's lock.
class HeldLock {
public:
    HeldLock(Session& session, Ruvo::RuvoClient&& client, std::string path)
        : session_(session), client_(std::move(client)), path_(std::move(path)) {}
    ~HeldLock() { release(); }
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;

    // Whether it was obtained, as RuvoLocks::lock() tells; asked to end it was not,
    // and the conversation is over.
    bool obtain(std::chrono::milliseconds wait);
    bool isConversationOpen() const { return client_.isOpen(); }
    std::int32_t handle() const { return handle_; }
    // From now on it is somebody else's to unlock.
    void hand() { handle_ = kNone; }
    // Unlocks; what prevents that is told on the error stream. Takes as long as the
    // conversation's time-out at most, and a second when asked to end meanwhile.
    void release() noexcept;
    // Runs a command and waits for its end: its status. What asks the program to
    // end is handed on to the command; before it has begun, it does not begin.
    int run(const std::vector<std::string>& words);

private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::int32_t kNone = 0;

    std::optional<int> start(const std::vector<std::string>& words,
                             VornPlatform::ProcessHandle& process);
    std::optional<int> awaitEnd(VornPlatform::ProcessHandle& process);
    void heed(const VornPlatform::EndRequest& request, VornPlatform::ProcessHandle& process);
    void showSignOfLife() noexcept;
    void unlock(std::int32_t handle);
    void complain(std::int32_t handle, const Ruvo::RuvoClientError& error) const;

    Session& session_;
    Ruvo::RuvoClient client_;
    const std::string path_;
    std::int32_t handle_ = kNone;
    std::optional<int> commandStatus_;
    std::optional<Clock::time_point> end_;  // before the system ends the program
    Clock::time_point lastSign_ = Clock::now();
};

}  // namespace Ruvoctl
