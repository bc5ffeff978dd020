#include "runtime/net/VornUDPServerSocket.h"

#include "runtime/net/VornNetLimits.h"
#include "runtime/net/WireCodec.h"
#include "runtime/support/VornPostponed.h"
#include "tests/runtime/net/NetTest.h"
#include "tests/runtime/platform/NativeProbe.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <thread>
#include <vector>

using namespace NetTest;
using TestSupport::awaitReadable;
using TestSupport::kPatience;
using TestSupport::waitUntil;
using VornNet::VornAcceptedConnections;
using VornNet::VornUDPServerSocket;
using VornPlatform::Socket;
using VornSupport::VornException;
using namespace std::chrono_literals;

namespace {

// An endpoint whose thread receives all the time, as a listener's does, and
// keeps the clients that come for the test to take.
class Listening {
public:
    explicit Listening(std::chrono::milliseconds silence = 60s, const std::string& address = "*")
        : server(0, address, 512, silence), thread_([this] { run(); }) {}
    ~Listening() { stop(); }

    ConnectionPointer next() {
        ConnectionPointer found;
        waitUntil([&] {
            VornSupport::VornMutexLock lock(mutex_);
            if (clients_.empty()) return false;
            found = clients_.front();
            clients_.erase(clients_.begin());
            return true;
        });
        return found;
    }
    std::size_t waiting() {
        VornSupport::VornMutexLock lock(mutex_);
        return clients_.size();
    }
    void stop() {
        server.close();
        if (thread_.joinable()) thread_.join();
    }

    VornUDPServerSocket server;

private:
    void run() {
        while (auto client = server.waitForClient(true)) {
            VornSupport::VornMutexLock lock(mutex_);
            clients_.push_back(client);
        }
    }

