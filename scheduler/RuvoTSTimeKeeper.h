#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornMutex.h"
#include "runtime/support/VornObjectBase.h"
#include "runtime/support/VornSmartPointer.h"
#include "runtime/support/VornTimer.h"

#include <cstddef>
#include <cstdint>
#include <map>

namespace RuvoService {

class RuvoTSTimer;

// Says when each RuvoTSTimer's time has come. One a process.
//
// Tasks are due at times of the wall clock, which may be set and which goes on
// while the machine, and with it the clock that waits are measured by, sleeps.
// So a wait is never trusted for long. The waiting timers stand in the order of
// their times, and one timer of the runtime serves all of them: it wakes when
// the first of them ought to be due, but after kLookMs at the latest, and what
// is due by the wall clock *then* is fired. From this follows:
//   - a clock set forwards, or a machine that slept: what has come due meanwhile
//     is fired kLookMs later at most, once;
//   - a clock set backwards: who wakes too early waits on; a timer that was
//     fired is no longer in here, so its time is not served a second time;
//   - a hundred thousand waiting timers cost one wake-up in kLookMs, none cost
//     nothing.
// Waits that are given as a duration (RuvoTSTimer::startToWait) are measured by
// the elapsed time and do not care for the wall clock.
//
// Any thread. Its lock is taken after a task's lock and before the runtime's
// timer service's; nothing is called out to under it.
class VORN_EXPORT RuvoTSTimeKeeper {
public:
    static constexpr long kLookMs = 5000;

    static RuvoTSTimeKeeper& getInstance();

    // Fires what is due. Called by the wake-ups; by others, when they know that
    // the clock has changed. False when memory or threads were short: what could
    // not be fired waits for the next look.
    bool look() VORN_EXCLUDES(mutex_);
    // Timers that wait.
    std::size_t waiting() const VORN_EXCLUDES(mutex_);

    // Disarms every timer.
    void forgetAllForTest() VORN_EXCLUDES(mutex_);

private:
    friend class RuvoTSTimer;
    using Order = std::multimap<std::int64_t, RuvoTSTimer*>;
    enum class Phase : unsigned char { Idle, ByWall, ByElapsed, Fired };
    using Owner = VornSupport::VornSmartPointer<VornSupport::VornObjectBase>;

    // Wakes the keeper; never destroyed.
    class Wake : public VornSupport::VornTimer {
    protected:
        void timerFired() override;
    };

    RuvoTSTimeKeeper() = default;

    // For RuvoTSTimer. `due` in milliseconds of the one or the other clock. An
    // exception leaves the timer disarmed or as it was.
    void arm(RuvoTSTimer& timer, Owner owner, bool byWallClock, std::int64_t due)
        VORN_EXCLUDES(mutex_);
    void disarm(RuvoTSTimer& timer) VORN_EXCLUDES(mutex_);
    // Makes one that waits for a time to pass due; leaves others as they are.
    bool hasten(RuvoTSTimer& timer) noexcept VORN_EXCLUDES(mutex_);
    // The owner of a timer that was fired; null when it was disarmed since.
    Owner claim(RuvoTSTimer& timer) VORN_EXCLUDES(mutex_);

    void takeOutLocked(RuvoTSTimer& timer) VORN_REQUIRES(mutex_);
    void fireLocked(Order& order, std::int64_t now) VORN_REQUIRES(mutex_);
    void planLocked() VORN_REQUIRES(mutex_);

    mutable VornSupport::VornMutex mutex_;
    Order byWall_ VORN_GUARDED_BY(mutex_);
    Order byElapsed_ VORN_GUARDED_BY(mutex_);
    bool planned_ VORN_GUARDED_BY(mutex_) = false;  // a wake-up is under way
    std::int64_t wakeAt_ VORN_GUARDED_BY(mutex_) = 0;  // when: elapsed milliseconds
    Wake wake_;
};

}  // namespace RuvoService
