#pragma once

#include "runtime/platform/NativeSignal.h"
#include "runtime/platform/NativeThread.h"

#include <cstddef>
#include <string>
#include <vector>

// Asks the system itself, past our own code, what became of a thing; tests
// compare. One source per system.
namespace NativeProbe {

// The name under which the system's tools show a live thread.
std::string threadName(VornPlatform::ThreadId thread);
// How much of `name` the system shows.
std::string shownName(const std::string& name);

// The stack of the calling thread, in bytes.
std::size_t currentStackBytes();
// The least and the most that a thread may get that asked for `bytes`.
std::size_t leastStackFor(std::size_t bytes);
std::size_t mostStackFor(std::size_t bytes);
// A stack that no thread can have; 0 where the system gives every size that
// can be asked for.
std::size_t impossibleStack();

// The system's own number for a live thread's priority, and the one that
// stands for `priority`.
int threadPriority(VornPlatform::ThreadId thread);
int priorityNumber(VornPlatform::ThreadPriority priority);

// Waits for a native handle with the system's own call; true when it is on.
bool waitsReady(VornPlatform::NativeSignal::Handle handle, int ms);

// Threads and open descriptors or handles of this process.
int countThreads();
int countHandles();

// Whether a replaced operator new also serves the suite's libraries.
bool replacesAllocationEverywhere();

// What the system says of its error `code` where we know its number.
struct KnownError {
    int code;
    VornPlatform::OsCondition condition;
};
std::vector<KnownError> knownErrors();
// Makes a call fail that leaves its error as the thread's last one: opening a
// file that is not there, and connecting a socket that is none.
void failToOpen();
void failOnSocket();

}  // namespace NativeProbe
