#include "runtime/support/VornEvent.h"

#include "runtime/support/VornException.h"
#include "runtime/support/VornMutex.h"

#include <algorithm>
#include <chrono>

namespace VornSupport {
namespace {

// One lock for the states of all events: waiting for all of several, and a
// pulse in such a wait, must see one moment of all of them. It is held for a
// few instructions only and the sleeping is done on a condition of each
// waiter's own, so that nobody is woken in vain. Never destroyed: threads may
// outlive the static objects.
VornMutex& stateLock() {
    static VornMutex* const lock = new VornMutex;
    return *lock;
}

}  // namespace

struct VornEvent::Waiter {
    VornEvent* const* events;
    std::size_t count;
    bool all;
    int result = kTimedOut;  // an index once the wait is over
    VornCondition over;
};

VornEvent::VornEvent(bool manualReset, bool signalled)
    : manualReset_(manualReset), signalled_(signalled) {}

VornEvent::~VornEvent() = default;

VornNotification* VornEvent::createNotification() { return new VornNotification; }
void VornEvent::destroyNotification(VornNotification* notification) { delete notification; }

void VornEvent::setState(bool signalled) {
    signalled_ = signalled;
    if (!native_) return;
    signalled ? native_->on() : native_->off();
}

// Takes every event of a wait for all when each is signalled (`pulsed` counts
// as signalled); else changes nothing.
bool VornEvent::takeAll(const Waiter& waiter, const VornEvent* pulsed) {
    for (std::size_t i = 0; i < waiter.count; ++i) {
        if (!waiter.events[i]->signalled_ && waiter.events[i] != pulsed) return false;
    }
    for (std::size_t i = 0; i < waiter.count; ++i) {
        if (!waiter.events[i]->manualReset_) waiter.events[i]->setState(false);
    }
    return true;
}

// Ends the first wait that this event can end. False when there is none.
bool VornEvent::letOneGo() {
    for (auto it = waiters_.begin(); it != waiters_.end(); ++it) {
        Waiter& waiter = **it;
        if (waiter.all) {
            if (!takeAll(waiter, this)) continue;
            waiter.result = 0;
        } else {
            const auto* end = waiter.events + waiter.count;
            waiter.result =
                static_cast<int>(std::find(waiter.events, end, this) - waiter.events);
        }
        for (std::size_t i = 0; i < waiter.count; ++i) waiter.events[i]->waiters_.remove(&waiter);
        waiter.over.notifyOne();
        return true;
    }
    return false;
}

void VornEvent::letGo(bool pulsed) {
    if (manualReset_) {
        while (letOneGo()) {}
        setState(!pulsed);
    } else {
        const bool taken = letOneGo();
        setState(!pulsed && !taken);
    }
}

void VornEvent::set() {
    VornMutexLock lock(stateLock());
    if (!signalled_) letGo(false);
}

void VornEvent::pulse() {
    VornMutexLock lock(stateLock());
    letGo(true);
}

void VornEvent::reset() {
    VornMutexLock lock(stateLock());
    setState(false);
}

int VornEvent::wait(int ms) {
    VornEvent* const self = this;
    return waitSet(&self, 1, false, ms) == 0 ? 1 : 0;
}

int VornEvent::wait(int count, VornEvent* events, bool all, int ms) {
    std::vector<VornEvent*> set;
    for (int i = 0; i < count; ++i) set.push_back(events + i);
    return wait(set, all, ms);
}

int VornEvent::wait(std::vector<VornEvent*>& events, bool all, int ms) {
    return waitSet(events.data(), events.size(), all, ms);
}

int VornEvent::waitSet(VornEvent* const* events, std::size_t count, bool all, int ms) {
    if (count == 0) return kWaitFailed;
    Waiter waiter{.events = events, .count = count, .all = all, .over = {}};
    VornMutexLock lock(stateLock());
    if (all && takeAll(waiter, nullptr)) return 0;
    for (std::size_t i = 0; !all && i < count; ++i) {
        if (!events[i]->signalled_) continue;
        if (!events[i]->manualReset_) events[i]->setState(false);
        return static_cast<int>(i);
    }
    if (ms == 0) return kTimedOut;

    // Taken out by whoever lets it go, else at the end, also when no memory is left.
    struct Enlisted {
        Waiter& waiter;
        ~Enlisted() {
            if (waiter.result != kTimedOut) return;
            for (std::size_t i = 0; i < waiter.count; ++i) {
                waiter.events[i]->waiters_.remove(&waiter);
            }
        }
    } const enlisted{waiter};
    for (std::size_t i = 0; i < count; ++i) events[i]->waiters_.push_back(&waiter);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (waiter.result == kTimedOut) {
        if (ms < 0) {
            waiter.over.wait(stateLock());
        } else if (!waiter.over.waitUntil(stateLock(), deadline)) {
            break;
        }
    }
    return waiter.result;
}

std::size_t VornEvent::waitersForTest() const {
    VornMutexLock lock(stateLock());
    return waiters_.size();
}

VornPlatform::NativeSignal::Handle VornEvent::getHandle() {
    VornMutexLock lock(stateLock());
    if (!native_) {
        auto native = std::make_unique<VornPlatform::NativeSignal>();
        if (const auto error = native->open()) {
            throw VornException("VornEvent::getHandle: no handle", error);
        }
        native_ = std::move(native);
        if (signalled_) native_->on();
    }
    return native_->handle();
}

}  // namespace VornSupport
