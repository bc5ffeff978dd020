#include "runtime/net/VornDeliveryGathering.h"

#include "runtime/net/VornDeliveryPump.h"
#include "runtime/support/VornMutex.h"

#include <utility>

namespace VornNet {

using VornSupport::VornMutexLock;

namespace {

thread_local VornDeliveryGathering* currentGathering = nullptr;

}  // namespace

VornDeliveryGathering::VornDeliveryGathering() { currentGathering = this; }

VornDeliveryGathering::~VornDeliveryGathering() {
    flush();
    currentGathering = nullptr;
}

VornDeliveryGathering* VornDeliveryGathering::current() { return currentGathering; }

void VornDeliveryGathering::settle() {
    if (++settled_ % kSweep == 0) dropLeft();
    if (stalled_.empty()) return;
    forgetStalled();
    VornDeliveryChannel::waitFor(stalled_, VornDeliveryChannel::kGather);
}

// A connection ends with the last registration of its client, also when the
// events never pause.
void VornDeliveryGathering::dropLeft() {
    std::erase_if(held_, [](const auto& channel) {
        if (channel.use_count() > 1) return false;
        VornMutexLock lock(channel->mutex_);
        return channel->backlog_.unsent() == 0;
    });
}

void VornDeliveryGathering::forgetStalled() {
    for (const auto& channel : stalled_) {
        VornMutexLock lock(channel->mutex_);
        if (channel->stalledIn_ == this) channel->stalledIn_ = nullptr;
    }
}

void VornDeliveryGathering::forgetHeld() {
    for (const auto& channel : held_) {
        VornMutexLock lock(channel->mutex_);
        if (channel->gatheredBy_ == this) channel->gatheredBy_ = nullptr;
    }
}

void VornDeliveryGathering::flush() {
    settle();
    if (held_.empty()) return;
    forgetHeld();
    VornDeliveryChannel::waitFor(held_, 0);
    held_.clear();
}

void VornDeliveryGathering::handOver() {
    forgetStalled();
    stalled_.clear();
    if (held_.empty()) return;
    forgetHeld();
    VornDeliveryPump::getInstance().take(std::exchange(held_, {}));
}

}  // namespace VornNet
