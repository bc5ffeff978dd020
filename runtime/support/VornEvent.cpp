#include "runtime/support/VornEvent.h"

#include "runtime/support/VornException.h"
#include "runtime/support/VornMutex.h"

#include <algorithm>
#include <chrono>
#include <list>
#include <utility>

namespace VornSupport {
namespace {

// One lock for the states of all events: waiting for all of several, and a
// pulse in such a wait, must see one moment of all of them. It is held for a
// few instructions only: each waiter sleeps and is woken under a lock of its own,
// so that nobody is woken in vain and a thousand that wake at once do not meet
// here. Never destroyed: threads may outlive the static objects.
VornMutex& stateLock() {
    static VornMutex* const lock = new VornMutex;
    return *lock;
}

}  // namespace

// On the stack of the thread that waits. In the lists of its events until it is
// picked, by a change of one of them, or gives up. Who picks it then releases it.
struct VornEvent::Waiter {
    VornEvent* const* events;
    std::size_t count;
    bool all;

    // Under the lock of all events.
    bool picked = false;
    int outcome = kTimedOut;  // an index once it is picked
    Waiter* next = nullptr;   // picked by the same change
    // Of a wait for one event, which is nearly every one: its place in the list, so
    // that a thousand that give up at once are not looked through for each.
    std::list<Waiter*>::iterator place{};
    bool placed = false;

    VornMutex mutex;  // never together with the lock of all events
    VornCondition over;
    int result VORN_GUARDED_BY(mutex) = kTimedOut;  // the outcome, once it is released
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

// Picks the first wait that this event can end. Null when there is none.
VornEvent::Waiter* VornEvent::pickOne() {
    for (Waiter* const waiter : waiters_) {
        if (waiter->all) {
            if (!takeAll(*waiter, this)) continue;
            waiter->outcome = 0;
        } else {
            const auto* end = waiter->events + waiter->count;
            waiter->outcome =
                static_cast<int>(std::find(waiter->events, end, this) - waiter->events);
        }
        waiter->picked = true;
        withdraw(*waiter);
        return waiter;
    }
    return nullptr;
}

// The waits that end, chained, the longest first.
VornEvent::Waiter* VornEvent::pick(bool pulsed) {
    Waiter* const first = pickOne();
    if (!manualReset_) {
        setState(!pulsed && first == nullptr);
        return first;
    }
    for (Waiter* last = first; last != nullptr; last = last->next) last->next = pickOne();
    setState(!pulsed);
    return first;
}

void VornEvent::withdraw(Waiter& waiter) {
    if (waiter.count == 1) {
        if (std::exchange(waiter.placed, false)) waiter.events[0]->waiters_.erase(waiter.place);
        return;
    }
    for (std::size_t i = 0; i < waiter.count; ++i) waiter.events[i]->waiters_.remove(&waiter);
}

// Wakes them, with no lock of an event held. The events may go with the first.
void VornEvent::release(Waiter* waiter) {
    while (waiter != nullptr) {
        Waiter* const next = waiter->next;
        {
            VornMutexLock lock(waiter->mutex);
            waiter->result = waiter->outcome;
            waiter->over.notifyOne();
        }
        waiter = next;
    }
}

void VornEvent::set() {
    Waiter* picked = nullptr;
    {
        VornMutexLock lock(stateLock());
        if (!signalled_) picked = pick(false);
    }
    release(picked);
}

void VornEvent::pulse() {
    Waiter* picked = nullptr;
    {
        VornMutexLock lock(stateLock());
        picked = pick(true);
    }
    release(picked);
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
    Waiter waiter{.events = events, .count = count, .all = all, .mutex = {}, .over = {}};
    {
        VornMutexLock lock(stateLock());
        if (all && takeAll(waiter, nullptr)) return 0;
        for (std::size_t i = 0; !all && i < count; ++i) {
            if (!events[i]->signalled_) continue;
            if (!events[i]->manualReset_) events[i]->setState(false);
            return static_cast<int>(i);
        }
        if (ms == 0) return kTimedOut;
        enlist(waiter);
    }
    const int result = sleep(waiter, ms);
    if (result != kTimedOut) return result;
    {
        VornMutexLock lock(stateLock());
        if (!waiter.picked) {
            withdraw(waiter);
            return kTimedOut;
        }
    }
    return sleep(waiter, kForever);  // until who picked it is done with it
}

void VornEvent::enlist(Waiter& waiter) {
    if (waiter.count == 1) {
        auto& waiters = waiter.events[0]->waiters_;
        waiter.place = waiters.insert(waiters.end(), &waiter);
        waiter.placed = true;
        return;
    }
    try {
        for (std::size_t i = 0; i < waiter.count; ++i) {
            waiter.events[i]->waiters_.push_back(&waiter);
        }
    } catch (...) {
        withdraw(waiter);
        throw;
    }
}

// Until the waiter is released or the time is up.
int VornEvent::sleep(Waiter& waiter, int ms) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    VornMutexLock lock(waiter.mutex);
    while (waiter.result == kTimedOut) {
        if (ms < 0) {
            waiter.over.wait(waiter.mutex);
        } else if (!waiter.over.waitUntil(waiter.mutex, deadline)) {
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
