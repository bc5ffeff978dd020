#include "runtime/support/VornTimerService.h"

#include "runtime/support/VornIdleThreads.h"
#include "runtime/platform/NativeThread.h"
#include "runtime/support/VornLogging.h"
#include "runtime/support/VornThreadName.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace VornSupport {
namespace {

constexpr auto kWorkerIdle = std::chrono::seconds(10);
// How long a receiver waits for a busy worker before another one is started.
constexpr auto kPatience = std::chrono::milliseconds(2);
// Up to here workers are started without patience.
constexpr std::size_t kEagerWorkers = 4;
// How long receivers wait at least when the system had no thread for one.
constexpr auto kNoThreadDelay = std::chrono::milliseconds(100);
// Likewise when there was no memory.
constexpr auto kNoMemoryDelay = std::chrono::milliseconds(100);

}  // namespace

struct VornTimerService::Worker {
    StatePtr work;
    bool dismissed = false;
    VornCondition given;
};

VornTimerService& VornTimerService::getInstance() {
    static VornTimerService* const instance = new VornTimerService;
    return *instance;
}

void VornTimerService::arm(const StatePtr& state, TimerClock::duration delay,
                           TimerClock::duration period, bool oneShot) {
    VornMutexLock lock(mutex_);
    state->started = true;
    state->delay = delay;
    state->period = period;
    state->oneShot = oneShot;
    startLocked(state);
}

void VornTimerService::rearm(const StatePtr& state) {
    VornMutexLock lock(mutex_);
    if (state->started) startLocked(state);
}

void VornTimerService::startLocked(const StatePtr& state) {
    disarmLocked(*state);
    if (state->stopping == 0) insertLocked(state, TimerClock::now() + state->delay);
}

void VornTimerService::stop(const StatePtr& state) {
    VornMutexLock lock(mutex_);
    disarmLocked(*state);
    if (state->runner == std::this_thread::get_id()) return;
    ++state->stopping;
    while (state->phase == VornTimer::State::Phase::Running) state->ended.wait(mutex_);
    --state->stopping;
}

bool VornTimerService::isOneShot(const VornTimer::State& state) {
    VornMutexLock lock(mutex_);
    return state.oneShot;
}

bool VornTimerService::isArmed(const VornTimer::State& state) {
    VornMutexLock lock(mutex_);
    return state.armed;
}

std::uint64_t VornTimerService::additions() {
    VornMutexLock lock(mutex_);
    return additions_;
}

int VornTimerService::armedCount() {
    VornMutexLock lock(mutex_);
    return static_cast<int>(armed_.size());
}

void VornTimerService::insertLocked(const StatePtr& state, TimerClock::time_point due) {
    if (!dispatching_) {
        const auto error = VornPlatform::startThread(
            {.name = "VornTimers", .stackBytes = VornThread::kClientStack}, &enterDispatcher, this);
        dispatching_ = !error;
        if (error) VORN_LOG(0, "VornTimer::start: no thread for the timers: " << error);
    }
    state->place = armed_.emplace(due, state);
    state->armed = true;
    if (due < sleepsUntil_) earlier_.notifyOne();
}

// Also withdraws what came due and has not been begun.
void VornTimerService::disarmLocked(VornTimer::State& state) {
    state.pending = false;
    if (state.phase == VornTimer::State::Phase::Queued) state.phase = VornTimer::State::Phase::Idle;
    if (!state.armed) return;
    state.armed = false;
    armed_.erase(state.place);
}

// Takes the earliest timer, which is due, out of the order and sees that its
// receiver runs. A periodic one is put back first.
void VornTimerService::fireLocked(TimerClock::time_point now) {
    using Phase = VornTimer::State::Phase;
    const StatePtr state = armed_.begin()->second;
    if (state->phase == Phase::Running) state->pending = true;
    // First, as it may need memory: a timer for which there is none stays due.
    if (state->phase == Phase::Idle) giveToWorkerLocked(state, now);

    auto place = armed_.extract(armed_.begin());
    state->armed = !state->oneShot;
    if (state->oneShot) return;
    place.key() = nextOnRaster(place.key(), now, state->period);
    state->place = armed_.insert(std::move(place));
}

void VornTimerService::giveToWorkerLocked(const StatePtr& state, TimerClock::time_point now) {
    if (!idle_.empty()) {
        Worker* const worker = idle_.back();
        idle_.pop_back();
        worker->work = state;
        worker->given.notifyOne();
    } else {
        ready_.push_back(state);
        if (ready_.size() == 1) {
            nextLook_ = workers_ < kEagerWorkers ? now : now + kPatience;
            progress_ = 0;
        }
    }
    state->phase = VornTimer::State::Phase::Queued;
}

// Receivers for which no worker is on its way.
std::size_t VornTimerService::unservedLocked() const {
    return ready_.size() - std::min(ready_.size(), starting_);
}

// Counts the workers to be started now as started and returns their number.
std::size_t VornTimerService::addWorkersLocked(TimerClock::time_point now) {
    if (unservedLocked() == 0 || now < nextLook_) return 0;
    // About as many as got stuck: with quick receivers among those that pause, each new
    // worker takes some of them before it is.
    std::size_t count = workers_ > progress_ ? workers_ - progress_ : 1;
    if (workers_ < kEagerWorkers) count = kEagerWorkers - workers_;
    count = std::min(count, unservedLocked());
    idle_.reserve(workers_ + count);  // so that a worker needs no memory to wait
    nextLook_ = now + kPatience;
    progress_ = 0;
    workers_ += count;
    starting_ += count;
    ++additions_;
    return count;
}

