#include "runtime/platform/Socket.h"

#include "tests/runtime/net/NetTest.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using namespace NetTest;
using namespace VornPlatform;
using TestSupport::awaitReadable;
using TestSupport::readBytes;
using TestSupport::waitUntil;
using Clock = std::chrono::steady_clock;

namespace {

struct StreamPair {
    StreamPair() {
        Socket listener;
        EXPECT_FALSE(listenTcp(0, 5, "127.0.0.1", listener));
        SocketAddress address;
        EXPECT_FALSE(localAddress(listener.handle(), address));
        near_ = connectTo(address.port());
        awaitReadable(listener);
        SocketAddress peer;
        EXPECT_FALSE(accept(listener.handle(), far_, peer));
    }
    Socket near_;
    Socket far_;
};

OsCondition nextReceive(const Socket& socket) {
    char byte;
    return receive(socket.handle(), &byte, 1).error.condition();
}

}  // namespace

TEST(Socket, ClosesWhatItOwnsOnce) {
    Socket socket;
    EXPECT_FALSE(socket);
    ASSERT_FALSE(bindUdp(0, "127.0.0.1", socket));
    const SocketHandle handle = socket.handle();
    Socket moved = std::move(socket);
    EXPECT_FALSE(socket);
    EXPECT_EQ(moved.handle(), handle);
    Socket& same = moved;
    moved = std::move(same);
    EXPECT_EQ(moved.handle(), handle);
    SocketAddress address;
    EXPECT_FALSE(localAddress(handle, address));
    moved.close();
    EXPECT_TRUE(localAddress(handle, address));
    EXPECT_EQ(moved.handle(), kNoSocket);
    moved.close();
}

TEST(Socket, LeavesItsTargetAloneWhenItFails) {
    Socket busy;
    ASSERT_FALSE(listenTcp(0, 5, "*", busy));
    SocketAddress address;
    ASSERT_FALSE(localAddress(busy.handle(), address));
    const SocketHandle before = busy.handle();
    EXPECT_TRUE(listenTcp(address.port(), 5, "*", busy));
    EXPECT_TRUE(listenTcp(address.port(), 5, "127.0.0.1", busy)) << "a part of all addresses";
    EXPECT_TRUE(listenTcp(0, 5, "no address", busy));
    EXPECT_TRUE(bindUdp(0, "no address", busy));
    EXPECT_EQ(busy.handle(), before);

    Socket datagrams;
    ASSERT_FALSE(bindUdp(0, "*", datagrams));
    ASSERT_FALSE(localAddress(datagrams.handle(), address));
    EXPECT_TRUE(bindUdp(address.port(), "*", busy));
    EXPECT_TRUE(bindUdp(address.port(), "127.0.0.1", busy));
    EXPECT_EQ(busy.handle(), before);
}

TEST(Socket, AcceptsWithoutWaiting) {
    Socket listener;
    ASSERT_FALSE(listenTcp(0, 5, "*", listener));
    Socket accepted;
    SocketAddress peer;
    EXPECT_EQ(accept(listener.handle(), accepted, peer).condition(), OsCondition::WouldBlock);
    EXPECT_FALSE(accepted);
}

TEST(Socket, SendsTwoPiecesInOrder) {
    StreamPair pair;
    const auto sent = send(pair.near_.handle(), std::string_view("one"), std::string_view("two"));
    EXPECT_EQ(sent.count, 6U);
    EXPECT_EQ(readBytes(pair.far_, 6), "onetwo");
}

TEST(Socket, TellsNothingFromTheEndOfTheStream) {
    StreamPair pair;
    char buffer[8];
    EXPECT_EQ(receiveNow(pair.far_.handle(), buffer, 8).error.condition(),
              OsCondition::WouldBlock);
    EXPECT_EQ(bytesAvailable(pair.far_.handle()), 0U);
    sendBytes(pair.near_, "abc");
    awaitReadable(pair.far_);
    EXPECT_EQ(bytesAvailable(pair.far_.handle()), 3U);
    EXPECT_EQ(receiveNow(pair.far_.handle(), buffer, 8).count, 3U);
    EXPECT_FALSE(shutdownSend(pair.near_.handle()));
    awaitReadable(pair.far_);
    const auto end = receiveNow(pair.far_.handle(), buffer, 8);
    EXPECT_FALSE(end.error);
    EXPECT_EQ(end.count, 0U);
    sendBytes(pair.far_, "still open");
    EXPECT_EQ(readBytes(pair.near_, 10), "still open");
}

