#pragma once

#include "runtime/platform/Export.h"

#include <string>

namespace VornPlatform {

// What an error of the operating system means to us, whatever its number.
enum class OsCondition {
    None,
    WouldBlock,
    Interrupted,
    TimedOut,
    NotFound,
    AccessDenied,
    Exists,
    AddressInUse,
    ConnectionRefused,
    ConnectionLost,   // reset, aborted, broken pipe
    Closed,           // the handle was closed or shut down by ourselves
    NoSpace,
    TooManyOpen,      // descriptors, handles or threads exhausted
    InvalidArgument,
    Other
};

// An error number of the operating system (errno, GetLastError or
// WSAGetLastError); 0 means success. Platform functions report failure by
// returning one of these and never throw. A plain value; any thread.
class VORN_EXPORT OsError {
public:
    OsError() = default;
    explicit OsError(int code) : code_(code) {}

    int code() const { return code_; }
    explicit operator bool() const { return code_ != 0; }  // true: it failed

    OsCondition condition() const;
    // The system's own text for the error, without a line end.
    std::string text() const;

    // The error of what we ourselves have waited for too long.
    static OsError timedOut();
    // The error of memory that we ourselves found missing; a TooManyOpen.
    static OsError noMemory();
    // The calling thread's last error of a file, process or thread call.
    static OsError last();
    // The calling thread's last error of a socket call.
    static OsError lastSocket();

private:
    int code_ = 0;
};

}  // namespace VornPlatform
