#pragma once

#include "runtime/platform/Export.h"

namespace VornPlatform {

// Gives the calling thread back, at the end of the scope, the last-error values
// (errno; on Windows the system's as well) that it had at the beginning.
class VORN_EXPORT ErrorStateKeeper {
public:
    ErrorStateKeeper();
    ~ErrorStateKeeper();
    ErrorStateKeeper(const ErrorStateKeeper&) = delete;
    ErrorStateKeeper& operator=(const ErrorStateKeeper&) = delete;

private:
    int errorNumber_;
    [[maybe_unused]] unsigned long systemError_ = 0;  // Windows has one beside errno
};

}  // namespace VornPlatform