TEST(Socket, SendsWhatThereIsRoomForAndDoesNotWait) {
    StreamPair pair;
    EXPECT_EQ(sendNow(pair.near_.handle(), "ab", "c").count, 3U);
    EXPECT_EQ(readBytes(pair.far_, 3), "abc");
    const std::string piece(1024, 'x');
    IoResult sent;
    while (!(sent = sendNow(pair.near_.handle(), piece, {})).error) EXPECT_GT(sent.count, 0U);
    EXPECT_EQ(sent.error.condition(), OsCondition::WouldBlock);
    pair.far_.close();
    EXPECT_TRUE(waitUntil([&] {
        sent = sendNow(pair.near_.handle(), piece, {});
        return sent.error && sent.error.condition() != OsCondition::WouldBlock;
    }));
}

TEST(Socket, SeesBytesThatWaitToBeRead) {
    StreamPair pair;
    EXPECT_EQ(lookAtStream(pair.far_.handle()), StreamLook::Quiet);
    sendBytes(pair.near_, "abc");
    awaitReadable(pair.far_);
    EXPECT_EQ(lookAtStream(pair.far_.handle()), StreamLook::Bytes);
    EXPECT_EQ(readBytes(pair.far_, 3), "abc") << "nothing was consumed";
    EXPECT_EQ(lookAtStream(pair.far_.handle()), StreamLook::Quiet);
}

TEST(Socket, SeesThePeersEndBehindUnreadBytes) {
    StreamPair pair;
    EXPECT_FALSE(isPeerClosed(pair.far_.handle()));
    pair.near_.close();
    EXPECT_TRUE(waitUntil([&] { return isPeerClosed(pair.far_.handle()); }));
}

TEST(Socket, ReportsABrokenPeerInsteadOfASignal) {
    StreamPair pair;
    pair.near_.close();
    OsError error;
    EXPECT_TRUE(waitUntil([&] {
        error = send(pair.far_.handle(), "x", 1).error;
        return bool(error);
    }));
    EXPECT_EQ(error.condition(), OsCondition::ConnectionLost);
    EXPECT_TRUE(send(pair.far_.handle(), std::string_view("x"), std::string_view("y")).error);
}

TEST(Socket, EndsABlockedReceiveByShutdown) {
    StreamPair pair;
    std::thread blocked([&] {
        char byte;
        const auto got = receive(pair.far_.handle(), &byte, 1);
        EXPECT_EQ(got.count, 0U);
    });
    shutdownBoth(pair.far_.handle());
    blocked.join();
    char byte;
    EXPECT_EQ(receive(pair.far_.handle(), &byte, 1).count, 0U) << "later calls end as well";
}

TEST(Socket, EndsABlockedSendByShutdown) {
    StreamPair pair;
    std::atomic<bool> started{false};
    std::thread blocked([&] {
        const std::string block(4096, 'b');  // small: the first must not block
        while (!send(pair.far_.handle(), block.data(), block.size()).error) started = true;
    });
    EXPECT_TRUE(waitUntil([&] { return started.load(); }));
    shutdownBoth(pair.far_.handle());
    blocked.join();
}

TEST(Socket, SwitchesBetweenWaitingAndNot) {
    StreamPair pair;
    ASSERT_FALSE(setNonBlocking(pair.far_.handle(), true));
    EXPECT_EQ(nextReceive(pair.far_), OsCondition::WouldBlock);
    ASSERT_FALSE(setNonBlocking(pair.far_.handle(), false));
    std::thread sender([&] { sendBytes(pair.near_, "x"); });
    EXPECT_EQ(nextReceive(pair.far_), OsCondition::None);
    sender.join();
}

