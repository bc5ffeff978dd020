#pragma once

#include "client/RuvoListener.h"
#include "client/RuvoTasks.h"
#include "client/ruvoctl/Session.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace Ruvoctl {

// Follows one task and takes the registration back at the end. Over a borrowed
// conversation, which nobody else uses meanwhile. Throws what RuvoTasks throws.
class TaskFollowing {
public:
    TaskFollowing(Session& session, Ruvo::RuvoClient& client, std::int32_t task);
    ~TaskFollowing();
    TaskFollowing(const TaskFollowing&) = delete;
    TaskFollowing& operator=(const TaskFollowing&) = delete;

    // Hands each state, and the delivery that told it, to `visit` until that
    // gives a status, which is returned. Else: kUnreachable when the daemon goes,
    // `whenInterrupted` at an interrupt, kRefused after `patience` (0: no end).
    using Visit = std::function<std::optional<int>(std::int32_t, const Ruvo::RuvoDelivery&)>;
    int run(std::chrono::milliseconds patience, int whenInterrupted, const Visit& visit);

private:
    bool isDaemonGone();
    int finish(int status, const std::string& why);

    Session& session_;
    Ruvo::RuvoClient& client_;
    const std::int32_t task_;
    Ruvo::RuvoListener listener_;
    const std::int32_t handle_;
    bool isOver_ = false;  // the task or the daemon is gone, and the registration with it
    std::chrono::steady_clock::time_point lastSign_ = std::chrono::steady_clock::now();
};

}  // namespace Ruvoctl
