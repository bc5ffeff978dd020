#include "runtime/net/VornDeliveryGathering.h"

#include "runtime/support/VornMutex.h"

#include <algorithm>
#include <utility>

namespace VornNet {
namespace {

thread_local VornDeliveryGathering* currentGathering = nullptr;

}  // namespace

VornDeliveryGathering::VornDeliveryGathering() { currentGathering = this; }

VornDeliveryGathering::~VornDeliveryGathering() {
    flush();
    currentGathering = nullptr;
}

VornDeliveryGathering* VornDeliveryGathering::current() { return currentGathering; }

void VornDeliveryGathering::addStalled(std::shared_ptr<VornDeliveryChannel> channel) {
    if (std::find(stalled_.begin(), stalled_.end(), channel) == stalled_.end()) {
        stalled_.push_back(std::move(channel));
    }
}

void VornDeliveryGathering::settle() {
    if (stalled_.empty()) return;
    VornDeliveryChannel::waitFor(stalled_, VornDeliveryChannel::kGather);
}

void VornDeliveryGathering::flush() {
    stalled_.clear();
    if (held_.empty()) return;
    for (const auto& channel : held_) {
        VornSupport::VornMutexLock lock(channel->mutex_);
        if (channel->gatheredBy_ == this) channel->gatheredBy_ = nullptr;
    }
    VornDeliveryChannel::waitFor(held_, 0);
}

}  // namespace VornNet
