#include "runtime/platform/PeerOwner.h"

#include "tests/runtime/net/NetTest.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <gtest/gtest.h>

using namespace NetTest;
using namespace VornPlatform;

namespace {

// The peer's and the server's address as the server's connection has them.
std::pair<SocketAddress, SocketAddress> addressesOf(TcpPair& pair) {
    SocketAddress peer;
    SocketAddress local;
    EXPECT_FALSE(peerAddress(pair->getSocket(), peer));
    EXPECT_FALSE(localAddress(pair->getSocket(), local));
    return {peer, local};
}

}  // namespace

TEST(PeerOwner, FindsTheOwnerOfAStream) {
    for (const char* host : {"127.0.0.1", "127.0.0.2", "::1"}) {
        TcpPair pair(host);
        const auto [peer, local] = addressesOf(pair);
        const auto found = findPeerOwner(Transport::Tcp, peer, local);
        ASSERT_TRUE(found.owner) << host << ": " << found.error.text();
        EXPECT_TRUE(found.owner->isCurrentUser());
        EXPECT_EQ(found.owner->describe(), "uid " + std::to_string(::geteuid()));
        EXPECT_EQ(found.owner->isAdministrator(), ::geteuid() == 0);
    }
}

// The system shows what remains of a closed connection as root's.
TEST(PeerOwner, HasNoOwnerForAStreamThatItsProcessHasClosed) {
    TcpPair pair;
    const auto [peer, local] = addressesOf(pair);
    sendBytes(pair.client, "a whole request");
    VornPlatform::shutdownSend(pair.client.handle());
    EXPECT_TRUE(findPeerOwner(Transport::Tcp, peer, local).owner) << "half closed is still open";
    pair.client.close();
    const auto found = findPeerOwner(Transport::Tcp, peer, local);
    EXPECT_FALSE(found.owner);
    EXPECT_EQ(found.error.condition(), OsCondition::NotFound);
    EXPECT_FALSE(pair->isLocalConnection());
}

TEST(PeerOwner, TellsAnotherUserFromUs) {
    const uid_t self = ::geteuid();
    const uid_t other = self == 0 ? 65534 : self;  // only root can be somebody else
    VornNet::VornServerSocket server(0, 5);
    const auto udp = [&] {
        Socket socket;
        EXPECT_FALSE(bindUdp(0, "127.0.0.1", socket));
        return socket;
    };
    const Socket receiver = udp();
    ASSERT_EQ(::seteuid(other), 0);
    const Socket stream = connectTo(server.getPort());
    const Socket datagrams = udp();
    ASSERT_EQ(::seteuid(self), 0);

    const ConnectionPointer connection = server.waitForClient(true);
    SocketAddress peer;
    SocketAddress local;
    ASSERT_FALSE(localAddress(stream.handle(), peer));
    ASSERT_FALSE(peerAddress(stream.handle(), local));
    auto found = findPeerOwner(Transport::Tcp, peer, local);
    ASSERT_TRUE(found.owner);
    EXPECT_EQ(found.owner->describe(), "uid " + std::to_string(other));
    EXPECT_EQ(found.owner->isCurrentUser(), other == self);
    EXPECT_FALSE(found.owner->isAdministrator());
    EXPECT_EQ(connection->isLocalConnection(), other == self);

    ASSERT_FALSE(localAddress(datagrams.handle(), peer));
    ASSERT_FALSE(localAddress(receiver.handle(), local));
    found = findPeerOwner(Transport::Udp, peer, local);
    ASSERT_TRUE(found.owner);
    EXPECT_EQ(found.owner->describe(), "uid " + std::to_string(other));
}

TEST(PeerOwner, KnowsPrimaryAndSupplementaryGroups) {
    const auto root = makeOwnerOfUser(0);
    EXPECT_TRUE(root->isAdministrator());
    EXPECT_TRUE(root->isMemberOf(::getgrgid(0)->gr_name));
    EXPECT_FALSE(root->isMemberOf(""));
    EXPECT_FALSE(root->isMemberOf("no such group"));
    EXPECT_FALSE(root->isMemberOf(std::string(100'000, 'g')));
    const auto nobody = makeOwnerOfUser(4'000'000'000U);
    EXPECT_FALSE(nobody->isMemberOf(::getgrgid(0)->gr_name)) << "unknown users have no groups";

    // Every membership that the group table lists.
    int seen = 0;
    ::setgrent();
    while (const group* entry = ::getgrent()) {
        const std::string name = entry->gr_name;
        for (char** member = entry->gr_mem; *member != nullptr; ++member) {
            const passwd* user = ::getpwnam(*member);
            if (user == nullptr) continue;
            EXPECT_TRUE(makeOwnerOfUser(user->pw_uid)->isMemberOf(name)) << *member << " " << name;
            ++seen;
        }
    }
    ::endgrent();
    RecordProperty("memberships", seen);

    // Every user's primary group, and a group that is not his.
    ::setpwent();
    while (const passwd* entry = ::getpwent()) {
        const auto user = makeOwnerOfUser(entry->pw_uid);
        const group* primary = ::getgrgid(entry->pw_gid);
        if (primary == nullptr) continue;
        const std::string name = primary->gr_name;
        EXPECT_TRUE(user->isMemberOf(name)) << entry->pw_name << " " << name;
        EXPECT_EQ(user->isAdministrator(), entry->pw_uid == 0);
    }
    ::endpwent();
}
