#include "runtime/platform/StandardError.h"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace VornPlatform {
namespace {

constexpr int kPatienceMs = 500;

bool stalled = false;

bool mayWrite() {
    pollfd entry{STDERR_FILENO, POLLOUT, 0};
    const int ready = ::poll(&entry, 1, stalled ? 0 : kPatienceMs);
    stalled = ready == 0;
    return !stalled;
}

}  // namespace

bool writeStandardError(std::string_view text) {
    while (!text.empty()) {
        if (!mayWrite()) return false;
        // Not more than a pipe that is ready takes without waiting.
        const ssize_t count =
            ::write(STDERR_FILENO, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
        if (count < 0 && errno != EINTR) return false;
        if (count > 0) text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

bool flushStandardError(std::chrono::milliseconds) { return true; }

}  // namespace VornPlatform
