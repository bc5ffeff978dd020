#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/OsError.h"
#include "runtime/platform/SocketAddress.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace VornPlatform {

using SocketHandle = std::intptr_t;  // a descriptor or a SOCKET
inline constexpr SocketHandle kNoSocket = -1;

// What a transfer did: bytes moved, or why none were. A receive that reports 0
// bytes and no error on a stream is the end of the stream.
struct IoResult {
    std::size_t count = 0;
    OsError error;
};

// Owns one socket. No child process inherits it and none of its operations
// raises a signal. One thread may close it only when no other one uses the
// handle: shutdownBoth() is what ends the calls of others.
class VORN_EXPORT Socket {
public:
    Socket() = default;
    explicit Socket(SocketHandle handle) : handle_(handle) {}
    ~Socket() { close(); }
    Socket(Socket&& other) noexcept : handle_(other.release()) {}
    Socket& operator=(Socket&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    SocketHandle handle() const { return handle_; }
    explicit operator bool() const { return handle_ != kNoSocket; }
    SocketHandle release() { return std::exchange(handle_, kNoSocket); }
    void reset(SocketHandle handle) {
        close();
        handle_ = handle;
    }
    void close();

private:
    SocketHandle handle_ = kNoSocket;
};

// ---- making sockets; each returns the error and leaves `out` alone on failure

// Listens on a numeric local address or on all of them ("*": IPv6 and IPv4 in
// one socket where the system has IPv6). Port 0 takes a free one. The listening
// socket does not block (see accept). A port of a process that has ended can be
// had again at once; one that is in use never.
VORN_EXPORT OsError listenTcp(std::uint16_t port, int backlog, const std::string& address,
                              Socket& out);
// A datagram socket for receiveFrom and sendTo. Does not block.
VORN_EXPORT OsError bindUdp(std::uint16_t port, const std::string& address, Socket& out);
// The next client of a listening socket: never waits, WouldBlock when nobody is
// there. The accepted socket blocks.
VORN_EXPORT OsError accept(SocketHandle listener, Socket& out, SocketAddress& peer);
// Connects and waits for the outcome as long as the system does.
VORN_EXPORT OsError connectTcp(const SocketAddress& peer, Socket& out);
// Begins to connect; `out` does not block. Done when it becomes writable; the
// outcome is then pendingError().
VORN_EXPORT OsError startConnectTcp(const SocketAddress& peer, Socket& out);
// A blocking datagram socket with one peer, for send and receive.
VORN_EXPORT OsError connectUdp(const SocketAddress& peer, Socket& out);

// ---- on a borrowed handle

VORN_EXPORT OsError setNonBlocking(SocketHandle socket, bool on);
// Probes a silent peer after 60 s, then every 10 s; six probes without an
// answer break the connection.
VORN_EXPORT OsError setKeepAlive(SocketHandle socket);
VORN_EXPORT OsError setNoDelay(SocketHandle socket, bool on);
// The error that a connect under way ended with; none when it succeeded.
VORN_EXPORT OsError pendingError(SocketHandle socket);
VORN_EXPORT OsError localAddress(SocketHandle socket, SocketAddress& out);
VORN_EXPORT OsError peerAddress(SocketHandle socket, SocketAddress& out);

// One system call each, repeated only when a signal interrupted it. They wait
// as the socket's mode says.
VORN_EXPORT IoResult receive(SocketHandle socket, char* buffer, std::size_t size);
// Never waits, whatever the mode: WouldBlock when nothing is there.
VORN_EXPORT IoResult receiveNow(SocketHandle socket, char* buffer, std::size_t size);
VORN_EXPORT IoResult send(SocketHandle socket, const char* data, std::size_t size);
// Both pieces in order with one call; `count` is over both.
VORN_EXPORT IoResult send(SocketHandle socket, std::string_view first, std::string_view second);

// Of a stream: WouldBlock rather than waiting when there is no room, whatever the
// mode. More than a KiB may be sent in part, or wait for the rest.
VORN_EXPORT IoResult sendNow(SocketHandle socket, std::string_view first, std::string_view second);

// Datagrams. `to` becomes the local address that the datagram was sent to, with
// port 0 (no address when the system did not say); given back as `from` of
// sendTo the answer leaves from it.
VORN_EXPORT IoResult receiveFrom(SocketHandle socket, char* buffer, std::size_t size,
                                 SocketAddress& from, SocketAddress& to);
VORN_EXPORT IoResult sendTo(SocketHandle socket, std::string_view datagram, const SocketAddress& to,
                            const SocketAddress& from = {});

// Ends both directions. A call that blocks on the socket in another thread
// returns at once, and so does every later one. Any thread.
VORN_EXPORT void shutdownBoth(SocketHandle socket);
// Tells a stream's peer that nothing more will come. Receiving goes on.
VORN_EXPORT OsError shutdownSend(SocketHandle socket);
// What a look at a stream finds: nothing, bytes to be read, or that the peer has
// closed its sending side or the connection is broken. Consumes nothing. While
// bytes are still to be read, the end behind them shows on some systems only, and
// there only if it has arrived.
enum class StreamLook { Quiet, Bytes, Closed };
VORN_EXPORT StreamLook lookAtStream(SocketHandle socket);
inline bool isPeerClosed(SocketHandle socket) {
    return lookAtStream(socket) == StreamLook::Closed;
}
// Bytes that a receive would find. Of a datagram socket: 0 or more than 0.
VORN_EXPORT std::size_t bytesAvailable(SocketHandle socket);

// ---- waiting

struct SocketWait {
    SocketHandle socket = kNoSocket;  // kNoSocket: passed over
    bool wantRead = false;
    bool wantWrite = false;
    // Results. A socket in error or at its end is readable and writable both,
    // so that the next call on it tells.
    bool canRead = false;
    bool canWrite = false;
};
// Waits until one of them is ready, at most `ms` milliseconds (negative: for
// ever; 0: looks once). `count` is the number of ready ones, 0 after the time.
VORN_EXPORT IoResult waitReady(std::span<SocketWait> sockets, int ms);

// Ends another thread's waitReady: its handle(), wanted for reading, is ready
// from wake() on until clear(). A wake() during clear() may be cleared with it,
// so look at what there is to be done after clear(), not before.
class VORN_EXPORT SocketWaker {
public:
    OsError open();  // once, before the other calls
    SocketHandle handle() const { return receiver_.handle(); }
    void wake();   // any thread; cheap while the handle is ready already
    void clear();  // the waiting thread

private:
    std::atomic<bool> ready_{false};
    Socket receiver_;
    Socket sender_;  // not on every platform
};

}  // namespace VornPlatform
