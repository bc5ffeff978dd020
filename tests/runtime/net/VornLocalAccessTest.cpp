#include "runtime/net/VornLocalAccess.h"

#include "runtime/net/VornUDPServerSocket.h"
#include "tests/runtime/net/NetTest.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <thread>

using namespace NetTest;
using VornNet::VornLocalAccess;
using VornPlatform::OsError;
using VornPlatform::PeerOwnerResult;
using VornPlatform::SocketAddress;
using VornPlatform::Transport;

namespace {

struct FakeOwner : VornPlatform::PeerOwner {
    bool current = false;
    bool administrator = false;
    std::set<std::string> groups;
    bool isCurrentUser() const override { return current; }
    bool isAdministrator() const override { return administrator; }
    bool isMemberOf(const std::string& group) const override { return groups.count(group) != 0; }
    std::string describe() const override { return "somebody"; }
};

VornLocalAccess::OwnerLookup always(const FakeOwner& owner) {
    return [owner](Transport, const SocketAddress&, const SocketAddress&) {
        return PeerOwnerResult{std::make_unique<FakeOwner>(owner), {}};
    };
}

const SocketAddress kServer = addressOf("127.0.0.1", 5000);
const SocketAddress kClient = addressOf("127.0.0.1", 4000);

bool admits(const VornLocalAccess& access, const SocketAddress& peer = kClient) {
    return access.admits(Transport::Tcp, peer, kServer);
}

// Gives the process's own instance back as it was.
struct InstanceScope {
    VornLocalAccess& access = VornLocalAccess::getInstance();
    ~InstanceScope() {
        access.configure("owner", "");
        access.setOwnerLookupForTest(&VornPlatform::findPeerOwner);
    }
};

}  // namespace

TEST(VornLocalAccess, AdmitsTheDaemonsUserAndAdministrators) {
    VornLocalAccess access;
    access.setOwnerLookupForTest(always({}));
    EXPECT_FALSE(admits(access));
    FakeOwner same;
    same.current = true;
    access.setOwnerLookupForTest(always(same));
    EXPECT_TRUE(admits(access));
    FakeOwner root;
    root.administrator = true;
    access.setOwnerLookupForTest(always(root));
    EXPECT_TRUE(admits(access));
}

TEST(VornLocalAccess, AdmitsMembersOfTheConfiguredGroupOnly) {
    VornLocalAccess access;
    FakeOwner member;
    member.groups = {"ruvo", ""};
    access.setOwnerLookupForTest(always(member));
    EXPECT_FALSE(admits(access)) << "no group is configured";
    access.configure("owner", "ruvo");
    EXPECT_TRUE(admits(access));
    access.configure("owner", "others");
    EXPECT_FALSE(admits(access));
    access.configure("owner", "");
    EXPECT_FALSE(admits(access)) << "the empty name is no group";
}

TEST(VornLocalAccess, RefusesAnOwnerThatCannotBeDetermined) {
    VornLocalAccess access;
    access.configure("owner", "ruvo");
    access.setOwnerLookupForTest([](Transport, const SocketAddress&, const SocketAddress&) {
        return PeerOwnerResult{nullptr, OsError(5)};
    });
    EXPECT_FALSE(admits(access));
}

TEST(VornLocalAccess, AsksNobodyUnderThePolicyAny) {
    VornLocalAccess access;
    EXPECT_TRUE(access.asksOwner());
    access.configure("any", "");
    EXPECT_FALSE(access.asksOwner());
    access.setOwnerLookupForTest([](Transport, const SocketAddress&, const SocketAddress&) {
        ADD_FAILURE() << "asked";
        return PeerOwnerResult{};
    });
    EXPECT_TRUE(admits(access));
    EXPECT_TRUE(admits(access, addressOf("::1", 4000)));
    EXPECT_TRUE(admits(access, kClient.mapped()));
}

TEST(VornLocalAccess, RefusesOtherMachinesUnderEveryPolicy) {
    VornLocalAccess access;
    FakeOwner root;
    root.administrator = root.current = true;
    access.setOwnerLookupForTest(always(root));
    const SocketAddress remote = addressOf("203.0.113.7", 4000);
    EXPECT_FALSE(admits(access, remote));
    access.configure("any", "");
    EXPECT_FALSE(admits(access, remote));
    EXPECT_FALSE(admits(access, remote.mapped()));
    EXPECT_FALSE(admits(access, addressOf("2001:db8::7", 4000)));
    EXPECT_FALSE(admits(access, SocketAddress()));
}

