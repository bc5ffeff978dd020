#include "tests/client/ScriptedDaemon.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace ClientTest {
namespace {

using VornPlatform::IoResult;
using VornPlatform::OsCondition;
using VornPlatform::Socket;
using VornPlatform::SocketAddress;

constexpr int kPatienceMs = 20000;

void awaitReady(const Socket& socket, bool forWriting) {
    VornPlatform::SocketWait wait;
    wait.socket = socket.handle();
    wait.wantRead = !forWriting;
    wait.wantWrite = forWriting;
    if (VornPlatform::waitReady({&wait, 1}, kPatienceMs).count == 0) {
        throw std::runtime_error("the client did not do its part in time");
    }
}

class TcpPeer final : public ScriptedPeer {
public:
    explicit TcpPeer(Socket&& socket) : socket_(std::move(socket)) {
        VornPlatform::setNonBlocking(socket_.handle(), true);
    }

    std::string read(std::size_t size) override {
        std::string result(size, '\0');
        std::size_t have = 0;
        while (have < size) {
            awaitReady(socket_, false);
            const IoResult got =
                VornPlatform::receive(socket_.handle(), result.data() + have, size - have);
            if (got.error.condition() == OsCondition::WouldBlock) continue;
            if (got.error || got.count == 0) throw std::runtime_error("the client has gone");
            have += got.count;
        }
        return result;
    }

    void send(std::string_view bytes) override {
        while (!bytes.empty()) {
            awaitReady(socket_, true);
            const IoResult sent =
                VornPlatform::send(socket_.handle(), bytes.data(), bytes.size());
            if (sent.error.condition() == OsCondition::WouldBlock) continue;
            if (sent.error) throw std::runtime_error("the client has gone");
            bytes.remove_prefix(sent.count);
        }
    }

    void awaitClose() override {
        char buffer[4096];
        for (;;) {
            awaitReady(socket_, false);
            const IoResult got = VornPlatform::receive(socket_.handle(), buffer, sizeof buffer);
            if (got.error.condition() == OsCondition::WouldBlock) continue;
            if (got.error || got.count == 0) return;
        }
    }

    void close() override { socket_.close(); }

private:
    Socket socket_;
};

class UdpPeer final : public ScriptedPeer {
public:
    UdpPeer(Socket& socket, std::vector<std::size_t>& sizes) : socket_(socket), sizes_(sizes) {}

    std::string read(std::size_t size) override {
        while (held_.size() < size) {
            if (receive() == 0) throw std::runtime_error("the client has gone");
        }
        const std::string result = held_.substr(0, size);
        held_.erase(0, size);
        return result;
    }

    void send(std::string_view bytes) override {
        awaitReady(socket_, true);
        VornPlatform::sendTo(socket_.handle(), bytes, client_);
    }

    void awaitClose() override {
        while (receive() != 0) {
        }
    }

    void close() override { send({}); }

private:
    std::size_t receive() {
        char buffer[65536];
        SocketAddress to;
        awaitReady(socket_, false);
        const IoResult got =
            VornPlatform::receiveFrom(socket_.handle(), buffer, sizeof buffer, client_, to);
        if (got.error) throw std::runtime_error("receive: " + got.error.text());
        sizes_.push_back(got.count);
        held_.append(buffer, got.count);
        return got.count;
    }

    Socket& socket_;
    std::vector<std::size_t>& sizes_;
    SocketAddress client_;
    std::string held_;
};

std::uint16_t portOf(const Socket& socket) {
    SocketAddress address;
    VornPlatform::localAddress(socket.handle(), address);
    return address.port();
}

}  // namespace

std::string u16(unsigned value) {
    return {static_cast<char>(value >> 8 & 0xff), static_cast<char>(value & 0xff)};
}

std::string i32(std::int64_t value) {
    const auto wrapped = static_cast<std::uint32_t>(value);
    return u16(wrapped >> 16) + u16(wrapped & 0xffff);
}

std::string str(std::string_view text) {
    return i32(static_cast<std::int64_t>(text.size())) + std::string(text);
}

std::string bytes(std::initializer_list<int> values) {
    std::string result;
    for (const int value : values) result += static_cast<char>(value);
    return result;
}

std::string engineRequest(std::string_view monitor, std::string_view command,
                          std::string_view arguments) {
    return u16(7777) + str(monitor) + str(command) + std::string(arguments);
}

std::string delivery(std::int64_t handle, std::string_view sender, std::string_view event,
                     std::string_view message, std::string_view data) {
    return i32(handle) + str(sender) + str(event) + str(message) + str(data);
}

void ScriptedPeer::open() {
    expect("RUVO\n");
    send("+\r\n");
}

void ScriptedPeer::expect(std::string_view wanted) {
    const std::string came = read(wanted.size());
    EXPECT_EQ(came, wanted);
    if (came != wanted) throw std::runtime_error("the client sent something else");
}

void ScriptedPeer::serve(std::string_view request, std::string_view answer) {
    expect(u16(1) + std::string(request));
    send(answer);
}

ScriptedDaemon::ScriptedDaemon(std::vector<Script> scripts, Transport transport)
    : transport_(transport) {
    const VornPlatform::OsError error =
        transport == Transport::Tcp ? VornPlatform::listenTcp(0, 5, "127.0.0.1", socket_)
                                    : VornPlatform::bindUdp(0, "127.0.0.1", socket_);
    if (error) throw std::runtime_error("cannot listen: " + error.text());
    port_ = portOf(socket_);
    thread_ = std::thread([this, scripts = std::move(scripts)] {
        for (const Script& script : scripts) serve(script);
    });
}

ScriptedDaemon::~ScriptedDaemon() { join(); }

void ScriptedDaemon::join() {
    if (thread_.joinable()) thread_.join();
}

Ruvo::RuvoClientOptions ScriptedDaemon::options() const {
    Ruvo::RuvoClientOptions options;
    options.port = port_;
    options.useUdp = transport_ == Transport::Udp;
    options.connectTimeout = std::chrono::seconds(20);
    options.timeout = std::chrono::seconds(20);
    return options;
}

void ScriptedDaemon::serve(const Script& script) {
    try {
        if (transport_ == Transport::Udp) {
            UdpPeer peer(socket_, datagramSizes_);
            script(peer);
            return;
        }
        awaitReady(socket_, false);
        Socket client;
        SocketAddress address;
        if (VornPlatform::accept(socket_.handle(), client, address)) {
            throw std::runtime_error("cannot accept");
        }
        TcpPeer peer(std::move(client));
        script(peer);
    } catch (const std::exception& error) {
        ADD_FAILURE() << "scripted daemon: " << error.what();
    }
}

std::uint16_t unusedPort() {
    Socket socket;
    if (VornPlatform::listenTcp(0, 1, "127.0.0.1", socket)) {
        throw std::runtime_error("cannot listen");
    }
    return portOf(socket);
}

}  // namespace ClientTest
