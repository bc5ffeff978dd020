#include "runtime/platform/PeerOwner.h"

#include "tests/runtime/net/NetTest.h"

#include <gtest/gtest.h>

using namespace NetTest;
using namespace VornPlatform;

// An emulator tells the process of a socket only after the process has used it,
// as a client does that has spoken.
TEST(PeerOwner, FindsTheOwnerOfAStream) {
    for (const char* host : {"127.0.0.1", "::1"}) {
        TcpPair pair(host);
        sendBytes(pair.client, "RUVO\n");
        SocketAddress peer;
        SocketAddress local;
        ASSERT_FALSE(peerAddress(pair->getSocket(), peer));
        ASSERT_FALSE(localAddress(pair->getSocket(), local));
        const auto found = findPeerOwner(Transport::Tcp, peer, local);
        ASSERT_TRUE(found.owner) << found.error.text();
        EXPECT_TRUE(found.owner->isCurrentUser()) << found.owner->describe();
        EXPECT_TRUE(pair->isLocalConnection());

        pair.client.close();
        const auto gone = findPeerOwner(Transport::Tcp, peer, local);
        EXPECT_FALSE(gone.owner) << "nobody's any more";
        EXPECT_TRUE(gone.error);
    }
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
