#include "runtime/platform/Socket.h"

#include "runtime/platform/SocketCalls_windows.h"
#include "tests/runtime/net/NetTest.h"

#include <gtest/gtest.h>

using namespace NetTest;
using namespace VornPlatform;

namespace {

int option(SocketHandle socket, int level, int name) {
    int value = 0;  // of some options the system writes one byte
    int size = sizeof value;
    EXPECT_EQ(::getsockopt(native(socket), level, name, reinterpret_cast<char*>(&value), &size), 0);
    return value;
}

}  // namespace

TEST(Socket, AsksSilentPeersOfConnections) {
    TcpPair pair;
    TestSupport::TcpListener listener;
    VornNet::VornSocketConnection made("127.0.0.1", listener.port());
    made.establish();
    EXPECT_EQ(option(pair.client.handle(), SOL_SOCKET, SO_KEEPALIVE), 0) << "not by itself";
    for (const SocketHandle socket : {pair->getSocket(), made.getSocket()}) {
        EXPECT_NE(option(socket, SOL_SOCKET, SO_KEEPALIVE), 0);
        EXPECT_NE(option(socket, IPPROTO_TCP, TCP_NODELAY), 0);
    }
}

// What WSAPoll of older systems does not tell of.
TEST(Socket, SeesAFailedConnectWithoutTakingItsError) {
    Socket listener;
    ASSERT_FALSE(listenTcp(0, 5, "127.0.0.1", listener));
    SocketAddress address;
    ASSERT_FALSE(localAddress(listener.handle(), address));
    Socket connected;
    ASSERT_FALSE(connectTcp(address, connected));
    EXPECT_FALSE(hasConnectFailed(connected.handle()));
    listener.close();
    Socket refused;
    ASSERT_FALSE(startConnectTcp(address, refused));
    EXPECT_TRUE(TestSupport::waitUntil([&] { return hasConnectFailed(refused.handle()); }));
    EXPECT_TRUE(hasConnectFailed(refused.handle()));
    EXPECT_EQ(pendingError(refused.handle()).condition(), OsCondition::ConnectionRefused);
}
