#pragma once

// The locks of the runtime, annotated for clang's thread-safety analysis. The
// order in which locks are taken is written in docs/threading.md.

#include "runtime/platform/NativeLock.h"
#include "runtime/platform/ThreadAnnotations.h"

namespace VornSupport {

// A mutex that its holder may not take again. For state inside one class.
class VORN_CAPABILITY("mutex") VornMutex {
public:
    VornMutex() = default;
    VornMutex(const VornMutex&) = delete;
    VornMutex& operator=(const VornMutex&) = delete;

    void lock() VORN_ACQUIRE() { mutex_.lock(); }
    void unlock() VORN_RELEASE() { mutex_.unlock(); }
    bool try_lock() VORN_TRY_ACQUIRE(true) { return mutex_.try_lock(); }

private:
    friend class VornCondition;
    VornPlatform::NativeMutex mutex_;
};

// Holds a VornMutex for a scope.
class VORN_SCOPED_CAPABILITY VornMutexLock {
public:
    explicit VornMutexLock(VornMutex& mutex) VORN_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~VornMutexLock() VORN_RELEASE() {
        if (held_) mutex_.unlock();
    }
    VornMutexLock(const VornMutexLock&) = delete;
    VornMutexLock& operator=(const VornMutexLock&) = delete;

    void unlock() VORN_RELEASE() {
        held_ = false;
        mutex_.unlock();
    }
    void lock() VORN_ACQUIRE() {
        mutex_.lock();
        held_ = true;
    }

private:
    VornMutex& mutex_;
    bool held_ = true;
};

// A condition variable for VornMutex. Waits may end early without a notify:
// test the condition in a loop. Times are of the steady clock.
class VornCondition {
public:
    using TimePoint = VornPlatform::NativeCondition::TimePoint;

    void wait(VornMutex& mutex) VORN_REQUIRES(mutex) { condition_.wait(mutex.mutex_); }
    // False when `deadline` has passed.
    bool waitUntil(VornMutex& mutex, TimePoint deadline) VORN_REQUIRES(mutex) {
        return condition_.waitUntil(mutex.mutex_, deadline);
    }
    void notifyOne() { condition_.notifyOne(); }
    void notifyAll() { condition_.notifyAll(); }

private:
    VornPlatform::NativeCondition condition_;
};

// Many readers or one writer. Not recursive in either form.
class VORN_CAPABILITY("shared_mutex") VornSharedMutex {
public:
    void lock() VORN_ACQUIRE() { mutex_.lock(); }
    void unlock() VORN_RELEASE() { mutex_.unlock(); }
    void lock_shared() VORN_ACQUIRE_SHARED() { mutex_.lock_shared(); }
    void unlock_shared() VORN_RELEASE_SHARED() { mutex_.unlock_shared(); }

private:
    VornPlatform::NativeSharedMutex mutex_;
};

class VORN_SCOPED_CAPABILITY VornReadLock {
public:
    explicit VornReadLock(VornSharedMutex& mutex) VORN_ACQUIRE_SHARED(mutex) : mutex_(mutex) {
        mutex_.lock_shared();
    }
    ~VornReadLock() VORN_RELEASE() { mutex_.unlock_shared(); }
    VornReadLock(const VornReadLock&) = delete;
    VornReadLock& operator=(const VornReadLock&) = delete;

private:
    VornSharedMutex& mutex_;
};

class VORN_SCOPED_CAPABILITY VornWriteLock {
public:
    explicit VornWriteLock(VornSharedMutex& mutex) VORN_ACQUIRE(mutex) : mutex_(mutex) {
        mutex_.lock();
    }
    ~VornWriteLock() VORN_RELEASE() { mutex_.unlock(); }
    VornWriteLock(const VornWriteLock&) = delete;
    VornWriteLock& operator=(const VornWriteLock&) = delete;

private:
    VornSharedMutex& mutex_;
};

}  // namespace VornSupport