    VornSupport::VornMutex mutex_;
    std::vector<ConnectionPointer> clients_ VORN_GUARDED_BY(mutex_);
    std::thread thread_;
};

std::string receiveDatagram(const Socket& socket) {
    awaitReadable(socket);
    std::string datagram(70'000, '\0');
    const auto got = VornPlatform::receive(socket.handle(), datagram.data(), datagram.size());
    EXPECT_FALSE(got.error);
    datagram.resize(got.count);
    return datagram;
}

bool hasDatagram(const Socket& socket) { return VornPlatform::bytesAvailable(socket.handle()) > 0; }

std::string readBytes(VornNet::VornConnection& connection, int count) {
    std::string bytes(static_cast<std::size_t>(count), '\0');
    int got = 0;
    connection.read(bytes.data(), count, got, true);
    return bytes;
}

std::string readOneLine(VornNet::VornConnection& connection) {
    char line[512];
    bool closed = false;
    return connection.readLine(line, sizeof line, closed);
}

}  // namespace

TEST(VornUDPServerSocket, NamesItsAddress) {
    VornUDPServerSocket server(0, "127.0.0.1");
    EXPECT_NE(server.getPort(), 0);
    EXPECT_EQ(server.getAddress(), "udp:127.0.0.1:" + std::to_string(server.getPort()));
    VornUDPServerSocket all(0);
    EXPECT_EQ(all.getAddress(), "udp:[::]:" + std::to_string(all.getPort()));
}

TEST(VornUDPServerSocket, SaysWhichPortIsBusyAndTakesTheLowSixteenBits) {
    VornUDPServerSocket first(0, "*", 512);
    const int port = first.getPort();
    EXPECT_EQ(messageOf([&] { VornUDPServerSocket second(port - 65536, "*", 512); })
                  .find("VornUDPServerSocket: cannot receive on udp:*:" + std::to_string(port) +
                        ": "),
              0U);
}

TEST(VornUDPServerSocket, MakesOneStreamOfThePeersDatagramsInOrder) {
    Listening listening;
    const Socket client = udpTo(listening.server.getPort());
    sendBytes(client, "RU");
    sendBytes(client, "VO\n\0\0");
    const ConnectionPointer connection = listening.next();
    ASSERT_TRUE(connection);
    EXPECT_EQ(readOneLine(*connection), "RUVO");
    VornPlatform::SocketAddress own;
    ASSERT_FALSE(VornPlatform::localAddress(client.handle(), own));
    EXPECT_EQ(connection->getPeerName(), "udp:" + own.text());
    EXPECT_EQ(connection->getSocket(), -1);

    for (int i = 0; i < 200; ++i) {
        std::string bytes;
        VornNet::appendInt(bytes, i);
        sendBytes(client, bytes);
        ASSERT_EQ(connection->readInt(), i);
    }
    EXPECT_EQ(listening.waiting(), 0U) << "one peer is one connection";
}

TEST(VornUDPServerSocket, TakesDatagramsLargerThanItsOwn) {
    Listening listening;
    const Socket client = udpTo(listening.server.getPort());
    std::string large(20'000, '\0');
    for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<char>(i % 251);
    sendBytes(client, large);
    const ConnectionPointer connection = listening.next();
    ASSERT_TRUE(connection);
    EXPECT_TRUE(readBytes(*connection, 20'000) == large);
}

TEST(VornUDPServerSocket, AnswersInDatagramsOfAtMost512Bytes) {
    Listening listening;
    const Socket client = udpTo(listening.server.getPort());
    sendBytes(client, "x");
    const ConnectionPointer connection = listening.next();
    ASSERT_TRUE(connection);
    connection->writeInt(1);
    connection->writeString("two");
    connection->flush();
    EXPECT_EQ(receiveDatagram(client), std::string("\0\0\0\1\0\0\0\3two", 11)) << "one datagram";

    std::string large(1500, '\0');
    for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<char>(i % 251);
    int count = 0;
    connection->write(large.data(), 1500, count);
    connection->flush();
    std::vector<std::size_t> sizes;
    std::string got;
    while (got.size() < large.size()) {
        const std::string datagram = receiveDatagram(client);
        sizes.push_back(datagram.size());
        got += datagram;
    }
    EXPECT_EQ(got, large);
    EXPECT_EQ(sizes, (std::vector<std::size_t>{512, 512, 476}));
}

// Held bytes and a large write share the datagrams.
TEST(VornUDPServerSocket, PacksHeldBytesAndALargeWriteTogether) {
    VornUDPServerSocket server(0, "127.0.0.1", 100);
    const Socket client = udpTo(server.getPort());
    sendBytes(client, "x");
    const ConnectionPointer connection = server.waitForClient(true);
    const std::string large(20'000, 'L');
    connection->writeInt(7);
    int count = 0;
    connection->write(large.data(), 20'000, count);
    EXPECT_EQ(receiveDatagram(client), std::string("\0\0\0\7", 4) + std::string(96, 'L'));
    EXPECT_EQ(receiveDatagram(client), std::string(100, 'L'));
}

namespace {

class Postponed final : public VornSupport::VornPostponed {
public:
    using VornPostponed::postpone;
    int runs = 0;

private:
    void run() noexcept override { ++runs; }
};

}  // namespace

// Sending may wait for the system, and for others who do.
TEST(VornUDPServerSocket, DoesWhatIsPostponedBeforeItSends) {
    Listening listening;
    const Socket client = udpTo(listening.server.getPort());
    sendBytes(client, "x");
    const ConnectionPointer connection = listening.next();
    ASSERT_TRUE(connection);
    Postponed postponed;
    postponed.postpone();
    connection->writeInt(1);
    EXPECT_EQ(postponed.runs, 0) << "what is written is held, and waits for nobody";
    connection->flush();
    EXPECT_EQ(postponed.runs, 1);
    EXPECT_EQ(receiveDatagram(client).size(), 4U);

    listening.stop();
    postponed.postpone();
    connection->writeInt(2);
    EXPECT_THROW(connection->flush(), VornException);
    EXPECT_EQ(postponed.runs, 2) << "whatever becomes of the sending";
}

TEST(VornUDPServerSocket, KeepsPeersApart) {
    Listening listening;
    const Socket one = udpTo(listening.server.getPort());
    const Socket two = udpTo(listening.server.getPort(), "::1");
    sendBytes(one, "first\n");
    const ConnectionPointer first = listening.next();
    sendBytes(two, "second\n");
    const ConnectionPointer second = listening.next();
    ASSERT_TRUE(first);
    ASSERT_TRUE(second);
    EXPECT_EQ(readOneLine(*first), "first");
    EXPECT_EQ(readOneLine(*second), "second");
    second->writeInt(2);
    second->flush();
    first->writeInt(1);
    first->flush();
    EXPECT_EQ(receiveDatagram(one), std::string("\0\0\0\1", 4));
    EXPECT_EQ(receiveDatagram(two), std::string("\0\0\0\2", 4));
}

TEST(VornUDPServerSocket, EndsTheStreamAtAnEmptyDatagram) {
    Listening listening;
    const Socket client = udpTo(listening.server.getPort());
    sendBytes(client, "last");
    sendBytes(client, "");
    const ConnectionPointer connection = listening.next();
    ASSERT_TRUE(connection);
    EXPECT_TRUE(waitUntil([&] { return connection->isPeerGone(); }));
    EXPECT_EQ(readToEnd(*connection), "last");
    connection->close();
    EXPECT_FALSE(hasDatagram(client));
}

TEST(VornUDPServerSocket, IgnoresAnEmptyDatagramOfAStranger) {
    Listening listening;
    const Socket stranger = udpTo(listening.server.getPort());
    sendBytes(stranger, "");
    const Socket client = udpTo(listening.server.getPort());
    sendBytes(client, "x");
    const ConnectionPointer connection = listening.next();
    ASSERT_TRUE(connection);
    EXPECT_EQ(readBytes(*connection, 1), "x");
    EXPECT_EQ(listening.waiting(), 0U);
}

TEST(VornUDPServerSocket, BeginsAnotherConversationAfterTheEndOfOne) {
    Listening listening;
    const Socket client = udpTo(listening.server.getPort());
    sendBytes(client, "one");
    sendBytes(client, "");
    sendBytes(client, "two");
    const ConnectionPointer first = listening.next();
    const ConnectionPointer second = listening.next();
    ASSERT_TRUE(first);
    ASSERT_TRUE(second);
    EXPECT_EQ(readToEnd(*first), "one");
    first->close();
    EXPECT_EQ(readBytes(*second, 3), "two");
    sendBytes(client, "more");
    EXPECT_EQ(readBytes(*second, 4), "more") << "the first one's close took the second along";
}

TEST(VornUDPServerSocket, ClosesAfterSilence) {
    Listening listening(200ms);
    const Socket client = udpTo(listening.server.getPort());
    sendBytes(client, "x");
    const ConnectionPointer connection = listening.next();
    ASSERT_TRUE(connection);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(readToEnd(*connection), "x");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kPatience);
    EXPECT_TRUE(connection->isPeerGone());
}

TEST(VornUDPServerSocket, CountsSilenceFromTheLastTraffic) {
    Listening listening(1500ms);
    const Socket client = udpTo(listening.server.getPort());
    sendBytes(client, "x");
    const ConnectionPointer connection = listening.next();
    ASSERT_TRUE(connection);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(readBytes(*connection, 1), "x");
    // Our own words count as well as the peer's.
    ASSERT_TRUE(waitUntil([&] { return std::chrono::steady_clock::now() - begin > 700ms; }));
    connection->writeInt(1);
    connection->flush();
    EXPECT_THROW(connection->readInt(), VornException);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 2200ms);
}

// Who waits for something else than the peer's words leaves them unread.
TEST(VornUDPServerSocket, NoticesTheSilenceBehindUnreadWords) {
    Listening listening(200ms);
    const Socket client = udpTo(listening.server.getPort());
    sendBytes(client, "x");
    const ConnectionPointer connection = listening.next();
    ASSERT_TRUE(connection);
    EXPECT_TRUE(waitUntil([&] { return connection->isPeerGone(); }));
    EXPECT_EQ(readToEnd(*connection), "x");
}

TEST(VornUDPServerSocket, TellsAPeekOfTheSilence) {
    Listening listening(100ms);
    const Socket client = udpTo(listening.server.getPort());
    sendBytes(client, "x");
    const ConnectionPointer connection = listening.next();
    ASSERT_TRUE(connection);
    EXPECT_EQ(readBytes(*connection, 1), "x");
    EXPECT_TRUE(waitUntil([&] {
        char buffer[5];
        int length = 5;
        bool closed = false;
        return !connection->peek(buffer, length, closed) && closed;
    }));
}

TEST(VornUDPServerSocket, TellsThePeerOfItsCloseOnlyAfterAnAnswer) {
    Listening listening;
    const Socket answered = udpTo(listening.server.getPort());
    sendBytes(answered, "x");
    ConnectionPointer connection = listening.next();
    ASSERT_TRUE(connection);
    connection->writeInt(1);
    connection->close();
    EXPECT_EQ(receiveDatagram(answered), std::string("\0\0\0\1", 4));
    EXPECT_EQ(receiveDatagram(answered), "");

    const Socket refused = udpTo(listening.server.getPort());
    sendBytes(refused, "x");
    connection = listening.next();
    ASSERT_TRUE(connection);
    connection->close();
    sendBytes(refused, "y");
    EXPECT_TRUE(listening.next()) << "closed conversations give the peer's place free";
    EXPECT_FALSE(hasDatagram(refused));
}

TEST(VornUDPServerSocket, EndsABlockedReadByAbort) {
    Listening listening;
    const Socket client = udpTo(listening.server.getPort());
    sendBytes(client, "x");
    const ConnectionPointer connection = listening.next();
    ASSERT_TRUE(connection);
    EXPECT_EQ(readBytes(*connection, 1), "x");
    std::string message;
    std::thread reader([&] { message = messageOf([&] { connection->readInt(); }); });
    EXPECT_EQ(VornAcceptedConnections::getInstance().abortAll(), 1);
    reader.join();
    EXPECT_EQ(message, connection->getPeerName() + ": the connection was aborted");
    EXPECT_TRUE(connection->isPeerGone());
    connection->close();
    EXPECT_EQ(VornAcceptedConnections::getInstance().size(), 0);
}

TEST(VornUDPServerSocket, EndsItsConversationsWithItselfAndFreesThePort) {
    auto listening = std::make_unique<Listening>();
    const int port = listening->server.getPort();
    const Socket client = udpTo(port);
    sendBytes(client, "rest");
    const ConnectionPointer connection = listening->next();
    ASSERT_TRUE(connection);
    listening->stop();
    VornUDPServerSocket next(port, "*", 512);
    EXPECT_EQ(readToEnd(*connection), "rest");
    connection->writeInt(1);
    EXPECT_THROW(connection->flush(), VornException);
    listening.reset();
    connection->close();
}

TEST(VornUDPServerSocket, EndsAPendingWaitByClose) {
    VornUDPServerSocket server(0);
    EXPECT_FALSE(server.waitForClient(false));
    std::thread waiting([&] { EXPECT_FALSE(server.waitForClient(true)); });
    server.close();
    waiting.join();
    EXPECT_FALSE(server.waitForClient(true));
}

TEST(VornUDPServerSocket, BoundsTheNumberOfPeers) {
    auto& limits = VornNet::VornNetLimits::getInstance();
    const int before = limits.clients;
    limits.clients = 3;
    VornUDPServerSocket server(0, "127.0.0.1");
    std::vector<Socket> flood;
    std::vector<ConnectionPointer> accepted;
    for (int i = 0; i < 50; ++i) {
        flood.push_back(udpTo(server.getPort()));
        sendBytes(flood.back(), "flood");
    }
    while (auto client = server.waitForClient(false)) accepted.push_back(client);
    EXPECT_EQ(accepted.size(), 3U);
    EXPECT_EQ(readBytes(*accepted[2], 5), "flood");

    accepted.pop_back();
    sendBytes(flood[40], "again");
    std::optional<ConnectionPointer> next;
    EXPECT_TRUE(waitUntil([&] {
        next = server.waitForClient(false);
        return bool(*next);
    }));
    limits.clients = before;
}

// What nobody reads ends the conversation instead of filling the memory, and
// nothing behind the hole is ever read.
TEST(VornUDPServerSocket, BoundsWhatAPeerMaySendUnread) {
    VornUDPServerSocket server(0, "127.0.0.1");
    const Socket client = udpTo(server.getPort());
    const std::string block(8192, 'b');
    ConnectionPointer connection;
    for (int i = 0; i < 64 && !(connection && connection->isPeerGone()); ++i) {
        sendBytes(client, block);
        if (auto began = server.waitForClient(false)) connection = began;
    }
    ASSERT_TRUE(connection);
    EXPECT_TRUE(connection->isPeerGone());
    EXPECT_EQ(readToEnd(*connection).size(), VornNet::UDPPort::kQueueBytes);
}

// A reader that lags a little behind for ever must not cost what has passed.
TEST(UDPPort, KeepsOnlyWhatIsUnread) {
    constexpr std::size_t kBlock = 8192;
    constexpr std::size_t kLag = 3 * kBlock;
    VornNet::UDPPort port(0, "127.0.0.1", 512, 60s);
    const Socket client = udpTo(port.address().port());
    const auto receive = [&port](VornNet::UDPPort::PeerPointer& peer) {
        VornPlatform::SocketWait wait{.socket = port.socket(), .wantRead = true};
        VornPlatform::waitReady({&wait, 1}, static_cast<int>(kPatience.count()));
        return port.receiveNext(peer, [] { return true; });
    };
    VornNet::UDPPort::PeerPointer peer;
    std::size_t sent = 0;
    std::size_t taken = 0;
    std::string got(kBlock, '\0');
    for (int round = 0; round < 500; ++round) {
        std::string block(kBlock, '\0');
        for (char& c : block) c = static_cast<char>(sent++ % 251);
        sendBytes(client, block);
        ASSERT_FALSE(receive(peer));
        ASSERT_TRUE(peer);
        if (sent <= kLag) continue;
        std::size_t count = 0;
        ASSERT_EQ(port.read(*peer, got.data(), kBlock, false, count),
                  VornNet::UDPPort::Arrival::Bytes);
        for (std::size_t i = 0; i < count; ++i) {
            ASSERT_EQ(got[i], static_cast<char>(taken++ % 251)) << taken;
        }
        ASSERT_LE(peer->queue.capacity(), 8 * kLag) << "after " << sent << " bytes";
    }
    EXPECT_EQ(taken, 500 * kBlock - kLag);
}

TEST(VornUDPServerSocket, KeepsAQuietConversationForThirtySecondsUnlessToldOtherwise) {
    EXPECT_EQ(VornUDPServerSocket::kSilence, 30s);
    EXPECT_EQ(VornUDPServerSocket(0).getSilence(), 30s);
    EXPECT_EQ(VornUDPServerSocket(0, "*", 512, 7s).getSilence(), 7s);
}

TEST(VornUDPServerSocket, AnswersInDatagramsOfAtMost512BytesUnlessToldOtherwise) {
    VornUDPServerSocket server(0, "127.0.0.1");
    const Socket client = udpTo(server.getPort());
    sendBytes(client, "x");
    const ConnectionPointer connection = server.waitForClient(true);
    ASSERT_TRUE(connection);
    int count = 0;
    connection->write(std::string(600, 'd').data(), 600, count);
    connection->flush();
    EXPECT_EQ(receiveDatagram(client), std::string(512, 'd'));
    EXPECT_EQ(receiveDatagram(client), std::string(88, 'd'));
}

TEST(VornUDPServerSocket, LeavesNoHandlesBehind) {
    { VornUDPServerSocket warm(0); }
    const int before = NativeProbe::countHandles();
    for (int i = 0; i < 20; ++i) {
        Listening listening;
        const Socket client = udpTo(listening.server.getPort());
        sendBytes(client, "x");
        EXPECT_TRUE(listening.next());
    }
    EXPECT_LE(NativeProbe::countHandles(), before + 2);
}
