#include "runtime/platform/Socket.h"

#include "tests/runtime/net/NetTest.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

using namespace NetTest;
using namespace VornPlatform;

namespace {

int option(SocketHandle socket, int level, int name) {
    int value = -1;
    socklen_t size = sizeof value;
    EXPECT_EQ(::getsockopt(static_cast<int>(socket), level, name, &value, &size), 0);
    return value;
}

}  // namespace

// (An emulator shows a reset as the plain end of the stream.)
TEST(Socket, TellsAResetFromTheEndOfTheStream) {
    TcpPair pair;
    pair->writeInt(1);
    pair->flush();
    TestSupport::awaitReadable(pair.client);
    pair.client.close();  // with unread bytes: a reset
    char byte;
    const auto got = receive(pair->getSocket(), &byte, 1);
    EXPECT_EQ(got.error.condition(), OsCondition::ConnectionLost);
}

TEST(Socket, IsInheritedByNoChild) {
    TcpPair pair;
    Socket datagrams;
    ASSERT_FALSE(bindUdp(0, "*", datagrams));
    Socket listener;
    ASSERT_FALSE(listenTcp(0, 5, "*", listener));
    const Socket client = udpTo(pair.server.getPort());
    SocketWaker waker;
    ASSERT_FALSE(waker.open());
    for (const SocketHandle handle : {pair.client.handle(), pair->getSocket(), datagrams.handle(),
                                      listener.handle(), client.handle(), waker.handle()}) {
        EXPECT_NE(::fcntl(static_cast<int>(handle), F_GETFD) & FD_CLOEXEC, 0);
    }
}

// A peer that vanishes without a word is noticed after 60 s and six probes.
TEST(Socket, AsksSilentPeersOfConnections) {
    TcpPair pair;
    TestSupport::TcpListener listener;
    VornNet::VornSocketConnection made("127.0.0.1", listener.port());
    made.establish();
    VornNet::VornSocketConnection gathering("127.0.0.1", listener.port(), 0);
    gathering.establish();
    for (const SocketHandle socket : {pair->getSocket(), made.getSocket()}) {
        EXPECT_EQ(option(socket, SOL_SOCKET, SO_KEEPALIVE), 1);
        EXPECT_EQ(option(socket, IPPROTO_TCP, TCP_KEEPIDLE), 60);
        EXPECT_EQ(option(socket, IPPROTO_TCP, TCP_KEEPINTVL), 10);
        EXPECT_EQ(option(socket, IPPROTO_TCP, TCP_KEEPCNT), 6);
        EXPECT_EQ(option(socket, IPPROTO_TCP, TCP_NODELAY), 1);
    }
    EXPECT_EQ(option(gathering.getSocket(), IPPROTO_TCP, TCP_NODELAY), 0);
}
