#include "runtime/net/VornServerSocket.h"

#include "runtime/net/VornNetLimits.h"
#include "tests/runtime/net/NetTest.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace NetTest;
using TestSupport::readBytes;
using VornNet::VornAcceptedConnections;
using VornNet::VornServerSocket;
using VornSupport::VornException;

namespace {

struct ClientLimit {
    explicit ClientLimit(int limit) { VornNet::VornNetLimits::getInstance().clients = limit; }
    ~ClientLimit() { VornNet::VornNetLimits::getInstance().clients = before; }
    const int before = VornNet::VornNetLimits::getInstance().clients;
};

}  // namespace

TEST(VornServerSocket, ListensOnAllAddressesOfBothFamilies) {
    VornServerSocket server(0, 5, "*");
    EXPECT_NE(server.getPort(), 0);
    EXPECT_EQ(server.getAddress(), "tcp:[::]:" + std::to_string(server.getPort()));
    for (const char* host : {"127.0.0.1", "::1"}) {
        const auto client = connectTo(server.getPort(), host);
        const ConnectionPointer connection = server.waitForClient(true);
        ASSERT_TRUE(connection);
        EXPECT_EQ(connection->getPeerName().find(host[0] == ':' ? "tcp:[::1]:" : "tcp:127.0.0.1:"),
                  0U);
    }
}

TEST(VornServerSocket, ListensOnOneAddress) {
    VornServerSocket server(0, 5, "127.0.0.1");
    EXPECT_EQ(server.getAddress(), "tcp:127.0.0.1:" + std::to_string(server.getPort()));
    EXPECT_THROW(connectTo(server.getPort(), "::1"), std::runtime_error);
}

// 40000 kept in 16 signed bits is -25536, and means 40000.
TEST(VornServerSocket, TakesTheLowSixteenBitsOfThePort) {
    VornServerSocket probe(0, 5, "127.0.0.1");
    const int port = probe.getPort();
    probe.close();
    VornServerSocket server(port - 65536, 5, "127.0.0.1");
    EXPECT_EQ(server.getPort(), port);
}

TEST(VornServerSocket, SaysWhichPortIsBusyAndWhy) {
    VornServerSocket first(0, 5);
    const std::string port = std::to_string(first.getPort());
    try {
        VornServerSocket second(first.getPort(), 5);
        FAIL();
    } catch (const VornException& e) {
        const std::string expected = "VornServerSocket: cannot listen on tcp:*:" + port + ": ";
        EXPECT_EQ(e.getMessage(), expected + VornPlatform::OsError(e.getCode()).text());
        EXPECT_NE(e.getCode(), 0);
    }
    EXPECT_EQ(messageOf([] { VornServerSocket bad(0, 5, "no address"); })
                  .find("VornServerSocket: cannot listen on tcp:no address:0: "),
              0U);
}

TEST(VornServerSocket, LooksOnceWithoutWaiting) {
    VornServerSocket server(0, 5, "127.0.0.1");
    EXPECT_FALSE(server.waitForClient(false));
    const auto client = connectTo(server.getPort());
    EXPECT_TRUE(TestSupport::waitUntil([&] { return bool(server.waitForClient(false)); }));
}

TEST(VornServerSocket, EndsAPendingWaitByClose) {
    VornServerSocket server(0, 5);
    std::atomic<bool> ended{false};
    std::thread waiting([&] {
        EXPECT_FALSE(server.waitForClient(true));
        ended = true;
    });
    server.close();
    waiting.join();
    EXPECT_TRUE(ended);
    EXPECT_FALSE(server.waitForClient(true));
    EXPECT_FALSE(server.waitForClient(false));
    server.close();
}

TEST(VornServerSocket, FreesThePortByClose) {
    auto server = std::make_unique<VornServerSocket>(0, 5);
    const int port = server->getPort();
    std::thread waiting([&] {
        while (server->waitForClient(true)) {}
    });
    const auto client = connectTo(port);
    server->close();
    EXPECT_THROW(connectTo(port), std::runtime_error);
    VornServerSocket next(port, 5);
    EXPECT_EQ(next.getPort(), port);
    waiting.join();
}

TEST(VornServerSocket, KeepsAcceptedConnectionsOverItsClose) {
    TcpPair pair;
    pair.server.close();
    sendBytes(pair.client, std::string("\0\0\0\7", 4));
    EXPECT_EQ(pair->readInt(), 7);
}

TEST(VornServerSocket, MakesItsConnectionsKnownUntilTheyClose) {
    auto& accepted = VornAcceptedConnections::getInstance();
    ASSERT_EQ(accepted.size(), 0);
    {
        TcpPair first;
        TcpPair second;
        EXPECT_EQ(accepted.size(), 2);
        first->close();
        EXPECT_EQ(accepted.size(), 1);
    }
    EXPECT_EQ(accepted.size(), 0);
}

TEST(VornServerSocket, ClosesClientsBeyondTheLimitAtOnce) {
    const ClientLimit scope(2);
    VornServerSocket server(0, 5, "127.0.0.1");
    std::vector<VornPlatform::Socket> clients;
    std::vector<ConnectionPointer> connections;
    for (int i = 0; i < 2; ++i) {
        clients.push_back(connectTo(server.getPort()));
        connections.push_back(server.waitForClient(true));
    }
    const auto refused = connectTo(server.getPort());
    EXPECT_TRUE(TestSupport::waitUntil([&] {
        EXPECT_FALSE(server.waitForClient(false));
        VornPlatform::SocketWait wait{.socket = refused.handle(), .wantRead = true};
        VornPlatform::waitReady({&wait, 1}, 1);
        return wait.canRead;
    }));
    EXPECT_EQ(readBytes(refused, 1), "");

    connections.pop_back();
    const auto next = connectTo(server.getPort());
    EXPECT_TRUE(server.waitForClient(true));
}

TEST(VornServerSocket, GoesOnAfterClientsThatLeaveAtOnce) {
    VornServerSocket server(0, 5, "127.0.0.1");
    for (int i = 0; i < 3; ++i) connectTo(server.getPort()).close();
    const auto client = connectTo(server.getPort());
    sendBytes(client, "x");
    VornPlatform::shutdownSend(client.handle());
    std::string read;
    for (int i = 0; i < 4; ++i) {
        const ConnectionPointer connection = server.waitForClient(true);
        ASSERT_TRUE(connection);
        read += readToEnd(*connection) + ";";
    }
    EXPECT_EQ(read, ";;;x;");
}

TEST(VornAcceptedConnections, AbortsAllOfThem) {
    VornServerSocket server(0, 5, "127.0.0.1");
    constexpr int kCount = 20;
    std::vector<VornPlatform::Socket> clients;
    std::vector<std::thread> threads;
    std::atomic<int> ended{0};
    for (int i = 0; i < kCount; ++i) {
        clients.push_back(connectTo(server.getPort()));
        threads.emplace_back([connection = server.waitForClient(true), &ended] {
            EXPECT_THROW(connection->readInt(), VornException);
            ++ended;
            connection->close();
        });
    }
    EXPECT_EQ(VornAcceptedConnections::getInstance().abortAll(), kCount);
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(ended, kCount);
    EXPECT_EQ(VornAcceptedConnections::getInstance().size(), 0);
    EXPECT_EQ(VornAcceptedConnections::getInstance().abortAll(), 0);
}
