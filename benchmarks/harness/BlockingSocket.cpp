#include "benchmarks/harness/BlockingSocket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace RuvoBench {
namespace {

constexpr int kBacklog = 4096;
constexpr int kPatienceSeconds = 10;

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

Fd tcpSocket() {
    Fd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket) throwErrno("socket");
    return socket;
}

void setNoDelay(int socket) {
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

}  // namespace

void throwErrno(const char* what) {
    throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

Fd listenOnLoopback(std::uint16_t& port) {
    Fd listener = tcpSocket();
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    if (::bind(listener.get(), reinterpret_cast<sockaddr*>(&address), size) != 0) {
        throwErrno("bind");
    }
    if (::listen(listener.get(), kBacklog) != 0) throwErrno("listen");
    ::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &size);
    port = ntohs(address.sin_port);
    return listener;
}

Fd acceptClient(int listener, int ms) {
    if (ms >= 0) {
        pollfd wait{.fd = listener, .events = POLLIN, .revents = 0};
        if (::poll(&wait, 1, ms) <= 0) throw std::runtime_error("nobody connected in time");
    }
    Fd client(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    if (!client) throwErrno("accept");
    setNoDelay(client.get());
    return client;
}

Fd connectToLoopback(std::uint16_t port) {
    Fd socket = tcpSocket();
    const sockaddr_in address = loopback(port);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throwErrno("connect");
    }
    setNoDelay(socket.get());
    setReceiveTimeout(socket.get(), kPatienceSeconds);
    return socket;
}

void setReceiveTimeout(int socket, int seconds) {
    const timeval patience{.tv_sec = seconds, .tv_usec = 0};
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
}

void setResetOnClose(int socket) {
    const linger reset{.l_onoff = 1, .l_linger = 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
}

void sendAll(int socket, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EINTR) continue;
            throwErrno("send");
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

bool receiveOrEnd(int socket, char* buffer, std::size_t size) {
    while (size > 0) {
        const ssize_t count = ::recv(socket, buffer, size, 0);
        if (count == 0) return false;
        if (count < 0) {
            if (errno == EINTR) continue;
            if (errno == ECONNRESET) return false;
            if (errno == EAGAIN) throw std::runtime_error("no answer in time");
            throwErrno("recv");
        }
        buffer += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

void receiveExactly(int socket, char* buffer, std::size_t size) {
    if (!receiveOrEnd(socket, buffer, size)) throw std::runtime_error("the server hung up");
}

}  // namespace RuvoBench
