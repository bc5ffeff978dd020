#pragma once

#include "client/RuvoClient.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace Ruvo {

// The locks of the monitor "Arbiter", over a borrowed conversation. A lock is on
// one resource, a path whose parts are separated by ':' or ',', and does not cover
// the resources below it. It belongs to whoever knows its handle, not to the
// conversation: it holds, also when the client has gone, until it is unlocked or
// the daemon stops.
//
// A daemon that starts anew counts its handles from 1 again. So unlock over the
// conversation that the lock came from, or over one of the same daemon's life;
// elsewhere the number may stand for the lock of somebody else.
class RUVO_API RuvoLocks {
public:
    static constexpr std::chrono::milliseconds kForever{-1};

    explicit RuvoLocks(RuvoClient& client) : client_(client) {}

    // The new lock's handle, 1 or more. Empty when somebody else held the resource
    // at the end of the wait: zero tries once, negative waits without a limit, the
    // longest wait with one is 24 days.
    //
    // Among several that wait chance decides, and the daemon begins the wait anew
    // for those who lose. It is given up when it takes longer than the wait and the
    // conversation's time-out together, or when `goesOn`, where there is one and
    // which is asked several times a second, says no: empty, and the conversation
    // is over. The same when `goesOn` throws, which is passed on. A lock that is
    // granted in that moment is undone over another conversation; an error tells
    // when one may have stayed.
    std::optional<std::int32_t> lock(std::string_view path,
                                     std::chrono::milliseconds wait = std::chrono::milliseconds(0),
                                     const std::function<bool()>& goesOn = {});
    // Also done when there is no such lock: the daemon does not tell them apart.
    void unlock(std::int32_t handle);

    static RuvoRequest lockRequest(std::string_view path, std::chrono::milliseconds wait);
    static RuvoRequest unlockRequest(std::int32_t handle);

private:
    bool awaitGrant(std::chrono::milliseconds wait, const std::function<bool()>& goesOn);
    void giveUp();

    RuvoClient& client_;
};

}  // namespace Ruvo
