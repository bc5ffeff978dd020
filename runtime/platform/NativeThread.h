#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/OsError.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace VornPlatform {

// Relative to the process's other threads. Linux: nice values 19, 10, 5, 0,
// -5, -10, -20 of the single thread, of which the negative ones need a
// privilege; Windows: the thread priorities of the same names.
enum class ThreadPriority { Idle, Lowest, BelowNormal, Normal, AboveNormal, Highest, TimeCritical };

struct ThreadOptions {
    const char* name = "";       // shown by the system's tools; Linux shows 15 characters
    std::size_t stackBytes = 0;  // 0: the system's default; raised to what the system needs
};

using ThreadId = std::uint64_t;  // the system's number of a thread, as its tools show it

// Starts a detached thread that calls body(argument), at the priority of the
// process's first thread if the system permits that. The name is copied. No
// exception may leave the body.
VORN_EXPORT OsError startThread(const ThreadOptions& options, void (*body)(void*), void* argument);

VORN_EXPORT ThreadId currentThreadId();
VORN_EXPORT void nameCurrentThread(const char* name);
VORN_EXPORT OsError setThreadPriority(ThreadId thread, ThreadPriority priority);

}  // namespace VornPlatform
