#include "runtime/support/VornThread.h"

#include "runtime/support/VornLogging.h"
#include "runtime/support/VornThreadName.h"

#include <atomic>
#include <chrono>
#include <exception>
#include <new>
#include <utility>

namespace VornSupport {
namespace {

using VornPlatform::ThreadId;

std::chrono::steady_clock::time_point after(int ms) {
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
}

std::atomic<bool> lastWasRefused{false};  // the last thread that was asked for

void reportRefusedPriority(const std::string& name, VornPlatform::OsError error) {
    if (error) VORN_LOG(4, "VornThread::setPriority: " << name << ": " << error);
}

// Counts the threads under way. Never destroyed: the last thread of the process
// may end after the static objects.
class LiveThreads {
public:
    static LiveThreads& getInstance() {
        static LiveThreads* const instance = new LiveThreads;
        return *instance;
    }

    void add(int change) {
        VornMutexLock lock(mutex_);
        count_ += change;
        if (change < 0) fell_.notifyAll();
    }
    int count() {
        VornMutexLock lock(mutex_);
        return count_;
    }
    bool waitFor(int count, int ms) {
        const auto deadline = after(ms);
        VornMutexLock lock(mutex_);
        while (count_ > count) {
            if (ms < 0) {
                fell_.wait(mutex_);
            } else if (!fell_.waitUntil(mutex_, deadline)) {
                return count_ <= count;
            }
        }
        return true;
    }

private:
    VornMutex mutex_;
    VornCondition fell_;
    int count_ VORN_GUARDED_BY(mutex_) = 0;
};

}  // namespace

struct VornThread::State {
    VornMutex mutex;
    VornCondition changed;
    bool running VORN_GUARDED_BY(mutex) = false;
    bool marked VORN_GUARDED_BY(mutex) = false;  // the thread under way holds a reference
    ThreadId id VORN_GUARDED_BY(mutex) = 0;  // 0 until the thread has begun
    int exitCode VORN_GUARDED_BY(mutex) = -1;
    t_Priority priority VORN_GUARDED_BY(mutex) = t_Priority::Normal;
    VornSmartPointer<VornWorkInformation> information VORN_GUARDED_BY(mutex);
};

VornWorkInformation::~VornWorkInformation() = default;
VornThread::VornRunnable::~VornRunnable() = default;
VornThread::ThreadDone::~ThreadDone() = default;

VornThread::VornThread(const std::string& name) : VornThread(nullptr, name) {}

VornThread::VornThread(VornSmartPointer<VornRunnable> runnable, const std::string& name)
    : name_(name), runnable_(std::move(runnable)), state_(std::make_shared<State>()) {}

// The state may live on for a moment.
VornThread::~VornThread() { VornThread::setWorkInfo(nullptr); }

bool VornThread::start() {
    const bool marked = markedForDeath_;
    {
        VornMutexLock lock(state_->mutex);
        if (state_->running) {
            lock.unlock();
            VORN_LOG(2, "VornThread::start: " << name_ << " is running already");
            return false;
        }
        state_->running = true;
        state_->marked = marked;
        state_->id = 0;
        state_->exitCode = -1;
    }
    stopRequested_.store(false, std::memory_order_release);
    LiveThreads::getInstance().add(1);
    if (marked) addRef();
    const auto error =
        VornPlatform::startThread({.name = name_.c_str(), .stackBytes = stackBytes_}, &enter, this);
    const bool refusedBefore = lastWasRefused.exchange(static_cast<bool>(error));
    if (!error) return true;

    // Who tries again and again fills no log. From the moment the end is told an
    // unmarked object may be gone.
    VORN_LOG(refusedBefore ? 4 : 2,
             "VornThread::start: no thread for " << name_ << ": " << error);
    const std::shared_ptr<State> state = state_;
    {
        VornMutexLock lock(state->mutex);
        state->running = false;
        state->changed.notifyAll();
    }
    LiveThreads::getInstance().add(-1);
    if (marked) release();
    return false;
}

void VornThread::enter(void* raw) {
    auto* const self = static_cast<VornThread*>(raw);
    const std::shared_ptr<State> state = self->state_;
    setThreadName(self->name_);
    VornPlatform::OsError refused;
    bool marked = false;
    {
        VornMutexLock lock(state->mutex);
        marked = state->marked;
        state->id = VornPlatform::currentThreadId();
        if (state->priority != t_Priority::Normal) {
            refused = VornPlatform::setThreadPriority(state->id, state->priority);
        }
    }
    reportRefusedPriority(self->name_, refused);

    // A handler of ThreadDone may let go of an object that is not marked.
    const int exitCode = self->runGuarded();
    try {
        self->notify(ThreadDone());
    } catch (const std::exception& e) {
        VORN_LOG(2, "VornThread::notify: " << threadName() << ": exception: " << e.what());
    } catch (...) {
        VORN_LOG(2, "VornThread::notify: " << threadName() << ": unknown exception");
    }

    // From the moment the end is told an unmarked object may be gone; a marked
    // one is ours until its release.
    {
        VornMutexLock lock(state->mutex);
        state->exitCode = exitCode;
        state->running = false;
        state->changed.notifyAll();
    }
    if (marked) self->release();
    LiveThreads::getInstance().add(-1);
}

int VornThread::runGuarded() {
    try {
        return run();
    } catch (const std::exception& e) {
        VORN_LOG(2, "VornThread::run: " << name_ << ": exception: " << e.what());
    } catch (...) {
        VORN_LOG(2, "VornThread::run: " << name_ << ": unknown exception");
    }
    return -1;
}

int VornThread::run() {
    if (!runnable_) return 0;
    // Held here and counted: the runnable may take references of its own.
    VornSmartPointer<VornWorkInformation> information;
    {
        VornMutexLock lock(state_->mutex);
        information = state_->information;
    }
    if (!information) information = makeCounted<VornWorkInformation>();
    return runnable_->run(*information);
}

void VornThread::stop() { stopRequested_.store(true, std::memory_order_release); }

bool VornThread::wait(int ms) {
    const std::shared_ptr<State> state = state_;
    const auto deadline = after(ms);
    VornMutexLock lock(state->mutex);
    while (state->running) {
        if (state->id == VornPlatform::currentThreadId()) return false;
        if (ms < 0) {
            state->changed.wait(state->mutex);
        } else if (!state->changed.waitUntil(state->mutex, deadline)) {
            return !state->running;
        }
    }
    return true;
}

void VornThread::waitForThreadExit() { wait(-1); }

void VornThread::setPriority(t_Priority priority) {
    VornMutexLock lock(state_->mutex);
    state_->priority = priority;
    if (!state_->running || state_->id == 0) return;
    const auto error = VornPlatform::setThreadPriority(state_->id, priority);
    lock.unlock();
    reportRefusedPriority(name_, error);
}

void VornThread::setWorkInfo(VornSmartPointer<VornWorkInformation> information) {
    // What was there before is let go of after the lock, with the parameter.
    VornMutexLock lock(state_->mutex);
    std::swap(state_->information, information);
}

int VornThread::getExitCode() const {
    VornMutexLock lock(state_->mutex);
    return state_->exitCode;
}

int VornThread::liveCount() { return LiveThreads::getInstance().count(); }

bool VornThread::waitForLiveCount(int count, int ms) {
    return LiveThreads::getInstance().waitFor(count, ms);
}

}  // namespace VornSupport
