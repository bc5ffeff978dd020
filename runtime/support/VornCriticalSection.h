#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/NativeLock.h"
#include "runtime/platform/ThreadAnnotations.h"

namespace VornSupport {

// A mutex that one thread may take several times; it is free again after as
// many unlocks. Any thread may lock; only the holder may unlock.
class VORN_CAPABILITY("mutex") VornCriticalSectionObject {
public:
    VornCriticalSectionObject() = default;
    VornCriticalSectionObject(const VornCriticalSectionObject&) = delete;
    VornCriticalSectionObject& operator=(const VornCriticalSectionObject&) = delete;

    void lock() VORN_ACQUIRE() { mutex_.lock(); }
    void unlock() VORN_RELEASE() { mutex_.unlock(); }

private:
    VornPlatform::NativeRecursiveMutex mutex_;
};

// Holds a VornCriticalSectionObject for a scope. Belongs to the thread that
// made it.
class VORN_SCOPED_CAPABILITY VornCriticalSection {
public:
    // With `lockNow` false the section is taken by a later lock(), if at all.
    explicit VornCriticalSection(VornCriticalSectionObject& object, bool lockNow = true)
        VORN_ACQUIRE(object)
        : object_(object), held_(lockNow) {
        if (lockNow) object_.lock();
    }
    ~VornCriticalSection() VORN_RELEASE() {
        if (held_) object_.unlock();
    }
    VornCriticalSection(const VornCriticalSection&) = delete;
    VornCriticalSection& operator=(const VornCriticalSection&) = delete;

    // Does nothing when it is held already.
    void lock() VORN_ACQUIRE() {
        if (held_) return;
        object_.lock();
        held_ = true;
    }
    // Releases early. Does nothing when nothing is held.
    void unlock() VORN_RELEASE() {
        if (!held_) return;
        held_ = false;
        object_.unlock();
    }

private:
    VornCriticalSectionObject& object_;
    bool held_;
};

}  // namespace VornSupport
