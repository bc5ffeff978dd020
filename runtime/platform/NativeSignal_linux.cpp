#include "runtime/platform/NativeSignal.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>

namespace VornPlatform {
namespace {

constexpr int kFailurePauseMs = 20;

}  // namespace

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

// The time is taken even when the system fails to wait: who pauses between tries
// must not try without a pause. It is asked again now and then.
bool awaitSignal(NativeSignal::Handle handle, int ms) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(ms);
    pollfd entry{static_cast<int>(handle), POLLIN, 0};
    for (int left = ms;;) {
        const int ready = ::poll(&entry, 1, left);
        if (ready >= 0) return ready > 0;
        if (errno != EINTR) {
            if (left == 0) return false;
            ::poll(nullptr, 0, left < 0 ? kFailurePauseMs : std::min(left, kFailurePauseMs));
        }
        if (ms < 0) continue;
        const auto rest = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        left = rest.count() > 0 ? static_cast<int>(rest.count()) : 0;
    }
}

}  // namespace VornPlatform
