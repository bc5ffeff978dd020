#include "runtime/platform/ErrorState.h"

#include <windows.h>

#include <cerrno>

namespace VornPlatform {

// Sockets share the system's value.
ErrorStateKeeper::ErrorStateKeeper() : errorNumber_(errno), systemError_(::GetLastError()) {}

ErrorStateKeeper::~ErrorStateKeeper() {
    errno = errorNumber_;
    ::SetLastError(systemError_);
}

}  // namespace VornPlatform
