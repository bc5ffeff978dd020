#include "runtime/platform/PeerOwner.h"

#include "runtime/platform/Socket.h"
#include "tests/runtime/net/NetTest.h"

#include <gtest/gtest.h>

using namespace NetTest;
using namespace VornPlatform;

namespace {

// The peer's and the server's address of a datagram on its way to `server`.
std::pair<SocketAddress, SocketAddress> receivePair(const Socket& server, int port) {
    TestSupport::awaitReadable(server);
    char byte;
    SocketAddress from;
    SocketAddress to;
    EXPECT_FALSE(receiveFrom(server.handle(), &byte, 1, from, to).error);
    to.setPort(static_cast<std::uint16_t>(port));
    return {from, to};
}

int portOf(const Socket& socket) {
    SocketAddress address;
    EXPECT_FALSE(localAddress(socket.handle(), address));
    return address.port();
}

}  // namespace

TEST(PeerOwner, FindsTheOwnerOfAConnectedDatagramSocket) {
    Socket server;
    ASSERT_FALSE(bindUdp(0, "*", server));
    for (const char* host : {"127.0.0.1", "127.0.0.2", "::1"}) {
        Socket client = udpTo(portOf(server), host);
        sendBytes(client, "x");
        const auto [peer, local] = receivePair(server, portOf(server));
        const auto found = findPeerOwner(Transport::Udp, peer, local);
        ASSERT_TRUE(found.owner) << host << ": " << found.error.text();
        EXPECT_TRUE(found.owner->isCurrentUser()) << found.owner->describe();
        client.close();
        const auto gone = findPeerOwner(Transport::Udp, peer, local);
        EXPECT_FALSE(gone.owner);
        EXPECT_EQ(gone.error.condition(), OsCondition::NotFound);
    }
}

TEST(PeerOwner, FindsTheOwnerOfAnOpenDatagramSocket) {
    Socket server;
    ASSERT_FALSE(bindUdp(0, "*", server));
    for (const char* bound : {"127.0.0.1", "*"}) {
        Socket client;
        ASSERT_FALSE(bindUdp(0, bound, client));
        SocketAddress target = addressOf("127.0.0.1", portOf(server));
        if (bound[0] == '*') target = target.mapped();
        ASSERT_FALSE(sendTo(client.handle(), "x", target).error);
        const auto [peer, local] = receivePair(server, portOf(server));
        const auto found = findPeerOwner(Transport::Udp, peer, local);
        ASSERT_TRUE(found.owner) << bound << ": " << found.error.text();
        EXPECT_TRUE(found.owner->isCurrentUser());
    }
}

TEST(PeerOwner, IsNobodyWithoutASocket) {
    TcpPair pair;
    SocketAddress peer;
    SocketAddress local;
    ASSERT_FALSE(peerAddress(pair->getSocket(), peer));
    ASSERT_FALSE(localAddress(pair->getSocket(), local));
    for (const Transport transport : {Transport::Tcp, Transport::Udp}) {
        for (const char* host : {"127.0.0.1", "::1"}) {
            const auto found = findPeerOwner(transport, addressOf(host, 1), addressOf(host, 2));
            EXPECT_FALSE(found.owner);
            EXPECT_EQ(found.error.condition(), OsCondition::NotFound);
        }
    }
    // Half of the pair is right.
    EXPECT_FALSE(findPeerOwner(Transport::Tcp, peer, addressOf("127.0.0.1", 2)).owner);
    EXPECT_FALSE(findPeerOwner(Transport::Tcp, addressOf("127.0.0.1", 2), local).owner);
    EXPECT_FALSE(findPeerOwner(Transport::Udp, peer, local).owner);
    // The listener's port is not a peer.
    EXPECT_FALSE(findPeerOwner(Transport::Tcp, local, addressOf("127.0.0.1", 2)).owner);
    EXPECT_FALSE(findPeerOwner(Transport::Tcp, SocketAddress(), local).owner);
    EXPECT_FALSE(findPeerOwner(Transport::Tcp, addressOf("::1", 5), local).owner);
}