TEST(Socket, TakesItsOptions) {
    StreamPair pair;
    EXPECT_FALSE(setKeepAlive(pair.near_.handle()));
    EXPECT_FALSE(setNoDelay(pair.near_.handle(), true));
    EXPECT_FALSE(setNoDelay(pair.near_.handle(), false));
    EXPECT_TRUE(setNoDelay(kNoSocket, true));
    EXPECT_TRUE(setKeepAlive(kNoSocket));
}

// The platform may wait in slices; nobody is to notice.
TEST(Socket, WaitsForRoomToWriteAsLongAsItWasAsked) {
    StreamPair pair;
    ASSERT_FALSE(setNonBlocking(pair.near_.handle(), true));
    const std::string block(64 * 1024, 'b');
    SocketWait wait{.socket = pair.near_.handle(), .wantWrite = true};
    do {
        while (!send(pair.near_.handle(), block.data(), block.size()).error) {}
    } while (waitReady({&wait, 1}, 100).count != 0);

    const auto begin = Clock::now();
    EXPECT_EQ(waitReady({&wait, 1}, 500).count, 0U);
    EXPECT_FALSE(wait.canWrite);
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(490));
    EXPECT_EQ(waitReady({&wait, 1}, 0).count, 0U);

    std::thread reader([&] {
        char buffer[64 * 1024];
        while (receive(pair.far_.handle(), buffer, sizeof buffer).count > 0) {}
    });
    EXPECT_EQ(waitReady({&wait, 1}, -1).count, 1U);
    EXPECT_TRUE(wait.canWrite);
    shutdownBoth(pair.far_.handle());
    reader.join();
}

TEST(Socket, ReportsTheOutcomeOfAConnect) {
    Socket listener;
    ASSERT_FALSE(listenTcp(0, 5, "127.0.0.1", listener));
    SocketAddress address;
    ASSERT_FALSE(localAddress(listener.handle(), address));
    for (const bool there : {true, false}) {
        if (!there) listener.close();
        Socket socket;
        OsError error = startConnectTcp(address, socket);
        if (!error) {
            SocketWait wait{.socket = socket.handle(), .wantWrite = true};
            EXPECT_EQ(waitReady({&wait, 1}, 20000).count, 1U);
            EXPECT_TRUE(wait.canWrite);
            error = pendingError(socket.handle());
        }
        EXPECT_EQ(error.condition(), there ? OsCondition::None : OsCondition::ConnectionRefused);
    }
    Socket socket;
    EXPECT_EQ(connectTcp(address, socket).condition(), OsCondition::ConnectionRefused);
    EXPECT_FALSE(socket);
}

TEST(Socket, WaitsForTheReadyOnesOfMany) {
    std::vector<StreamPair> pairs(12);
    std::vector<SocketWait> waits;
    for (const auto& pair : pairs) {
        waits.push_back({.socket = pair.far_.handle(), .wantRead = true});
    }
    waits.push_back({});  // no socket: passed over
    EXPECT_EQ(waitReady(waits, 0).count, 0U);
    sendBytes(pairs[3].near_, "x");
    pairs[7].near_.close();
    EXPECT_TRUE(waitUntil([&] { return waitReady(waits, 1000).count == 2; }));
    for (std::size_t i = 0; i < waits.size(); ++i) {
        EXPECT_EQ(waits[i].canRead, i == 3 || i == 7) << i;
        EXPECT_FALSE(waits[i].canWrite);
    }
    SocketWait both{.socket = pairs[3].far_.handle(), .wantRead = true, .wantWrite = true};
    EXPECT_EQ(waitReady({&both, 1}, -1).count, 1U);
    EXPECT_TRUE(both.canRead);
    EXPECT_TRUE(both.canWrite);
}

TEST(Socket, WaitsAsLongAsItIsTold) {
    StreamPair pair;
    SocketWait wait{.socket = pair.far_.handle(), .wantRead = true};
    const auto begin = Clock::now();
    EXPECT_EQ(waitReady({&wait, 1}, 120).count, 0U);
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(100));
    wait.socket = kNoSocket;
    EXPECT_EQ(waitReady({&wait, 1}, 1).count, 0U);
}

