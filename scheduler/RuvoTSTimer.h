#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornCollaborator.h"
#include "runtime/support/VornObjectBase.h"
#include "runtime/support/VornSmartPointer.h"
#include "runtime/support/VornTimer.h"
#include "scheduler/RuvoTSTimeKeeper.h"

#include <cstdint>

namespace RuvoService {

// A task's timer: when its time has come it tells its dependents
// (RuvoTSTimerNotification), once, on a timer thread, and then sets its event.
// It is a member of its owner, a counted object, and holds a reference to it
// from the start until the last dependent has been told: an owner that waits is
// not destroyed. disarm() lets go of it.
//
// Any thread.
class VORN_EXPORT RuvoTSTimer : public VornSupport::VornTimer,
                                public VornSupport::VornCollaborator {
public:
    // `owner` need not be counted yet.
    explicit RuvoTSTimer(VornSupport::VornObjectBase& owner) : owner_(owner) {}
    ~RuvoTSTimer() override;

    // Arms the timer for the moment at which the wall clock shows `seconds` full
    // seconds more than at `wallMs`, the reading from which they were counted
    // (RuvoTSTimeKeeper says what happens when the clock is set). What has passed
    // fires at once.
    void startToTime(std::int32_t seconds, std::int64_t wallMs);
    // Arms the timer for when `seconds` have passed, whatever the wall clock
    // does.
    void startToWait(std::int32_t seconds);
    // Arms the timer for a second from now, as soon as there is memory for that;
    // not any more when the service stops.
    void startToRetry() noexcept;
    // Has a wait of startToWait() or startToRetry() end now; false when there is none.
    bool hasten() noexcept;
    // Withdraws a time that has not come yet. Does not wait for a dependent
    // that is being told.
    void disarm();

protected:
    void timerFired() override;

private:
    friend class RuvoTSTimeKeeper;

    VornSupport::VornObjectBase& owner_;
    // The keeper's, under its lock.
    RuvoTSTimeKeeper::Phase phase_ = RuvoTSTimeKeeper::Phase::Idle;
    RuvoTSTimeKeeper::Order::iterator place_;
    VornSupport::VornSmartPointer<VornSupport::VornObjectBase> held_;
};

}  // namespace RuvoService
