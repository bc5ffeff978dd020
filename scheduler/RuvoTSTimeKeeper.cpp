#include "scheduler/RuvoTSTimeKeeper.h"

#include "scheduler/RuvoTSClock.h"
#include "scheduler/RuvoTSTimer.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <thread>
#include <utility>
#include <vector>

namespace RuvoService {

using VornSupport::VornMutexLock;

namespace {

constexpr std::chrono::milliseconds kShortageMs{100};

}  // namespace

RuvoTSTimeKeeper& RuvoTSTimeKeeper::getInstance() {
    static RuvoTSTimeKeeper* const instance = new RuvoTSTimeKeeper;
    return *instance;
}

std::size_t RuvoTSTimeKeeper::waiting() const {
    VornMutexLock lock(mutex_);
    return byWall_.size() + byElapsed_.size();
}

void RuvoTSTimeKeeper::arm(RuvoTSTimer& timer, Owner owner, bool byWallClock, std::int64_t due) {
    Owner before;  // released after the lock
    VornMutexLock lock(mutex_);
    // First what may fail: a timer that was armed stays so then.
    const auto place = (byWallClock ? byWall_ : byElapsed_).emplace(due, &timer);
    takeOutLocked(timer);
    before = std::exchange(timer.held_, std::move(owner));
    timer.phase_ = byWallClock ? Phase::ByWall : Phase::ByElapsed;
    timer.place_ = place;
    try {
        planLocked();
    } catch (...) {
        takeOutLocked(timer);
        owner = std::exchange(timer.held_, nullptr);
        throw;
    }
}

void RuvoTSTimeKeeper::disarm(RuvoTSTimer& timer) {
    Owner before;
    VornMutexLock lock(mutex_);
    takeOutLocked(timer);
    before = std::exchange(timer.held_, nullptr);
}

bool RuvoTSTimeKeeper::hasten(RuvoTSTimer& timer) noexcept {
    VornMutexLock lock(mutex_);
    if (timer.phase_ != Phase::ByElapsed) return false;
    auto entry = byElapsed_.extract(timer.place_);
    entry.key() = std::min(entry.key(), RuvoTSClock::current().elapsedMs());
    timer.place_ = byElapsed_.insert(std::move(entry));
    try {
        planLocked();
    } catch (const std::exception&) {
        // The wake-up that is planned comes at its old time.
    }
    return true;
}

RuvoTSTimeKeeper::Owner RuvoTSTimeKeeper::claim(RuvoTSTimer& timer) {
    VornMutexLock lock(mutex_);
    if (timer.phase_ != Phase::Fired) return nullptr;
    timer.phase_ = Phase::Idle;
    return std::exchange(timer.held_, nullptr);
}

void RuvoTSTimeKeeper::forgetAllForTest() {
    std::vector<Owner> before;  // released after the lock
    VornMutexLock lock(mutex_);
    for (Order* order : {&byWall_, &byElapsed_}) {
        for (const auto& [due, timer] : *order) {
            timer->phase_ = Phase::Idle;
            before.push_back(std::exchange(timer->held_, nullptr));
        }
        order->clear();
    }
}

void RuvoTSTimeKeeper::takeOutLocked(RuvoTSTimer& timer) {
    if (timer.phase_ == Phase::ByWall) byWall_.erase(timer.place_);
    if (timer.phase_ == Phase::ByElapsed) byElapsed_.erase(timer.place_);
    timer.phase_ = Phase::Idle;
}

void RuvoTSTimeKeeper::Wake::timerFired() {
    // Nobody else would ever look again.
    while (!getInstance().look()) std::this_thread::sleep_for(kShortageMs);
}

bool RuvoTSTimeKeeper::look() {
    const RuvoTSClock& clock = RuvoTSClock::current();
    VornMutexLock lock(mutex_);
    planned_ = false;
    try {
        fireLocked(byWall_, clock.wallMs());
        fireLocked(byElapsed_, clock.elapsedMs());
        planLocked();
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

void RuvoTSTimeKeeper::fireLocked(Order& order, std::int64_t now) {
    while (!order.empty() && order.begin()->first <= now) {
        RuvoTSTimer& timer = *order.begin()->second;
        timer.start(0, true);  // of the runtime: brings it to a timer thread
        order.erase(order.begin());
        timer.phase_ = Phase::Fired;  // before that thread asks: it needs our lock
    }
}

// Sees that the next wake-up comes in time. One that is planned for an earlier
// moment than need be is left: it looks, and plans anew.
void RuvoTSTimeKeeper::planLocked() {
    if (byWall_.empty() && byElapsed_.empty()) return;
    const RuvoTSClock& clock = RuvoTSClock::current();
    const std::int64_t elapsed = clock.elapsedMs();
    std::int64_t wait = kLookMs;
    if (!byWall_.empty()) wait = std::min(wait, byWall_.begin()->first - clock.wallMs());
    if (!byElapsed_.empty()) wait = std::min(wait, byElapsed_.begin()->first - elapsed);
    wait = std::max<std::int64_t>(wait, 0);
    if (planned_ && wakeAt_ <= elapsed + wait) return;
    wake_.start(static_cast<long>(wait), true);
    planned_ = true;
    wakeAt_ = elapsed + wait;
}

}  // namespace RuvoService
