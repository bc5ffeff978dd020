#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/OsError.h"

#include <cstdint>

namespace VornPlatform {

// A handle that other waiting calls of the system understand, switched on and
// off by hand. POSIX: a descriptor that poll(2) reports readable while it is
// on. Windows: a manual-reset event HANDLE. on() and off() may be called from
// any thread but not at once.
class VORN_EXPORT NativeSignal {
public:
    using Handle = std::intptr_t;
    static constexpr Handle kNone = -1;

    NativeSignal() = default;
    ~NativeSignal();
    NativeSignal(const NativeSignal&) = delete;
    NativeSignal& operator=(const NativeSignal&) = delete;

    OsError open();  // starts off; does nothing when it is open already
    void on();       // repeated calls change nothing
    void off();
    Handle handle() const { return handle_; }

private:
    Handle handle_ = kNone;
    bool on_ = false;
};

// True when what the handle stands for, a signal or the end of a process, is there
// within `ms` milliseconds; negative waits for ever. False not before they have passed,
// also when the system fails to wait. Any thread.
VORN_EXPORT bool awaitSignal(NativeSignal::Handle handle, int ms);

}  // namespace VornPlatform
