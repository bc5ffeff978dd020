#pragma once

#include "runtime/platform/Socket.h"

#include <chrono>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace TestSupport {

// Waits on a socket with a bound: a test that waits longer has failed.
inline void awaitReadable(const VornPlatform::Socket& socket) {
    VornPlatform::SocketWait wait{.socket = socket.handle(), .wantRead = true};
    VornPlatform::waitReady({&wait, 1}, 30000);
    if (!wait.canRead) throw std::runtime_error("nothing came within 30 s");
}

// Reads up to `size` bytes; fewer when the stream ends.
inline std::string readBytes(const VornPlatform::Socket& socket, std::size_t size) {
    std::string bytes(size, '\0');
    std::size_t have = 0;
    while (have < size) {
        awaitReadable(socket);
        const auto got = VornPlatform::receiveNow(socket.handle(), bytes.data() + have, size - have);
        if (got.error || got.count == 0) break;
        have += got.count;
    }
    bytes.resize(have);
    return bytes;
}

// A TCP listener on a free loopback port, as a client's event listener is one.
class TcpListener {
public:
    explicit TcpListener(std::uint16_t port = 0) {
        if (VornPlatform::listenTcp(port, 16, "127.0.0.1", socket_)) {
            throw std::runtime_error("cannot listen");
        }
        VornPlatform::localAddress(socket_.handle(), address_);
    }

    std::uint16_t port() const { return address_.port(); }
    std::string remoteName() const { return "tcp:" + address_.text(); }
    const VornPlatform::SocketAddress& address() const { return address_; }
    VornPlatform::Socket accept() const {
        awaitReadable(socket_);
        VornPlatform::Socket client;
        VornPlatform::SocketAddress peer;
        if (VornPlatform::accept(socket_.handle(), client, peer)) {
            throw std::runtime_error("cannot accept");
        }
        return client;
    }
    // Whether somebody waits to be accepted at this moment.
    bool hasCaller() const {
        VornPlatform::SocketWait wait{.socket = socket_.handle(), .wantRead = true};
        VornPlatform::waitReady({&wait, 1}, 0);
        return wait.canRead;
    }
    void close() { socket_.close(); }

private:
    VornPlatform::Socket socket_;
    VornPlatform::SocketAddress address_;
};

// A listener that cannot be reached: as many callers wait there to be accepted as
// the system allows, so who calls now gets no answer until serve().
class BusyListener {
public:
    BusyListener() {
        for (;;) {
            VornPlatform::Socket caller;
            if (VornPlatform::startConnectTcp(listener_.address(), caller)) {
                throw std::runtime_error("cannot call");
            }
            VornPlatform::SocketWait wait{.socket = caller.handle(), .wantWrite = true};
            VornPlatform::waitReady({&wait, 1}, 100);
            if (!wait.canWrite) return;  // its call is withdrawn
            callers_.push_back(std::move(caller));
        }
    }

    std::string remoteName() const { return listener_.remoteName(); }
    // Accepts the next caller that is none of ours.
    VornPlatform::Socket serve() {
        for (; !callers_.empty(); callers_.pop_back()) listener_.accept();
        return listener_.accept();
    }

private:
    TcpListener listener_;
    std::vector<VornPlatform::Socket> callers_;
};

}  // namespace TestSupport
