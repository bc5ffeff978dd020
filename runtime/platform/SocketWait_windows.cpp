#include "runtime/platform/Socket.h"

#include "runtime/platform/SocketCalls_windows.h"

#include <windows.h>

#include <vector>

namespace VornPlatform {

IoResult waitReady(std::span<SocketWait> sockets, int ms) {
    // Unlike poll(2), WSAPoll refuses entries without a socket.
    std::vector<WSAPOLLFD> entries;
    entries.reserve(sockets.size());
    for (auto& wait : sockets) {
        wait.canRead = wait.canWrite = false;
        if (wait.socket == kNoSocket) continue;
        const SHORT events = static_cast<SHORT>((wait.wantRead ? POLLRDNORM : 0) |
                                                (wait.wantWrite ? POLLWRNORM : 0));
        entries.push_back({native(wait.socket), events, 0});
    }
    if (entries.empty()) {
        ::Sleep(ms < 0 ? INFINITE : static_cast<DWORD>(ms));
        return {};
    }
    const int ready = ::WSAPoll(entries.data(), static_cast<ULONG>(entries.size()), ms);
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
