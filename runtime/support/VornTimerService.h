#pragma once

// For VornTimer only.

#include "runtime/support/VornMutex.h"
#include "runtime/support/VornTimer.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <thread>
#include <vector>

namespace VornSupport {

using TimerClock = std::chrono::steady_clock;

// The first point after `now` on the raster of `period` that runs through
// `due`, which has passed. A periodic timer that is served late goes on from
// here, so it does not drift.
inline TimerClock::time_point nextOnRaster(TimerClock::time_point due, TimerClock::time_point now,
                                           TimerClock::duration period) {
    return due + period * ((now - due) / period + 1);
}

// The ordered structure of all armed timers, the dispatcher that waits for the
// earliest of them and the workers that run their receivers. One instance,
// which lives as long as the process; its threads start when first needed, and
// a worker that found nothing to do for ten seconds ends.
//
// A receiver that comes due while all workers are busy waits for 2 ms, then
// workers are added: as many as there are, less one for each receiver that was
// taken after another meanwhile, but one at least. So receivers that pause cannot
// hold up others, and thousands of quick ones that come due together are served by
// a few threads.
class VornTimerService {
public:
    static VornTimerService& getInstance();

    void arm(const std::shared_ptr<VornTimer::State>& state, TimerClock::duration delay,
             TimerClock::duration period, bool oneShot) VORN_EXCLUDES(mutex_);
    void rearm(const std::shared_ptr<VornTimer::State>& state) VORN_EXCLUDES(mutex_);
    void stop(const std::shared_ptr<VornTimer::State>& state) VORN_EXCLUDES(mutex_);
    bool isOneShot(const VornTimer::State& state) VORN_EXCLUDES(mutex_);
    bool isArmed(const VornTimer::State& state) VORN_EXCLUDES(mutex_);
    int armedCount() VORN_EXCLUDES(mutex_);
    std::uint64_t additions() VORN_EXCLUDES(mutex_);
    // Workers that have nothing to do end.
    void endIdle() noexcept VORN_EXCLUDES(mutex_);

private:
    using StatePtr = std::shared_ptr<VornTimer::State>;
    struct Worker;

    void startLocked(const StatePtr& state) VORN_REQUIRES(mutex_);
    void insertLocked(const StatePtr& state, TimerClock::time_point due) VORN_REQUIRES(mutex_);
    void disarmLocked(VornTimer::State& state) VORN_REQUIRES(mutex_);
    void fireLocked(TimerClock::time_point now) VORN_REQUIRES(mutex_);
    void giveToWorkerLocked(const StatePtr& state, TimerClock::time_point now)
        VORN_REQUIRES(mutex_);
    std::size_t unservedLocked() const VORN_REQUIRES(mutex_);
    std::size_t addWorkersLocked(TimerClock::time_point now) VORN_REQUIRES(mutex_);
    void waitForWorkLocked() VORN_REQUIRES(mutex_);
    StatePtr nextReceiverLocked(Worker& worker, bool isNew) VORN_REQUIRES(mutex_);
    void awaitWorkLocked(Worker& worker) VORN_REQUIRES(mutex_);
    void startWorkers(std::size_t count) VORN_EXCLUDES(mutex_);
    void runReceiver(const StatePtr& state) VORN_EXCLUDES(mutex_);
    void dispatch();
    void work() noexcept;
    static void enterDispatcher(void* service);
    static void enterWorker(void* service);

    VornMutex mutex_;
    VornCondition earlier_;  // a timer comes due before sleepsUntil_
    // Until when the dispatcher sleeps, which a stopped timer does not change:
    // one that is armed and stopped again and again wakes nobody.
    TimerClock::time_point sleepsUntil_ VORN_GUARDED_BY(mutex_) = TimerClock::time_point::min();
    std::multimap<TimerClock::time_point, StatePtr> armed_ VORN_GUARDED_BY(mutex_);
    bool dispatching_ VORN_GUARDED_BY(mutex_) = false;

    // Came due while no worker was idle, the earliest first. What was stopped
    // meanwhile stays in here and is passed over.
    std::deque<StatePtr> ready_ VORN_GUARDED_BY(mutex_);
    std::vector<Worker*> idle_ VORN_GUARDED_BY(mutex_);     // used from the back
    std::size_t workers_ VORN_GUARDED_BY(mutex_) = 0;       // all of them
    std::size_t starting_ VORN_GUARDED_BY(mutex_) = 0;      // of these not yet at work
    bool refused_ VORN_GUARDED_BY(mutex_) = false;          // the last one that was started
    // Since the last look so many were taken by workers that had finished another.
    std::size_t progress_ VORN_GUARDED_BY(mutex_) = 0;
    std::uint64_t additions_ VORN_GUARDED_BY(mutex_) = 0;  // times that workers were added
    TimerClock::time_point nextLook_ VORN_GUARDED_BY(mutex_);  // when to look for more workers
};

// Guarded by the service's mutex.
struct VornTimer::State {
    // Queued: given to a worker or waiting for one, the receiver not yet called.
    enum class Phase { Idle, Queued, Running };

    explicit State(VornTimer& timer) : owner(timer) {}

    VornTimer& owner;  // used between arming and the end of stop() only
    std::multimap<TimerClock::time_point, std::shared_ptr<State>>::iterator place;
    bool armed = false;
    bool oneShot = true;
    bool started = false;  // delay and period hold something
    bool pending = false;  // came due while its receiver was running
    Phase phase = Phase::Idle;
    int stopping = 0;  // threads that wait in stop(); nothing is armed meanwhile
    TimerClock::duration delay{};
    TimerClock::duration period{};
    std::thread::id runner;  // the worker inside the receiver
    VornCondition ended;     // the phase is Running no more
};

}  // namespace VornSupport
