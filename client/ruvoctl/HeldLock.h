#pragma once

#include "client/ruvoctl/Session.h"
#include "runtime/platform/Process.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Ruvoctl {

// A lock that this run of the program holds, and the conversation that it came
// from. It is unlocked over that one and no other: a conversation that has ended
// means that the daemon has, and with it the lock; in the next daemon's life the
// handle may be that of somebody else's lock.
class HeldLock {
public:
    HeldLock(Session& session, Ruvo::RuvoClient&& client, std::string path, std::int32_t handle)
        : session_(session), client_(std::move(client)), path_(std::move(path)), handle_(handle) {}
    ~HeldLock() { release(); }
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;

    std::int32_t handle() const { return handle_; }
    // From now on it is somebody else's to unlock.
    void hand() { isHeld_ = false; }
    // Unlocks; what prevents that is told on the error stream.
    void release() noexcept;
    // Runs a command and waits for its end: its status. What asks the program to
    // end is handed on to the command.
    int run(const std::vector<std::string>& words);

private:
    using Clock = std::chrono::steady_clock;

    void start(const std::vector<std::string>& words, VornPlatform::ProcessHandle& process);
    int awaitEnd(VornPlatform::ProcessHandle& process);
    void showSignOfLife();

    Session& session_;
    Ruvo::RuvoClient client_;
    const std::string path_;
    const std::int32_t handle_;
    bool isHeld_ = true;
    bool isHurried_ = false;  // the system is about to end the program
    Clock::time_point lastSign_ = Clock::now();
};

}  // namespace Ruvoctl
