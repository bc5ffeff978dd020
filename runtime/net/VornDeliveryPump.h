#pragma once

#include "runtime/net/VornDeliveryChannel.h"
#include "runtime/support/VornMutex.h"

#include <vector>

namespace VornNet {

// Sends what channels hold back, for who must not wait for clients. One a
// process; one thread, for as long as there is something to send. Any thread.
class VornDeliveryPump {
public:
    static VornDeliveryPump& getInstance();

    // Sees that everything that the channels hold is sent, or lost with a client
    // that does not take it; in the order in which it was delivered, also when
    // the last registration of a channel goes meanwhile. Returns at once, unless
    // the system has no thread to give.
    void take(std::vector<VornDeliveryChannel::Pointer> channels) VORN_EXCLUDES(mutex_);

private:
    VornDeliveryPump() = default;
    static void enter(void* self);
    void sendAll();
    // False when there is nothing left, and the thread ends.
    bool takeGiven(std::vector<VornDeliveryChannel::Pointer>& mine) VORN_EXCLUDES(mutex_);

    VornSupport::VornMutex mutex_;
    std::vector<VornDeliveryChannel::Pointer> given_ VORN_GUARDED_BY(mutex_);
    bool running_ VORN_GUARDED_BY(mutex_) = false;
};

}  // namespace VornNet
