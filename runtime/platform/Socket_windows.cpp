#include "runtime/platform/Socket.h"

#include "runtime/platform/SocketCalls_windows.h"
#include "runtime/platform/SocketNative.h"

#include <windows.h>

#include <mswsock.h>

#include <mstcpip.h>

namespace VornPlatform {
namespace {

using Family = SocketAddress::Family;

OsError setOption(SOCKET socket, int level, int name, DWORD value) {
    const auto* bytes = reinterpret_cast<const char*>(&value);
    return ::setsockopt(socket, level, name, bytes, sizeof value) == 0 ? OsError{}
                                                                       : OsError::lastSocket();
}

OsError openSocket(Family family, int type, Socket& out) {
    if (const auto error = startSockets()) return error;
    const SOCKET made = ::WSASocketW(family == Family::V6 ? AF_INET6 : AF_INET, type, 0, nullptr, 0,
                                     WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
    if (made == INVALID_SOCKET) return OsError::lastSocket();
    out.reset(static_cast<SocketHandle>(made));
    return {};
}

// What the addresses of datagrams need, and that a peer's closed port is not
// reported as an error of the next receive.
OsError prepareDatagrams(SOCKET socket, Family family, bool bothFamilies) {
    if (family == Family::V4 || bothFamilies) {
        const OsError error = setOption(socket, IPPROTO_IP, IP_PKTINFO, 1);
        if (error && family == Family::V4) return error;
    }
    if (family == Family::V6) {
        if (const auto error = setOption(socket, IPPROTO_IPV6, IPV6_PKTINFO, 1)) return error;
    }
    BOOL report = FALSE;
    DWORD returned = 0;
    ::WSAIoctl(socket, SIO_UDP_CONNRESET, &report, sizeof report, nullptr, 0, &returned, nullptr,
               nullptr);
    return {};
}

OsError bindTo(const SocketAddress& address, int type, bool bothFamilies, Socket& out) {
    Socket made;
    if (const auto error = openSocket(address.family(), type, made)) return error;
    const SOCKET socket = native(made.handle());
    if (address.family() == Family::V6) {
        if (const auto e = setOption(socket, IPPROTO_IPV6, IPV6_V6ONLY, bothFamilies ? 0 : 1)) {
            return e;
        }
    }
    // Without it another process could bind the same port and take our clients.
    if (const auto e = setOption(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, 1)) return e;
    if (type == SOCK_DGRAM) {
        if (const auto e = prepareDatagrams(socket, address.family(), bothFamilies)) return e;
    }
    const NativeAddress target = toNative(address);
    if (::bind(socket, target.get(), target.length) != 0) return OsError::lastSocket();
    if (const auto error = setNonBlocking(made.handle(), true)) return error;
    out = std::move(made);
    return {};
}

// "*" prefers one socket for both families and does with IPv4 where the system
// has no IPv6.
OsError bindText(const std::string& address, std::uint16_t port, int type, Socket& out) {
    if (address == "*") {
        const OsError error = bindTo(SocketAddress::any(Family::V6, port), type, true, out);
        const int code = error.code();
        if (code != WSAEAFNOSUPPORT && code != WSAEADDRNOTAVAIL && code != WSAEPROTONOSUPPORT) {
            return error;
        }
        return bindTo(SocketAddress::any(Family::V4, port), type, false, out);
    }
    const auto parsed = SocketAddress::parse(address, port);
    if (!parsed) return OsError(WSAEINVAL);
    return bindTo(*parsed, type, false, out);
}

IoResult ioResult(int outcome, DWORD count) {
    if (outcome != 0) return {0, OsError::lastSocket()};
    return {count, {}};
}

}  // namespace

OsError startSockets() {
    static const int failed = [] {
        WSADATA data;
        return ::WSAStartup(MAKEWORD(2, 2), &data);
    }();
    return OsError(failed);
}

void Socket::close() {
    if (handle_ != kNoSocket) ::closesocket(native(release()));
}

OsError listenTcp(std::uint16_t port, int backlog, const std::string& address, Socket& out) {
    Socket made;
    if (const auto error = bindText(address, port, SOCK_STREAM, made)) return error;
    if (::listen(native(made.handle()), backlog) != 0) return OsError::lastSocket();
    out = std::move(made);
    return {};
}

OsError bindUdp(std::uint16_t port, const std::string& address, Socket& out) {
    return bindText(address, port, SOCK_DGRAM, out);
}

OsError accept(SocketHandle listener, Socket& out, SocketAddress& peer) {
    NativeAddress address;
    const SOCKET made = ::accept(native(listener), address.get(), &address.length);
    if (made == INVALID_SOCKET) return OsError::lastSocket();
    Socket owner(static_cast<SocketHandle>(made));
    ::SetHandleInformation(reinterpret_cast<HANDLE>(made), HANDLE_FLAG_INHERIT, 0);
    if (const auto error = setNonBlocking(owner.handle(), false)) return error;  // inherited
    out = std::move(owner);
    peer = fromNative(address.get());
    return {};
}

OsError startConnectTcp(const SocketAddress& peer, Socket& out) {
    Socket made;
    if (const auto error = openSocket(peer.family(), SOCK_STREAM, made)) return error;
    if (const auto error = setNonBlocking(made.handle(), true)) return error;
    const NativeAddress target = toNative(peer);
    if (::connect(native(made.handle()), target.get(), target.length) != 0) {
        const OsError error = OsError::lastSocket();
        if (error.condition() != OsCondition::WouldBlock) return error;
    }
    out = std::move(made);
    return {};
}

OsError connectTcp(const SocketAddress& peer, Socket& out) {
    Socket made;
    if (const auto error = openSocket(peer.family(), SOCK_STREAM, made)) return error;
    const NativeAddress target = toNative(peer);
    if (::connect(native(made.handle()), target.get(), target.length) != 0) {
        return OsError::lastSocket();
    }
    out = std::move(made);
    return {};
}

OsError connectUdp(const SocketAddress& peer, Socket& out) {
    Socket made;
    if (const auto error = openSocket(peer.family(), SOCK_DGRAM, made)) return error;
    const NativeAddress target = toNative(peer);
    if (::connect(native(made.handle()), target.get(), target.length) != 0) {
        return OsError::lastSocket();
    }
    out = std::move(made);
    return {};
}

OsError setNonBlocking(SocketHandle socket, bool on) {
    u_long mode = on ? 1 : 0;
    return ::ioctlsocket(native(socket), static_cast<long>(FIONBIO), &mode) == 0
               ? OsError{}
               : OsError::lastSocket();
}

OsError setKeepAlive(SocketHandle socket) {
    if (const auto error = setOption(native(socket), SOL_SOCKET, SO_KEEPALIVE, 1)) return error;
    tcp_keepalive wanted{1, 60000, 10000};
    DWORD returned = 0;
    if (::WSAIoctl(native(socket), SIO_KEEPALIVE_VALS, &wanted, sizeof wanted, nullptr, 0,
                   &returned, nullptr, nullptr) != 0) {
        return OsError::lastSocket();
    }
    constexpr int kTcpKeepCount = 16;  // Windows 10 1703 on; before, the system's ten probes
    setOption(native(socket), IPPROTO_TCP, kTcpKeepCount, 6);
    return {};
}

OsError setNoDelay(SocketHandle socket, bool on) {
    return setOption(native(socket), IPPROTO_TCP, TCP_NODELAY, on ? 1 : 0);
}

OsError pendingError(SocketHandle socket) {
    int code = 0;
    int size = sizeof code;
    if (::getsockopt(native(socket), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&code), &size) !=
        0) {
        return OsError::lastSocket();
    }
    return OsError(code);
}

OsError localAddress(SocketHandle socket, SocketAddress& out) {
    NativeAddress address;
    if (::getsockname(native(socket), address.get(), &address.length) != 0) {
        return OsError::lastSocket();
    }
    out = fromNative(address.get());
    return {};
}

OsError peerAddress(SocketHandle socket, SocketAddress& out) {
    NativeAddress address;
    if (::getpeername(native(socket), address.get(), &address.length) != 0) {
        return OsError::lastSocket();
    }
    out = fromNative(address.get());
    return {};
}

IoResult receive(SocketHandle socket, char* buffer, std::size_t size) {
    const int count = ::recv(native(socket), buffer, static_cast<int>(bounded(size)), 0);
    return ioResult(count < 0 ? -1 : 0, static_cast<DWORD>(count));
}

IoResult receiveNow(SocketHandle socket, char* buffer, std::size_t size) {
    SocketWait wait{.socket = socket, .wantRead = true};
    const IoResult ready = waitReady({&wait, 1}, 0);
    if (ready.error) return ready;
    if (!wait.canRead) return {0, OsError(WSAEWOULDBLOCK)};
    return receive(socket, buffer, size);
}

IoResult send(SocketHandle socket, const char* data, std::size_t size) {
    const int count = ::send(native(socket), data, static_cast<int>(bounded(size)), 0);
    return ioResult(count < 0 ? -1 : 0, static_cast<DWORD>(count));
}

IoResult send(SocketHandle socket, std::string_view first, std::string_view second) {
    WSABUF pieces[] = {piece(first.data(), first.size()), piece(second.data(), second.size())};
    DWORD count = 0;
    const int outcome = ::WSASend(native(socket), pieces, 2, &count, 0, nullptr, nullptr);
    return ioResult(outcome, count);
}

IoResult sendNow(SocketHandle socket, std::string_view first, std::string_view second) {
    SocketWait wait{.socket = socket, .wantWrite = true};
    const IoResult ready = waitReady({&wait, 1}, 0);
    if (ready.error) return ready;
    if (!wait.canWrite) return {0, OsError(WSAEWOULDBLOCK)};
    return send(socket, first, second);
}

void shutdownBoth(SocketHandle socket) {
    ::shutdown(native(socket), SD_BOTH);
    // Shutting down leaves a receive that already waits to itself.
    ::CancelIoEx(reinterpret_cast<HANDLE>(native(socket)), nullptr);
}

OsError shutdownSend(SocketHandle socket) {
    return ::shutdown(native(socket), SD_SEND) == 0 ? OsError{} : OsError::lastSocket();
}

StreamLook lookAtStream(SocketHandle socket) {
    WSAPOLLFD entry{native(socket), POLLRDNORM, 0};
    if (::WSAPoll(&entry, 1, 0) <= 0) return StreamLook::Quiet;
    if ((entry.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) return StreamLook::Closed;
    char byte;
    return ::recv(native(socket), &byte, 1, MSG_PEEK) <= 0 ? StreamLook::Closed
                                                           : StreamLook::Bytes;
}

std::size_t bytesAvailable(SocketHandle socket) {
    u_long count = 0;
    return ::ioctlsocket(native(socket), FIONREAD, &count) == 0 ? count : 0;
}

}  // namespace VornPlatform
