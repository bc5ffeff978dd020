#include "runtime/platform/Socket.h"

#include "runtime/platform/SocketCalls_windows.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace VornPlatform {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kLookMs = 200;

// Before Windows 10 2004 WSAPoll tells of a connect that succeeded but not of
// one that failed, hence the looks in between.
int pollAndLook(std::vector<WSAPOLLFD>& entries, int ms) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(std::max(ms, 0));
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        const bool last = ms >= 0 && left <= kLookMs;
        const int slice = last ? static_cast<int>(std::max<std::int64_t>(left, 0)) : kLookMs;
        int ready = ::WSAPoll(entries.data(), static_cast<ULONG>(entries.size()), slice);
        if (ready != 0) return ready;
        for (auto& entry : entries) {
            if ((entry.events & POLLWRNORM) == 0) continue;
            if (!hasConnectFailed(static_cast<SocketHandle>(entry.fd))) continue;
            entry.revents = POLLERR;
            ++ready;
        }
        if (ready != 0 || last) return ready;
    }
}

}  // namespace

bool hasConnectFailed(SocketHandle socket) {
    fd_set failed;
    FD_ZERO(&failed);
    FD_SET(native(socket), &failed);
    timeval now{};
    return ::select(0, nullptr, nullptr, &failed, &now) == 1;
}

IoResult waitReady(std::span<SocketWait> sockets, int ms) {
    // Unlike poll(2), WSAPoll refuses entries without a socket.
    std::vector<WSAPOLLFD> entries;
    bool anyWrite = false;
    entries.reserve(sockets.size());
    for (auto& wait : sockets) {
        wait.canRead = wait.canWrite = false;
        if (wait.socket == kNoSocket) continue;
        const SHORT events = static_cast<SHORT>((wait.wantRead ? POLLRDNORM : 0) |
                                                (wait.wantWrite ? POLLWRNORM : 0));
        anyWrite = anyWrite || wait.wantWrite;
        entries.push_back({native(wait.socket), events, 0});
    }
    if (entries.empty()) {
        ::Sleep(ms < 0 ? INFINITE : static_cast<DWORD>(ms));
        return {};
    }
    const int ready = anyWrite
                          ? pollAndLook(entries, ms)
                          : ::WSAPoll(entries.data(), static_cast<ULONG>(entries.size()), ms);
    if (ready < 0) return {0, OsError::lastSocket()};
    auto entry = entries.begin();
    for (auto& wait : sockets) {
        if (wait.socket == kNoSocket) continue;
        const bool broken = (entry->revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
        wait.canRead = wait.wantRead && (broken || (entry->revents & POLLRDNORM) != 0);
        wait.canWrite = wait.wantWrite && (broken || (entry->revents & POLLWRNORM) != 0);
        ++entry;
    }
    return {static_cast<std::size_t>(ready), {}};
}

// A datagram socket that is its own only peer: what it sends makes it ready.
OsError SocketWaker::open() {
    Socket made;
    if (const auto error = bindUdp(0, "127.0.0.1", made)) return error;
    SocketAddress self;
    if (const auto error = localAddress(made.handle(), self)) return error;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(self.port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(native(made.handle()), reinterpret_cast<const sockaddr*>(&address),
                  sizeof address) != 0) {
        return OsError::lastSocket();
    }
    receiver_ = std::move(made);
    return {};
}

void SocketWaker::wake() {
    if (ready_.exchange(true, std::memory_order_acq_rel)) return;
    const char one = 1;
    send(receiver_.handle(), &one, 1);
}

void SocketWaker::clear() {
    char buffer[64];
    while (!receive(receiver_.handle(), buffer, sizeof buffer).error) {}
    ready_.exchange(false, std::memory_order_acq_rel);
}

}  // namespace VornPlatform
