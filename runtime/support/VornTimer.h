#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornEvent.h"
#include "runtime/support/VornThread.h"

#include <cstdint>
#include <memory>
#include <string>

namespace VornSupport {

// A timer. All timers of the process stand in one ordered structure that one
// thread ("VornTimers") serves; a timer that comes due runs timerFired() on a
// worker thread, so a receiver that takes its time delays no other timer.
// Receivers of one timer never run at once: what comes due meanwhile is made
// up for by one further call.
//
// start, stop and reset belong to the timer's owner, who may also call them
// from inside timerFired(). A class that overrides timerFired() calls stop() in
// its own destructor.
class VORN_EXPORT VornTimer {
public:
    VornTimer();
    virtual ~VornTimer();  // stops
    VornTimer(const VornTimer&) = delete;
    VornTimer& operator=(const VornTimer&) = delete;

    // Arms the timer, in place of an earlier time. Zero and negative times fire
    // at once. Unless `oneShot`, it fires again each time the same time has
    // passed since it was due, not since it was served, so it does not drift;
    // a period under 1 ms counts as 1 ms. Times beyond 50 years count as that.
    void start(long milliseconds, bool oneShot);
    void start(long seconds, long milliseconds, bool oneShot);
    // Disarms. On return no receiver of this timer is running and none will,
    // except when called from the receiver itself. While it waits for a receiver
    // to end, a start() or reset() by that receiver arms nothing.
    void stop();
    // Starts again with the times of the last start; nothing before one.
    void reset();
    bool isOneShot() const;
    bool isArmed() const;

    // Automatic; set by the default timerFired().
    VornEvent& getEvent() { return event_; }

    // Timers armed in the whole process.
    static int armedCount();
    // How often threads for receivers were added.
    static std::uint64_t additionsForTest();

protected:
    // The time is up. On a worker thread; exceptions are caught and logged.
    virtual void timerFired();

private:
    friend class VornTimerService;
    struct State;  // survives the object while a worker is at it

    VornEvent event_;
    const std::shared_ptr<State> state_;
};

// A thread that waits for a timer and calls a hook at each of its ticks, for
// work that wants a thread of its own. The timer must outlive the thread.
class VORN_EXPORT VornEventTimerThread : public VornThread {
public:
    VornEventTimerThread(const std::string& name, VornTimer& timer);
    ~VornEventTimerThread() override;

    // Ends the loop after the tick under way; wait() tells when.
    void stop() override;

protected:
    int run() override;
    // On this thread, once a tick. False ends the loop.
    virtual bool tick();

private:
    VornTimer& timer_;
    VornEvent stopEvent_;
};

}  // namespace VornSupport
