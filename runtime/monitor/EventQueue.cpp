#include "runtime/monitor/EventQueue.h"

#include "runtime/support/VornLogging.h"

#include <utility>

namespace VornMonitor {

using VornSupport::VornMutexLock;

void EventQueue::post(const VornEventData& event) {
    VornMutexLock lock(mutex_);
    if (waiting_.size() < kMaxWaiting) {
        waiting_.push_back(event);
        if (waiting_.size() == kMaxWaiting) {
            VORN_LOG(2, "VornEventMonitorManager::postEvent: "
                            << kMaxWaiting << " events wait; further ones are dropped");
        }
    }
    // Not armed anew by each event: a steady stream would put it off for ever.
    if (armed_) return;
    armed_ = true;
    start(kGatherMs, true);
}

std::vector<VornEventData> EventQueue::take() {
    VornMutexLock lock(mutex_);
    return std::exchange(waiting_, {});
}

void EventQueue::timerFired() {
    {
        VornMutexLock lock(mutex_);
        armed_ = false;
    }
    tell_();
}

}  // namespace VornMonitor
