#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/NativeThread.h"
#include "runtime/support/VornCollaborator.h"
#include "runtime/support/VornObjectBase.h"
#include "runtime/support/VornSmartPointer.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

namespace VornSupport {

// What a runnable is given to work on. Concrete work derives from it.
class VORN_EXPORT VornWorkInformation : public virtual VornObjectBase {
public:
    ~VornWorkInformation() override;
};

// A named thread of the operating system. Derived classes override run(), or
// the thread is made around a runnable. The object may be made, started and
// waited for by any thread; start() once at a time (again after it has ended).
//
// Who owns it: either somebody who keeps the object until waitForThreadExit()
// has returned, or, after setMarkForDeath(), the runtime, which holds a
// reference from start() on and releases it after the last dependent has seen
// ThreadDone. An exception that leaves run() is caught and logged at level 2.
class VORN_EXPORT VornThread : public VornCollaborator, public virtual VornObjectBase {
public:
    using t_Priority = VornPlatform::ThreadPriority;

    // The body of a thread that is not derived from.
    class VORN_EXPORT VornRunnable : public virtual VornObjectBase {
    public:
        ~VornRunnable() override;
        virtual int run(VornWorkInformation& information) = 0;
    };

    // Tells the dependents, on the ending thread, that run() is over.
    class VORN_EXPORT ThreadDone : public VornNotification {
    public:
        ~ThreadDone() override;
    };

    static constexpr std::size_t kClientStack = 256 * 1024;

    // `name` is what log lines and the system's thread listings show.
    explicit VornThread(const std::string& name);
    VornThread(VornSmartPointer<VornRunnable> runnable, const std::string& name);
    ~VornThread() override;
    VornThread(const VornThread&) = delete;
    VornThread& operator=(const VornThread&) = delete;

    // Creates the thread. False when it runs already, or when the system has none to
    // give, with a log line of level 2; of level 4 for the threads of the process
    // that the system refuses after one that it refused, until it gives one.
    virtual bool start();
    // Asks the body to end; the body looks at isStopRequested().
    virtual void stop();
    // Waits until the thread has ended: true; false when `ms` milliseconds
    // (negative: no limit) have passed. True for one that was never started.
    virtual bool wait(int ms);
    // Takes effect at once on a running thread, else at its start. A priority
    // that the system refuses is logged at level 4 and changes nothing.
    virtual void setPriority(t_Priority priority);
    // Any thread. A run under way keeps what it began with.
    virtual void setWorkInfo(VornSmartPointer<VornWorkInformation> information);

    const std::string& getName() const { return name_; }
    // Blocks until the thread has ended, its ThreadDone delivered. Returns at
    // once on the thread itself.
    void waitForThreadExit();
    // Before start(), which looks at it: the runtime releases the object after
    // its run.
    void setMarkForDeath() { markedForDeath_ = true; }
    // Before start(): bytes of stack; 0 takes the system's default.
    void setStackSize(std::size_t bytes) { stackBytes_ = bytes; }
    bool isStopRequested() const { return stopRequested_.load(std::memory_order_acquire); }
    // What run() returned; -1 before that and after an exception.
    int getExitCode() const;

    // Threads of this process that have been started and not yet ended, marked
    // objects not yet released included.
    static int liveCount();
    // Waits until liveCount() is at most `count`; false when `ms` have passed.
    static bool waitForLiveCount(int count, int ms);

protected:
    // The body, on the new thread. The base calls the runnable's, if there is one.
    virtual int run();

private:
    struct State;  // survives the object, so that its end can be told
    static void enter(void* raw);
    int runGuarded();

    const std::string name_;
    const VornSmartPointer<VornRunnable> runnable_;
    const std::shared_ptr<State> state_;
    std::size_t stackBytes_ = 0;
    bool markedForDeath_ = false;
    std::atomic<bool> stopRequested_{false};
};

}  // namespace VornSupport
