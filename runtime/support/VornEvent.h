#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/NativeSignal.h"
#include "runtime/support/VornNotification.h"

#include <cstddef>
#include <list>
#include <memory>
#include <vector>

namespace VornSupport {

// A waitable event. A manual-reset event stays signalled until reset() and
// lets every waiter through; an automatic one lets exactly one waiter through
// and is then unsignalled again. Every function may be called from any thread;
// an event must outlive the waits on it. No wake-up is lost: a set() before or
// during a wait ends it. Times are milliseconds; negative waits for ever.
class VORN_EXPORT VornEvent {
public:
    static constexpr int kForever = -1;
    static constexpr int kTimedOut = -2;    // result of the waits on several
    static constexpr int kWaitFailed = -1;  // result of the waits on several: nothing to wait for

    explicit VornEvent(bool manualReset = false, bool signalled = false);
    virtual ~VornEvent();
    VornEvent(const VornEvent&) = delete;
    VornEvent& operator=(const VornEvent&) = delete;

    // Signals the event; an automatic one with waiters lets the longest one go.
    void set();
    void reset();
    // Lets go who waits at this moment (automatic: one, the longest) and leaves
    // the event unsignalled. A wait for all is let go when its other events
    // are signalled.
    void pulse();
    // Non-zero when signalled, 0 when `ms` passed. 0 looks once.
    int wait(int ms = kForever);

    // Waits for any or, in one indivisible step, for all. For "any", the index
    // of the event that ended the wait (the lowest when several are
    // signalled); for "all", 0. Else kTimedOut, or kWaitFailed for an empty
    // set. An event must stand in the set once only when waiting for all.
    static int wait(int count, VornEvent* events, bool all, int ms);
    static int wait(std::vector<VornEvent*>& events, bool all, int ms);

    // A handle of the platform that is signalled while the event is: a
    // descriptor readable by poll(2), or a HANDLE for WaitForSingleObject.
    // Made at the first call, owned by the event. Waiting on it consumes
    // nothing: an automatic event is taken by a wait(0) afterwards. Throws
    // VornException when the system has no handle left.
    VornPlatform::NativeSignal::Handle getHandle();

    // Waits on this event that are under way.
    std::size_t waitersForTest() const;

protected:
    // Make and free the notification that belongs to the event.
    virtual VornNotification* createNotification();
    virtual void destroyNotification(VornNotification* notification);

private:
    struct Waiter;

    static int waitSet(VornEvent* const* events, std::size_t count, bool all, int ms);
    static int sleep(Waiter& waiter, int ms);
    static void release(Waiter* waiter);
    // All of these expect the lock of all events held.
    static bool takeAll(const Waiter& waiter, const VornEvent* pulsed);
    static void enlist(Waiter& waiter);
    static void withdraw(Waiter& waiter);
    Waiter* pickOne();
    Waiter* pick(bool pulsed);
    void setState(bool signalled);

    const bool manualReset_;
    bool signalled_;
    std::list<Waiter*> waiters_;  // the longest first
    std::unique_ptr<VornPlatform::NativeSignal> native_;
};

}  // namespace VornSupport
