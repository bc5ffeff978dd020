#include "runtime/platform/NativeLock.h"

namespace VornPlatform {

void NativeCondition::wait(NativeMutex& mutex) {
    std::unique_lock<NativeMutex> lock(mutex, std::adopt_lock);
    condition_.wait(lock);
    lock.release();
}

bool NativeCondition::waitUntil(NativeMutex& mutex, TimePoint deadline) {
    std::unique_lock<NativeMutex> lock(mutex, std::adopt_lock);
    const bool inTime = condition_.wait_until(lock, deadline) == std::cv_status::no_timeout;
    lock.release();
    return inTime;
}

void NativeCondition::notifyOne() noexcept { condition_.notify_one(); }
void NativeCondition::notifyAll() noexcept { condition_.notify_all(); }

}  // namespace VornPlatform
