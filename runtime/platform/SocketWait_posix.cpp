#include "runtime/platform/Socket.h"

#include "runtime/platform/SocketCalls_posix.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace VornPlatform {
namespace {

// A signal does not end the wait.
int pollUntil(pollfd* entries, std::size_t count, int ms) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(std::max(ms, 0));
    for (;;) {
        const int ready = ::poll(entries, static_cast<nfds_t>(count), ms);
        if (ready >= 0 || errno != EINTR) return ready;
        if (ms <= 0) continue;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        ms = static_cast<int>(std::max<std::int64_t>(left.count(), 0));
    }
}

}  // namespace

IoResult waitReady(std::span<SocketWait> sockets, int ms) {
    constexpr std::size_t kFew = 8;  // the usual waits do without memory of their own
    pollfd few[kFew];
    std::vector<pollfd> many;
    if (sockets.size() > kFew) many.resize(sockets.size());
    pollfd* const entries = sockets.size() > kFew ? many.data() : few;
    for (std::size_t i = 0; i < sockets.size(); ++i) {
        const short events = static_cast<short>((sockets[i].wantRead ? POLLIN : 0) |
                                                (sockets[i].wantWrite ? POLLOUT : 0));
        entries[i] = {fd(sockets[i].socket), events, 0};
        sockets[i].canRead = sockets[i].canWrite = false;
    }
    const int ready = pollUntil(entries, sockets.size(), ms);
    if (ready < 0) return ioResult(-1);
    for (std::size_t i = 0; i < sockets.size(); ++i) {
        const bool broken = (entries[i].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
        sockets[i].canRead = sockets[i].wantRead && (broken || (entries[i].revents & POLLIN) != 0);
        sockets[i].canWrite =
            sockets[i].wantWrite && (broken || (entries[i].revents & POLLOUT) != 0);
    }
    return ioResult(ready);
}

OsError SocketWaker::open() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return OsError::last();
    receiver_.reset(ends[0]);
    sender_.reset(ends[1]);
    return {};
}

void SocketWaker::wake() {
    if (ready_.exchange(true, std::memory_order_acq_rel)) return;
    const char one = 1;
    [[maybe_unused]] const auto written = ::write(fd(sender_.handle()), &one, 1);
}

void SocketWaker::clear() {
    char buffer[64];
    while (::read(fd(receiver_.handle()), buffer, sizeof buffer) == sizeof buffer) {}
    ready_.exchange(false, std::memory_order_acq_rel);
}

}  // namespace VornPlatform
