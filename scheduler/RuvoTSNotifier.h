#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornMutex.h"

#include <cstdint>

namespace RuvoService {

class RuvoNNEngine;

// The scheduler's way to the notification engine's queue. One a process; the
// scheduler engine connects it. Any thread; never waits for a delivery.
class VORN_EXPORT RuvoTSNotifier {
public:
    static RuvoTSNotifier& getInstance();

    // `engine` outlives the connection; null ends it: on return nobody is on the
    // way into the engine that was connected.
    void connect(RuvoNNEngine* engine) VORN_EXCLUDES(mutex_);
    // Raises "VornTSEvent:" and the handle, the handle as message and the state,
    // in the machine's byte order, as data. Nothing while nothing is connected or
    // nobody hears of events.
    void raise(std::int32_t handle, std::int32_t state) VORN_EXCLUDES(mutex_);

private:
    RuvoTSNotifier() = default;

    VornSupport::VornSharedMutex mutex_;
    RuvoNNEngine* engine_ VORN_GUARDED_BY(mutex_) = nullptr;
};

}  // namespace RuvoService