TEST(SocketWaker, EndsTheWaitOfAnotherThread) {
    SocketWaker waker;
    ASSERT_FALSE(waker.open());
    SocketWait wait{.socket = waker.handle(), .wantRead = true};
    EXPECT_EQ(waitReady({&wait, 1}, 0).count, 0U);
    std::thread waking([&] {
        for (int i = 0; i < 3; ++i) waker.wake();
    });
    EXPECT_EQ(waitReady({&wait, 1}, 20000).count, 1U);
    waking.join();
    EXPECT_EQ(waitReady({&wait, 1}, 0).count, 1U) << "ready until it is cleared";
    EXPECT_TRUE(waitUntil([&] {
        waker.clear();
        return waitReady({&wait, 1}, 0).count == 0;
    }));
    waker.wake();
    EXPECT_EQ(waitReady({&wait, 1}, 20000).count, 1U);
}

TEST(SocketWaker, TakesAnyNumberOfWakes) {
    SocketWaker waker;
    ASSERT_FALSE(waker.open());
    for (int i = 0; i < 100'000; ++i) waker.wake();
    SocketWait wait{.socket = waker.handle(), .wantRead = true};
    EXPECT_EQ(waitReady({&wait, 1}, 0).count, 1U);
    waker.clear();
    EXPECT_EQ(waitReady({&wait, 1}, 0).count, 0U);
}

TEST(Socket, TellsWhereADatagramWasSentTo) {
    Socket server;
    ASSERT_FALSE(bindUdp(0, "*", server));
    SocketAddress address;
    ASSERT_FALSE(localAddress(server.handle(), address));
    for (const char* host : {"127.0.0.1", "127.0.0.3", "::1"}) {
        const Socket client = udpTo(address.port(), host);
        sendBytes(client, "ping");
        awaitReadable(server);
        char buffer[16];
        SocketAddress from;
        SocketAddress to;
        const auto got = receiveFrom(server.handle(), buffer, sizeof buffer, from, to);
        EXPECT_EQ(std::string(buffer, got.count), "ping");
        SocketAddress own;
        ASSERT_FALSE(localAddress(client.handle(), own));
        EXPECT_EQ(from.unmapped(), own);
        EXPECT_EQ(to.host(), host);
        EXPECT_EQ(receiveFrom(server.handle(), buffer, sizeof buffer, from, to).error.condition(),
                  OsCondition::WouldBlock);
    }
}

TEST(Socket, AnswersADatagramAndSendsEmptyOnes) {
    for (const char* bound : {"*", "127.0.0.1"}) {
        Socket server;
        ASSERT_FALSE(bindUdp(0, bound, server));
        SocketAddress address;
        ASSERT_FALSE(localAddress(server.handle(), address));
        const Socket client = udpTo(address.port());
        sendBytes(client, "");
        awaitReadable(server);
        char buffer[16];
        SocketAddress from;
        SocketAddress to;
        const auto got = receiveFrom(server.handle(), buffer, sizeof buffer, from, to);
        EXPECT_FALSE(got.error);
        EXPECT_EQ(got.count, 0U);
        EXPECT_EQ(sendTo(server.handle(), "pong", from, to).count, 4U);
        EXPECT_EQ(sendTo(server.handle(), "", from).count, 0U);
        EXPECT_EQ(readBytes(client, 4), "pong");
    }
}

TEST(Socket, SurvivesAnswersToClosedDatagramPorts) {
    Socket server;
    ASSERT_FALSE(bindUdp(0, "127.0.0.1", server));
    SocketAddress address;
    ASSERT_FALSE(localAddress(server.handle(), address));
    char buffer[16];
    SocketAddress from;
    SocketAddress to;
    {
        const Socket gone = udpTo(address.port());
        sendBytes(gone, "x");
        awaitReadable(server);
        EXPECT_EQ(receiveFrom(server.handle(), buffer, sizeof buffer, from, to).count, 1U);
    }
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(sendTo(server.handle(), "nobody", from, to).error);
    const Socket next = udpTo(address.port());
    sendBytes(next, "y");
    EXPECT_TRUE(waitUntil([&] {
        const auto got = receiveFrom(server.handle(), buffer, sizeof buffer, from, to);
        EXPECT_TRUE(!got.error || got.error.condition() == OsCondition::WouldBlock);
        return got.count == 1 && buffer[0] == 'y';
    }));
}
