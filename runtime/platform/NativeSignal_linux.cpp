#include "runtime/platform/NativeSignal.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

namespace VornPlatform {

NativeSignal::~NativeSignal() {
    if (handle_ != kNone) ::close(static_cast<int>(handle_));
}

OsError NativeSignal::open() {
    if (handle_ != kNone) return {};
    const int descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (descriptor < 0) return OsError::last();
    handle_ = descriptor;
    return {};
}

void NativeSignal::on() {
    if (on_) return;
    const std::uint64_t one = 1;
    on_ = ::write(static_cast<int>(handle_), &one, sizeof one) == sizeof one;
}

void NativeSignal::off() {
    if (!on_) return;
    std::uint64_t count = 0;
    on_ = ::read(static_cast<int>(handle_), &count, sizeof count) != sizeof count;
}

}  // namespace VornPlatform
