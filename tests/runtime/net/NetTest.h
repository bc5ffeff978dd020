#pragma once

#include "runtime/net/VornServerSocket.h"
#include "runtime/net/VornSocketConnection.h"
#include "runtime/platform/Socket.h"
#include "runtime/support/VornException.h"
#include "tests/support/TestListener.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace NetTest {

using ConnectionPointer = VornSupport::VornSmartPointer<VornNet::VornConnection>;

inline std::string messageOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const VornSupport::VornException& e) {
        return e.getMessage();
    }
    return "nothing was thrown";
}

inline VornPlatform::SocketAddress addressOf(const std::string& host, int port) {
    return VornPlatform::SocketAddress::parse(host, static_cast<std::uint16_t>(port)).value();
}

inline VornPlatform::Socket connectTo(int port, const std::string& host = "127.0.0.1") {
    VornPlatform::Socket socket;
    const auto error = VornPlatform::connectTcp(addressOf(host, port), socket);
    if (error) throw std::runtime_error("cannot connect: " + error.text());
    return socket;
}

inline VornPlatform::Socket udpTo(int port, const std::string& host = "127.0.0.1") {
    VornPlatform::Socket socket;
    const auto error = VornPlatform::connectUdp(addressOf(host, port), socket);
    if (error) throw std::runtime_error("cannot make a datagram socket: " + error.text());
    return socket;
}

// All bytes of a stream, or one datagram.
inline void sendBytes(const VornPlatform::Socket& socket, std::string_view bytes) {
    do {
        const auto sent = VornPlatform::send(socket.handle(), bytes.data(), bytes.size());
        if (sent.error) throw std::runtime_error("cannot send: " + sent.error.text());
        bytes.remove_prefix(sent.count);
    } while (!bytes.empty());
}

// What the connection reads until its stream ends.
inline std::string readToEnd(VornNet::VornConnection& connection) {
    std::string all;
    char buffer[1000];
    try {
        for (;;) {
            int count = 0;
            connection.read(buffer, sizeof buffer, count, false);
            all.append(buffer, static_cast<std::size_t>(count));
        }
    } catch (const VornSupport::VornException&) {
        return all;
    }
}

// A client and the server's connection to it.
struct TcpPair {
    TcpPair() : TcpPair("127.0.0.1") {}
    explicit TcpPair(const std::string& host) : server(0, 5) {
        client = connectTo(server.getPort(), host);
        connection = server.waitForClient(true);
    }
    VornNet::VornConnection& operator*() const { return *connection; }
    VornNet::VornConnection* operator->() const { return connection.get(); }

    VornNet::VornServerSocket server;
    VornPlatform::Socket client;
    ConnectionPointer connection;
};

}  // namespace NetTest
