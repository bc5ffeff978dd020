#include "runtime/net/VornDeliveryPump.h"

#include "runtime/platform/NativeThread.h"
#include "runtime/support/VornLogging.h"
#include "runtime/support/VornThread.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

namespace VornNet {

using VornSupport::VornMutexLock;

namespace {

// How long new channels wait at most while others are waited for.
constexpr std::chrono::milliseconds kLook{20};

}  // namespace

VornDeliveryPump& VornDeliveryPump::getInstance() {
    static VornDeliveryPump* const instance = new VornDeliveryPump;  // its thread may outlive us
    return *instance;
}

void VornDeliveryPump::take(std::vector<VornDeliveryChannel::Pointer> channels) {
    // Most clients take their few bytes at once.
    VornDeliveryChannel::sendRound(channels, 0, {});
    if (channels.empty()) return;
    VornMutexLock lock(mutex_);
    given_.insert(given_.end(), channels.begin(), channels.end());
    if (running_) return;
    const auto error = VornPlatform::startThread(
        {.name = "VornDeliveries", .stackBytes = VornSupport::VornThread::kClientStack}, &enter,
        this);
    running_ = !error;
    if (running_) return;
    given_.clear();
    lock.unlock();
    VORN_LOG(3, "VornDeliveryPump::take: no thread: " << error);
    VornDeliveryChannel::waitFor(channels, 0);
}

void VornDeliveryPump::enter(void* self) { static_cast<VornDeliveryPump*>(self)->sendAll(); }

void VornDeliveryPump::sendAll() {
    std::vector<VornDeliveryChannel::Pointer> mine;
    for (;;) {
        try {
            if (!takeGiven(mine)) return;
            VornDeliveryChannel::sendRound(mine, 0, kLook);
        } catch (const std::exception& e) {
            VORN_LOG(2, "VornDeliveryPump::sendAll: exception: " << e.what());
            mine.clear();  // the next delivery to them sends what they hold
        }
    }
}

bool VornDeliveryPump::takeGiven(std::vector<VornDeliveryChannel::Pointer>& mine) {
    VornMutexLock lock(mutex_);
    if (!given_.empty()) {
        // Each one once: thousands may have been given several times.
        mine.insert(mine.end(), given_.begin(), given_.end());
        given_.clear();
        std::sort(mine.begin(), mine.end());
        mine.erase(std::unique(mine.begin(), mine.end()), mine.end());
    }
    running_ = !mine.empty();
    return running_;
}

}  // namespace VornNet
