// RuvoTCPServer and RuvoUDPServer on real sockets of the loopback.

#include "engines/RuvoClientAcceptor.h"
#include "engines/RuvoTCPServer.h"
#include "engines/RuvoUDPServer.h"
#include "runtime/net/VornServerSocket.h"
#include "runtime/net/VornUDPServerSocket.h"
#include "runtime/platform/Socket.h"
#include "runtime/support/VornMutex.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestListener.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using namespace RuvoService;
using TestSupport::LogCapture;
using TestSupport::waitUntil;
using VornMonitor::VornEventMonitor;

namespace {

using Connection = VornSupport::VornSmartPointer<VornNet::VornConnection>;
using Endpoint = VornSupport::VornSmartPointer<VornNet::VornIPCServer>;
using Properties = VornEventMonitor::Properties;

// Keeps the clients that come.
class KeepingAcceptor : public RuvoClientAcceptor {
public:
    KeepingAcceptor() { RuvoClientAcceptor::set(this); }
    ~KeepingAcceptor() override { RuvoClientAcceptor::set(nullptr); }
    void acceptClient(Connection connection) override {
        VornSupport::VornMutexLock lock(mutex_);
        clients_.push_back(std::move(connection));
    }
    Connection first() {
        waitUntil([&] {
            VornSupport::VornMutexLock lock(mutex_);
            return !clients_.empty();
        });
        VornSupport::VornMutexLock lock(mutex_);
        return clients_.empty() ? nullptr : clients_.front();
    }

private:
    VornSupport::VornMutex mutex_;
    std::vector<Connection> clients_ VORN_GUARDED_BY(mutex_);
};

VornSupport::VornSmartPointer<Properties> propertiesWith(const std::string& key,
                                                         const std::string& value) {
    const auto properties = VornSupport::makeCounted<Properties>();
    properties->setProperty(key, value);
    return properties;
}

// The loopback address of the port that "tcp:0.0.0.0:4711" tells.
VornPlatform::SocketAddress loopback(const std::string& address) {
    const auto port = std::stoi(address.substr(address.rfind(':') + 1));
    return *VornPlatform::SocketAddress::parse("127.0.0.1", static_cast<std::uint16_t>(port));
}

std::vector<std::string> failuresOf(std::string className, const LogCapture& log) {
    className += "::initialize: exception setting server - ";
    return log.beginning(className);
}

template <class Server>
class SocketServer : public testing::Test {};

struct Tcp {
    using Server = RuvoTCPServer;
    static constexpr const char* kName = "RuvoTCPServer";
    static constexpr const char* kMonitor = "TCPServer";
    static constexpr const char* kKey = "ruvod.tcp-server.port";
    static constexpr const char* kScheme = "tcp:";
    static Endpoint hold() { return Endpoint(new VornNet::VornServerSocket(0, 5, "*")); }
    static VornPlatform::OsError connect(const VornPlatform::SocketAddress& to,
                                         VornPlatform::Socket& socket) {
        const auto error = VornPlatform::startConnectTcp(to, socket);
        if (error) return error;
        VornPlatform::SocketWait wait{.socket = socket.handle(), .wantWrite = true};
        VornPlatform::waitReady({&wait, 1}, 20000);
        return VornPlatform::pendingError(socket.handle());
    }
};

struct Udp {
    using Server = RuvoUDPServer;
    static constexpr const char* kName = "RuvoUDPServer";
    static constexpr const char* kMonitor = "UDPServer";
    static constexpr const char* kKey = "ruvod.udp-server.port";
    static constexpr const char* kScheme = "udp:";
    static Endpoint hold() { return Endpoint(new VornNet::VornUDPServerSocket(0, "*", 512)); }
    static VornPlatform::OsError connect(const VornPlatform::SocketAddress& to,
                                         VornPlatform::Socket& socket) {
        return VornPlatform::connectUdp(to, socket);
    }
};

using Kinds = testing::Types<Tcp, Udp>;

}  // namespace

TYPED_TEST_SUITE(SocketServer, Kinds);

TYPED_TEST(SocketServer, BearsItsFixedName) {
    typename TypeParam::Server server;
    EXPECT_EQ(server.getMonitorName(), TypeParam::kMonitor);
    EXPECT_EQ(server.getName(), TypeParam::kMonitor);
}

TYPED_TEST(SocketServer, HandsAClientOfItsPortToTheAcceptor) {
    KeepingAcceptor acceptor;
    typename TypeParam::Server server;
    VornEventMonitor& monitor = server;
    monitor.setProperties(propertiesWith(TypeParam::kKey, "0"));
    ASSERT_TRUE(monitor.start());
    const std::string address = server.getAddress();
    ASSERT_TRUE(address.starts_with(TypeParam::kScheme)) << address;

    VornPlatform::Socket client;
    ASSERT_FALSE(TypeParam::connect(loopback(address), client));
    ASSERT_FALSE(VornPlatform::send(client.handle(), "RUVO\n", 5).error);
    const Connection accepted = acceptor.first();
    ASSERT_TRUE(accepted);
    char line[16];
    bool closed = false;
    EXPECT_STREQ(accepted->readLine(line, sizeof line, closed), "RUVO");
    accepted->close();
    EXPECT_TRUE(monitor.stop());
    EXPECT_EQ(server.getAddress(), "");
}

TYPED_TEST(SocketServer, CannotStartWithoutItsKey) {
    typename TypeParam::Server server;
    VornEventMonitor& monitor = server;
    monitor.setProperties(propertiesWith("ruvod.other-server.port", "0"));
    const LogCapture log(9);
    EXPECT_FALSE(monitor.start());
    const auto lines = failuresOf(TypeParam::kName, log);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find(TypeParam::kKey), std::string::npos) << lines[0];
    EXPECT_TRUE(lines[0].ends_with(" (0)")) << lines[0];
}

TYPED_TEST(SocketServer, CannotStartOnAPortThatIsTaken) {
    const auto holder = TypeParam::hold();
    const int port = loopback(holder->getAddress()).port();
    typename TypeParam::Server server;
    VornEventMonitor& monitor = server;
    monitor.setProperties(propertiesWith(TypeParam::kKey, std::to_string(port)));
    const LogCapture log(9);
    EXPECT_FALSE(monitor.start());
    EXPECT_EQ(failuresOf(TypeParam::kName, log).size(), 1u);
    EXPECT_EQ(server.getAddress(), "");
}

TYPED_TEST(SocketServer, ListensOnThePortThatTheLowSixteenBitsName) {
    // The system gives out ports above 32767, which the narrowing makes negative.
    int port = 0;
    {
        typename TypeParam::Server probe;
        VornEventMonitor& monitor = probe;
        monitor.setProperties(propertiesWith(TypeParam::kKey, "0"));
        ASSERT_TRUE(monitor.start());
        port = loopback(probe.getAddress()).port();
    }
    typename TypeParam::Server server;
    VornEventMonitor& monitor = server;
    monitor.setProperties(propertiesWith(TypeParam::kKey, std::to_string(port + 65536)));
    ASSERT_TRUE(monitor.start()) << port;
    EXPECT_EQ(loopback(server.getAddress()).port(), port);
}
