#include "runtime/platform/PeerOwner.h"

#include "tests/runtime/net/NetTest.h"

#include <gtest/gtest.h>

using namespace NetTest;
using namespace VornPlatform;

namespace {

// The owner of a client that has spoken: an emulator does not tell the process
// of a socket before the process has used it.
PeerOwnerResult ownerOfClient(TcpPair& pair) {
    if (pair.client) sendBytes(pair.client, "RUVO\n");
    SocketAddress peer;
    SocketAddress local;
    EXPECT_FALSE(peerAddress(pair->getSocket(), peer));
    EXPECT_FALSE(localAddress(pair->getSocket(), local));
    return findPeerOwner(Transport::Tcp, peer, local);
}

}  // namespace

TEST(PeerOwner, FindsTheOwnerOfAStream) {
    TcpPair pair;
    const auto found = ownerOfClient(pair);
    ASSERT_TRUE(found.owner) << found.error.text();
    EXPECT_TRUE(found.owner->isCurrentUser()) << found.owner->describe();
    EXPECT_TRUE(pair->isLocalConnection());

    pair.client.close();
    const auto gone = ownerOfClient(pair);
    EXPECT_FALSE(gone.owner) << "nobody's any more";
    EXPECT_TRUE(gone.error);
}

// Of IPv6 streams an emulator never tells the process: refused, which is not the
// same as not being there.
TEST(PeerOwner, FindsIPv6StreamsAtLeast) {
    TcpPair pair("::1");
    const auto found = ownerOfClient(pair);
    if (found.owner) {
        EXPECT_TRUE(found.owner->isCurrentUser()) << found.owner->describe();
    } else {
        EXPECT_EQ(found.error.condition(), OsCondition::AccessDenied);
    }
    EXPECT_EQ(pair->isLocalConnection(), found.owner != nullptr);
}

TEST(PeerOwner, KnowsTheGroupsOfAProcess) {
    Socket server;
    ASSERT_FALSE(bindUdp(0, "127.0.0.1", server));
    SocketAddress local;
    ASSERT_FALSE(localAddress(server.handle(), local));
    const Socket client = udpTo(local.port());
    sendBytes(client, "x");
    SocketAddress peer;
    ASSERT_FALSE(localAddress(client.handle(), peer));
    const auto found = findPeerOwner(Transport::Udp, peer, local);
    ASSERT_TRUE(found.owner) << found.error.text();
    EXPECT_TRUE(found.owner->isMemberOf("Everyone"));
    EXPECT_FALSE(found.owner->isMemberOf(""));
    EXPECT_FALSE(found.owner->isMemberOf("no such group"));
    EXPECT_EQ(found.owner->isMemberOf("Administrators"), found.owner->isAdministrator());
    EXPECT_EQ(found.owner->describe().find("process "), 0U);
    EXPECT_EQ(makeOwnerOfUser(0), nullptr);
}
