#pragma once

#include "runtime/platform/Export.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <shared_mutex>

namespace VornPlatform {

// The locks beneath ours (VornMutex, VornCriticalSectionObject), with the
// functions of the standard ones of the same kinds. On POSIX they are these. On
// Windows the standard ones of our compiler take kernel objects, two or three
// for each condition, and some are never given back; the system's slim locks
// take nothing but a pointer.
#if defined(_WIN32)

class VORN_EXPORT NativeMutex {
public:
    constexpr NativeMutex() noexcept = default;
    NativeMutex(const NativeMutex&) = delete;
    NativeMutex& operator=(const NativeMutex&) = delete;
    void lock() noexcept;
    bool try_lock() noexcept;
    void unlock() noexcept;

private:
    friend class NativeCondition;
    void* lock_ = nullptr;  // an SRWLOCK
};

class VORN_EXPORT NativeSharedMutex {
public:
    constexpr NativeSharedMutex() noexcept = default;
    NativeSharedMutex(const NativeSharedMutex&) = delete;
    NativeSharedMutex& operator=(const NativeSharedMutex&) = delete;
    void lock() noexcept;
    void unlock() noexcept;
    void lock_shared() noexcept;
    void unlock_shared() noexcept;

private:
    void* lock_ = nullptr;  // an SRWLOCK
};

class VORN_EXPORT NativeRecursiveMutex {
public:
    NativeRecursiveMutex() noexcept;
    ~NativeRecursiveMutex();
    NativeRecursiveMutex(const NativeRecursiveMutex&) = delete;
    NativeRecursiveMutex& operator=(const NativeRecursiveMutex&) = delete;
    void lock() noexcept;
    void unlock() noexcept;

private:
    void* section_[5];  // a CRITICAL_SECTION
};

#else

using NativeMutex = std::mutex;
using NativeSharedMutex = std::shared_mutex;
using NativeRecursiveMutex = std::recursive_mutex;

#endif

// Waits may end early without a notify. The mutex is held before and after.
class VORN_EXPORT NativeCondition {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

#if defined(_WIN32)
    constexpr NativeCondition() noexcept = default;
#else
    NativeCondition() = default;
#endif
    NativeCondition(const NativeCondition&) = delete;
    NativeCondition& operator=(const NativeCondition&) = delete;

    void wait(NativeMutex& mutex);
    // False when `deadline` has passed.
    bool waitUntil(NativeMutex& mutex, TimePoint deadline);
    void notifyOne() noexcept;
    void notifyAll() noexcept;

private:
#if defined(_WIN32)
    void* condition_ = nullptr;  // a CONDITION_VARIABLE
#else
    std::condition_variable condition_;
#endif
};

}  // namespace VornPlatform