TEST(VornLocalAccess, TakesAnUnknownPolicyForOwner) {
    VornLocalAccess access;
    access.configure("any", "");
    access.configure("Any", "");
    EXPECT_TRUE(access.asksOwner());
}

TEST(VornLocalAccess, IsAskedForTheExactPairOfATcpConnection) {
    InstanceScope scope;
    SocketAddress peer;
    SocketAddress local;
    int asked = 0;
    scope.access.setOwnerLookupForTest(
        [&](Transport transport, const SocketAddress& p, const SocketAddress& l) {
            EXPECT_EQ(transport, Transport::Tcp);
            peer = p.unmapped();
            local = l.unmapped();
            ++asked;
            auto owner = std::make_unique<FakeOwner>();
            owner->current = true;
            return PeerOwnerResult{std::move(owner), {}};
        });
    TcpPair pair;
    EXPECT_TRUE(pair->isLocalConnection());
    EXPECT_TRUE(pair->isLocalConnection());
    EXPECT_EQ(asked, 1) << "the answer is remembered";
    SocketAddress own;
    ASSERT_FALSE(VornPlatform::localAddress(pair.client.handle(), own));
    EXPECT_EQ(peer, own);
    EXPECT_EQ(local, addressOf("127.0.0.1", pair.server.getPort()));
}

TEST(VornLocalAccess, RefusesATcpClientOfAnotherUser) {
    InstanceScope scope;
    scope.access.setOwnerLookupForTest(always({}));
    TcpPair pair;
    EXPECT_FALSE(pair->isLocalConnection());
    scope.access.configure("any", "");
    EXPECT_FALSE(pair->isLocalConnection()) << "the answer is remembered";
    TcpPair next;
    EXPECT_TRUE(next->isLocalConnection());
}

TEST(VornLocalAccess, AdmitsOurOwnUdpClient) {
    for (const char* host : {"127.0.0.1", "127.0.0.2", "::1"}) {
        VornNet::VornUDPServerSocket server(0);
        const auto client = udpTo(server.getPort(), host);
        sendBytes(client, "x");
        const ConnectionPointer connection = server.waitForClient(true);
        ASSERT_TRUE(connection);
        EXPECT_TRUE(connection->isLocalConnection()) << host;
    }
}

TEST(VornLocalAccess, RefusesAUdpClientThatHasLeft) {
    VornNet::VornUDPServerSocket server(0);
    auto client = udpTo(server.getPort());
    sendBytes(client, "x");
    client.close();
    const ConnectionPointer connection = server.waitForClient(true);
    ASSERT_TRUE(connection);
    EXPECT_FALSE(connection->isLocalConnection());
}

// The port of an admitted client may pass to another user's process, whose
// datagrams look the same.
TEST(VornLocalAccess, EndsAUdpConversationWhoseOwnerHasChanged) {
    InstanceScope scope;
    FakeOwner same;
    same.current = true;
    scope.access.setOwnerLookupForTest(always(same));
    VornNet::VornUDPServerSocket server(0, "127.0.0.1");
    const auto client = udpTo(server.getPort());
    sendBytes(client, std::string("\0\0\0\1", 4));
    const ConnectionPointer connection = server.waitForClient(true);
    ASSERT_TRUE(connection);
    EXPECT_TRUE(connection->isLocalConnection());
    EXPECT_EQ(connection->readInt(), 1);

    std::thread receiving([&] {
        while (server.waitForClient(true)) {}
    });
    sendBytes(client, std::string("\0\0\0\2", 4));
    EXPECT_EQ(connection->readInt(), 2);
    scope.access.setOwnerLookupForTest(always({}));
    sendBytes(client, std::string("\0\0\0\3", 4));
    EXPECT_THROW(connection->readInt(), VornSupport::VornException);
    EXPECT_TRUE(connection->isPeerGone());
    server.close();
    receiving.join();
}
