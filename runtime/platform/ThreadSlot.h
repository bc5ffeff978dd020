#pragma once

#include "runtime/platform/Export.h"

namespace VornPlatform {

// A pointer that every thread has one of, null at first, and that is given to
// `atExit` when the thread ends with another value than null. To be used instead
// of a thread_local object with a destructor: on Windows our compiler's runtime
// destroys those while it holds a lock that an ending thread of another kind
// waits for inside the loader's lock, and takes the loader's lock to do so.
//
// For the life of the process: a slot is never given back, and the library that
// makes it stays loaded. Any thread.
class VORN_EXPORT ThreadSlot {
public:
    // Ends the process when the system has no slot left (hundreds at least).
    explicit ThreadSlot(void (*atExit)(void* value));
    ThreadSlot(const ThreadSlot&) = delete;
    ThreadSlot& operator=(const ThreadSlot&) = delete;

    // The calling thread's.
    void* get() const;
    // Ends the process when there is no memory for it.
    void set(void* value);

private:
    unsigned long key_ = 0;
};

}  // namespace VornPlatform