void VornTimerService::startWorkers(std::size_t count) {
    for (; count > 0; --count) {
        const auto error = VornPlatform::startThread(
            {.name = "VornTimerWork", .stackBytes = VornThread::kClientStack}, &enterWorker, this);
        bool isNews = true;
        {
            VornMutexLock lock(mutex_);
            isNews = !std::exchange(refused_, static_cast<bool>(error));
            if (!error) continue;
            workers_ -= count;
            starting_ -= count;
            nextLook_ = TimerClock::now() + kNoThreadDelay;
        }
        if (!isNews) return;
        VORN_LOG(2, "VornTimer::start: no thread for a receiver, trying again: " << error);
        return;
    }
}

// Nothing but memory can be wanting.
void VornTimerService::enterDispatcher(void* service) {
    setThreadName("VornTimers");
    for (;;) {
        try {
            static_cast<VornTimerService*>(service)->dispatch();
        } catch (const std::exception& e) {
            VORN_LOG(2, "VornTimers: trying again: " << e.what());
        }
        std::this_thread::sleep_for(kNoMemoryDelay);
    }
}

void VornTimerService::dispatch() {
    VornMutexLock lock(mutex_);
    for (;;) {
        const auto now = TimerClock::now();
        while (!armed_.empty() && armed_.begin()->first <= now) fireLocked(now);
        if (const std::size_t count = addWorkersLocked(now); count > 0) {
            lock.unlock();
            startWorkers(count);
            lock.lock();
        } else {
            waitForWorkLocked();
        }
    }
}

void VornTimerService::waitForWorkLocked() {
    auto wake = TimerClock::time_point::max();
    if (!armed_.empty()) wake = armed_.begin()->first;
    if (unservedLocked() > 0) wake = std::min(wake, nextLook_);
    sleepsUntil_ = wake;
    if (wake == TimerClock::time_point::max()) {
        earlier_.wait(mutex_);
    } else {
        earlier_.waitUntil(mutex_, wake);
    }
    sleepsUntil_ = TimerClock::time_point::min();
}

void VornTimerService::enterWorker(void* service) {
    setThreadName("VornTimerWork");
    static_cast<VornTimerService*>(service)->work();  // throws nothing: it needs no memory
}

void VornTimerService::work() noexcept {
    Worker self;
    VornMutexLock lock(mutex_);
    --starting_;
    for (bool isNew = true;; isNew = false) {
        const StatePtr state = nextReceiverLocked(self, isNew);
        if (!state) break;
        lock.unlock();
        runReceiver(state);
        lock.lock();
    }
    --workers_;
}

// Null when the worker is no longer needed. One that was dismissed looks once more: what
// came due since then found no worker, and there may be no thread for another.
VornTimerService::StatePtr VornTimerService::nextReceiverLocked(Worker& worker, bool isNew) {
    while (ready_.empty()) {
        if (worker.dismissed) return nullptr;
        idle_.push_back(&worker);
        awaitWorkLocked(worker);
        if (worker.work) return std::exchange(worker.work, nullptr);
    }
    StatePtr state = std::move(ready_.front());
    ready_.pop_front();
    if (!isNew) ++progress_;  // what a new one takes says nothing of the others
    return state;
}

// Until the worker is given work or dismissed, or nothing has come for long, which
// dismisses it.
void VornTimerService::awaitWorkLocked(Worker& worker) {
    const auto deadline = TimerClock::now() + kWorkerIdle;
    while (!worker.work && !worker.dismissed) {
        if (worker.given.waitUntil(mutex_, deadline) || worker.work || worker.dismissed) continue;
        idle_.erase(std::find(idle_.begin(), idle_.end(), &worker));
        worker.dismissed = true;
    }
}

void VornTimerService::endIdle() noexcept {
    VornMutexLock lock(mutex_);
    for (Worker* const worker : idle_) {
        worker->dismissed = true;
        worker->given.notifyOne();
    }
    idle_.clear();
}

void endIdleTimerThreads() noexcept { VornTimerService::getInstance().endIdle(); }

// Between the calls of a receiver and after the last one the timer's owner may
// be gone; only the shared state is safe to touch then.
void VornTimerService::runReceiver(const StatePtr& state) {
    VornMutexLock lock(mutex_);
    if (state->phase != VornTimer::State::Phase::Queued) return;
    state->phase = VornTimer::State::Phase::Running;
    state->runner = std::this_thread::get_id();
    do {
        state->pending = false;
        lock.unlock();
        try {
            state->owner.timerFired();
        } catch (const std::exception& e) {
            VORN_LOG(2, "VornTimer::timerFired: exception: " << e.what());
        } catch (...) {
            VORN_LOG(2, "VornTimer::timerFired: unknown exception");
        }
        lock.lock();
    } while (state->pending);
    state->phase = VornTimer::State::Phase::Idle;
    state->runner = {};
    state->ended.notifyAll();
}

}  // namespace VornSupport
