#include "runtime/platform/Socket.h"

#include "runtime/platform/SocketCalls_posix.h"
#include "runtime/platform/SocketNative.h"

#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

namespace VornPlatform {
namespace {

using Family = SocketAddress::Family;

OsError setOption(int socket, int level, int name, int value) {
    return ::setsockopt(socket, level, name, &value, sizeof value) == 0 ? OsError{}
                                                                        : OsError::last();
}

OsError openSocket(Family family, int type, Socket& out) {
    const int made = ::socket(family == Family::V6 ? AF_INET6 : AF_INET, type | SOCK_CLOEXEC, 0);
    if (made < 0) return OsError::last();
    out.reset(made);
    return {};
}

OsError bindTo(const SocketAddress& address, int type, bool bothFamilies, Socket& out) {
    Socket made;
    if (const auto error = openSocket(address.family(), type | SOCK_NONBLOCK, made)) return error;
    const int socket = fd(made.handle());
    if (address.family() == Family::V6) {
        if (const auto e = setOption(socket, IPPROTO_IPV6, IPV6_V6ONLY, bothFamilies ? 0 : 1)) {
            return e;
        }
    }
    if (type == SOCK_STREAM) {
        if (const auto error = setOption(socket, SOL_SOCKET, SO_REUSEADDR, 1)) return error;
    } else {
        const bool v6 = address.family() == Family::V6;
        if (const auto error = v6 ? setOption(socket, IPPROTO_IPV6, IPV6_RECVPKTINFO, 1)
                                  : setOption(socket, IPPROTO_IP, IP_PKTINFO, 1)) {
            return error;
        }
    }
    const NativeAddress native = toNative(address);
    if (::bind(socket, native.get(), native.length) != 0) return OsError::last();
    out = std::move(made);
    return {};
}

// "*" prefers one socket for both families and does with IPv4 where the system
// has no IPv6.
OsError bindText(const std::string& address, std::uint16_t port, int type, Socket& out) {
    if (address == "*") {
        const OsError error = bindTo(SocketAddress::any(Family::V6, port), type, true, out);
        const int code = error.code();
        if (code != EAFNOSUPPORT && code != EADDRNOTAVAIL && code != EPROTONOSUPPORT) return error;
        return bindTo(SocketAddress::any(Family::V4, port), type, false, out);
    }
    const auto parsed = SocketAddress::parse(address, port);
    if (!parsed) return OsError(EINVAL);
    return bindTo(*parsed, type, false, out);
}

}  // namespace

void Socket::close() {
    if (handle_ != kNoSocket) ::close(fd(release()));
}

OsError listenTcp(std::uint16_t port, int backlog, const std::string& address, Socket& out) {
    Socket made;
    if (const auto error = bindText(address, port, SOCK_STREAM, made)) return error;
    if (::listen(fd(made.handle()), backlog) != 0) return OsError::last();
    out = std::move(made);
    return {};
}

OsError bindUdp(std::uint16_t port, const std::string& address, Socket& out) {
    return bindText(address, port, SOCK_DGRAM, out);
}

OsError accept(SocketHandle listener, Socket& out, SocketAddress& peer) {
    NativeAddress native;
    const int made = uninterrupted([&] {
        native.length = sizeof native.storage;
        return ::accept4(fd(listener), native.get(), &native.length, SOCK_CLOEXEC);
    });
    if (made < 0) return OsError::last();
    out.reset(made);
    peer = fromNative(native.get());
    return {};
}

OsError startConnectTcp(const SocketAddress& peer, Socket& out) {
    Socket made;
    if (const auto e = openSocket(peer.family(), SOCK_STREAM | SOCK_NONBLOCK, made)) return e;
    const NativeAddress native = toNative(peer);
    if (::connect(fd(made.handle()), native.get(), native.length) != 0 && errno != EINPROGRESS) {
        return OsError::last();
    }
    out = std::move(made);
    return {};
}

OsError connectTcp(const SocketAddress& peer, Socket& out) {
    Socket made;
    if (const auto error = startConnectTcp(peer, made)) return error;
    SocketWait wait{.socket = made.handle(), .wantWrite = true};
    if (const auto waited = waitReady({&wait, 1}, -1); waited.error) return waited.error;
    if (const auto error = pendingError(made.handle())) return error;
    if (const auto error = setNonBlocking(made.handle(), false)) return error;
    out = std::move(made);
    return {};
}

OsError connectUdp(const SocketAddress& peer, Socket& out) {
    Socket made;
    if (const auto error = openSocket(peer.family(), SOCK_DGRAM, made)) return error;
    const NativeAddress native = toNative(peer);
    if (::connect(fd(made.handle()), native.get(), native.length) != 0) return OsError::last();
    out = std::move(made);
    return {};
}

OsError setNonBlocking(SocketHandle socket, bool on) {
    const int flags = ::fcntl(fd(socket), F_GETFL);
    if (flags < 0) return OsError::last();
    const int wanted = on ? flags | O_NONBLOCK : flags & ~O_NONBLOCK;
    if (wanted != flags && ::fcntl(fd(socket), F_SETFL, wanted) < 0) return OsError::last();
    return {};
}

OsError setKeepAlive(SocketHandle socket) {
    if (const auto error = setOption(fd(socket), SOL_SOCKET, SO_KEEPALIVE, 1)) return error;
    if (const auto error = setOption(fd(socket), IPPROTO_TCP, TCP_KEEPIDLE, 60)) return error;
    if (const auto error = setOption(fd(socket), IPPROTO_TCP, TCP_KEEPINTVL, 10)) return error;
    return setOption(fd(socket), IPPROTO_TCP, TCP_KEEPCNT, 6);
}

OsError setNoDelay(SocketHandle socket, bool on) {
    return setOption(fd(socket), IPPROTO_TCP, TCP_NODELAY, on ? 1 : 0);
}

OsError pendingError(SocketHandle socket) {
    int code = 0;
    socklen_t size = sizeof code;
    if (::getsockopt(fd(socket), SOL_SOCKET, SO_ERROR, &code, &size) != 0) return OsError::last();
    return OsError(code);
}

OsError localAddress(SocketHandle socket, SocketAddress& out) {
    NativeAddress native;
    if (::getsockname(fd(socket), native.get(), &native.length) != 0) return OsError::last();
    out = fromNative(native.get());
    return {};
}

OsError peerAddress(SocketHandle socket, SocketAddress& out) {
    NativeAddress native;
    if (::getpeername(fd(socket), native.get(), &native.length) != 0) return OsError::last();
    out = fromNative(native.get());
    return {};
}

IoResult receive(SocketHandle socket, char* buffer, std::size_t size) {
    return ioResult(uninterrupted([&] { return ::recv(fd(socket), buffer, size, 0); }));
}

IoResult receiveNow(SocketHandle socket, char* buffer, std::size_t size) {
    return ioResult(uninterrupted([&] { return ::recv(fd(socket), buffer, size, MSG_DONTWAIT); }));
}

IoResult send(SocketHandle socket, const char* data, std::size_t size) {
    return ioResult(uninterrupted([&] { return ::send(fd(socket), data, size, MSG_NOSIGNAL); }));
}

namespace {

IoResult sendBoth(SocketHandle socket, std::string_view first, std::string_view second,
                  int flags) {
    if (second.empty()) {  // the shorter way through the system
        return ioResult(
            uninterrupted([&] { return ::send(fd(socket), first.data(), first.size(), flags); }));
    }
    iovec pieces[] = {piece(first.data(), first.size()), piece(second.data(), second.size())};
    const msghdr header = message(pieces, 2);
    return ioResult(uninterrupted([&] { return ::sendmsg(fd(socket), &header, flags); }));
}

}  // namespace

IoResult send(SocketHandle socket, std::string_view first, std::string_view second) {
    return sendBoth(socket, first, second, MSG_NOSIGNAL);
}

IoResult sendNow(SocketHandle socket, std::string_view first, std::string_view second) {
    return sendBoth(socket, first, second, MSG_NOSIGNAL | MSG_DONTWAIT);
}

void shutdownBoth(SocketHandle socket) { ::shutdown(fd(socket), SHUT_RDWR); }

OsError shutdownSend(SocketHandle socket) {
    return ::shutdown(fd(socket), SHUT_WR) == 0 ? OsError{} : OsError::last();
}

StreamLook lookAtStream(SocketHandle socket) {
    pollfd entry{fd(socket), POLLIN | POLLRDHUP, 0};
    const int ready = uninterrupted([&] { return ::poll(&entry, 1, 0); });
    if (ready <= 0) return StreamLook::Quiet;
    const bool closed = (entry.revents & (POLLRDHUP | POLLHUP | POLLERR | POLLNVAL)) != 0;
    return closed ? StreamLook::Closed : StreamLook::Bytes;
}

std::size_t bytesAvailable(SocketHandle socket) {
    int count = 0;
    return ::ioctl(fd(socket), FIONREAD, &count) == 0 ? static_cast<std::size_t>(count) : 0;
}

}  // namespace VornPlatform
