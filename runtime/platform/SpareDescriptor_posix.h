#pragma once

// For the POSIX sources of this folder only.

#include "runtime/platform/OsError.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace VornPlatform {

// Kept free for a child's descriptor, so that a child is not started that could
// not be watched then.
class SpareDescriptor {
public:
    SpareDescriptor() : descriptor_(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)) {
        if (descriptor_ < 0 && errno == EBADF) {
            descriptor_ = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        }
        if (descriptor_ < 0) error_ = OsError::last();
    }
    ~SpareDescriptor() { release(); }
    SpareDescriptor(const SpareDescriptor&) = delete;
    SpareDescriptor& operator=(const SpareDescriptor&) = delete;

    OsError error() const { return error_; }
    void release() {
        if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
    }

private:
    int descriptor_;
    OsError error_;
};

}  // namespace VornPlatform
