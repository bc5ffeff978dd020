#pragma once

// For VornEventMonitorManager only.

#include "runtime/monitor/VornEventMonitor.h"
#include "runtime/platform/Export.h"
#include "runtime/support/VornMutex.h"
#include "runtime/support/VornTimer.h"

#include <cstddef>
#include <functional>
#include <vector>

namespace VornMonitor {

// Events that wait for processEvents(), and the timer that tells that some do.
// Any thread.
class VORN_EXPORT EventQueue : private VornSupport::VornTimer {
public:
    // What waits beyond this many events is dropped, with one level-2 line.
    static constexpr std::size_t kMaxWaiting = 10000;
    // Events that come this close together are told of once.
    static constexpr long kGatherMs = 20;

    // `tell` is called on a timer thread, no lock held.
    explicit EventQueue(std::function<void()> tell) : tell_(std::move(tell)) {}
    ~EventQueue() override { stop(); }

    void post(const VornEventData& event) VORN_EXCLUDES(mutex_);
    std::vector<VornEventData> take() VORN_EXCLUDES(mutex_);

private:
    void timerFired() override VORN_EXCLUDES(mutex_);

    const std::function<void()> tell_;
    VornSupport::VornMutex mutex_;  // also orders the timer's starts
    std::vector<VornEventData> waiting_ VORN_GUARDED_BY(mutex_);
    bool armed_ VORN_GUARDED_BY(mutex_) = false;
};

}  // namespace VornMonitor
