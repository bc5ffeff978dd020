#include "runtime/platform/NativeLock.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>

namespace VornPlatform {
namespace {

// The slim kinds are a pointer that starts as null and end with their memory.
static_assert(sizeof(SRWLOCK) == sizeof(void*) && sizeof(CONDITION_VARIABLE) == sizeof(void*));

SRWLOCK* slim(void*& lock) { return reinterpret_cast<SRWLOCK*>(&lock); }
CONDITION_VARIABLE* native(void*& condition) {
    return reinterpret_cast<CONDITION_VARIABLE*>(&condition);
}
CRITICAL_SECTION* native(void** section) { return reinterpret_cast<CRITICAL_SECTION*>(section); }

// A longer wait ends early, which a wait may.
constexpr std::int64_t kLongestWait = 24 * 3600 * 1000;

}  // namespace

void NativeMutex::lock() noexcept { ::AcquireSRWLockExclusive(slim(lock_)); }
bool NativeMutex::try_lock() noexcept { return ::TryAcquireSRWLockExclusive(slim(lock_)) != 0; }
void NativeMutex::unlock() noexcept { ::ReleaseSRWLockExclusive(slim(lock_)); }

void NativeSharedMutex::lock() noexcept { ::AcquireSRWLockExclusive(slim(lock_)); }
void NativeSharedMutex::unlock() noexcept { ::ReleaseSRWLockExclusive(slim(lock_)); }
void NativeSharedMutex::lock_shared() noexcept { ::AcquireSRWLockShared(slim(lock_)); }
void NativeSharedMutex::unlock_shared() noexcept { ::ReleaseSRWLockShared(slim(lock_)); }

NativeRecursiveMutex::NativeRecursiveMutex() noexcept {
    static_assert(sizeof(CRITICAL_SECTION) <= sizeof section_);
    ::InitializeCriticalSectionEx(native(section_), 0, CRITICAL_SECTION_NO_DEBUG_INFO);
}
NativeRecursiveMutex::~NativeRecursiveMutex() { ::DeleteCriticalSection(native(section_)); }
void NativeRecursiveMutex::lock() noexcept { ::EnterCriticalSection(native(section_)); }
void NativeRecursiveMutex::unlock() noexcept { ::LeaveCriticalSection(native(section_)); }

void NativeCondition::wait(NativeMutex& mutex) {
    ::SleepConditionVariableSRW(native(condition_), slim(mutex.lock_), INFINITE, 0);
}

bool NativeCondition::waitUntil(NativeMutex& mutex, TimePoint deadline) {
    using std::chrono::steady_clock;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - steady_clock::now());
    const auto ms = static_cast<DWORD>(std::clamp<std::int64_t>(left.count(), 0, kLongestWait));
    if (::SleepConditionVariableSRW(native(condition_), slim(mutex.lock_), ms, 0)) return true;
    return steady_clock::now() < deadline;
}

void NativeCondition::notifyOne() noexcept { ::WakeConditionVariable(native(condition_)); }
void NativeCondition::notifyAll() noexcept { ::WakeAllConditionVariable(native(condition_)); }

}  // namespace VornPlatform
