#include "runtime/platform/PeerOwner.h"

#include "tests/runtime/net/NetTest.h"

#include <gtest/gtest.h>

using namespace NetTest;
using namespace VornPlatform;

// Wine knows the connection and does not tell its process: that must be told
// from "no such connection", and it must never become somebody else.
TEST(PeerOwner, FindsTheOwnerOfAStreamWhereTheSystemTellsIt) {
    for (const char* host : {"127.0.0.1", "::1"}) {
        TcpPair pair(host);
        SocketAddress peer;
        SocketAddress local;
        ASSERT_FALSE(peerAddress(pair->getSocket(), peer));
        ASSERT_FALSE(localAddress(pair->getSocket(), local));
        const auto found = findPeerOwner(Transport::Tcp, peer, local);
        if (found.owner) {
            EXPECT_TRUE(found.owner->isCurrentUser()) << found.owner->describe();
        } else {
            EXPECT_EQ(found.error.condition(), OsCondition::AccessDenied);
            EXPECT_FALSE(pair->isLocalConnection());
        }
    }
}

TEST(PeerOwner, KnowsTheGroupsOfAProcess) {
    Socket server;
    ASSERT_FALSE(bindUdp(0, "127.0.0.1", server));
    SocketAddress local;
    ASSERT_FALSE(localAddress(server.handle(), local));
    const Socket client = udpTo(local.port());
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
