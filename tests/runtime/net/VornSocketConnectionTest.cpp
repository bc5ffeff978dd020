#include "runtime/net/VornSocketConnection.h"

#include "runtime/net/VornIPCServer.h"
#include "runtime/net/WireCodec.h"
#include "tests/runtime/net/NetTest.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using namespace NetTest;
using namespace std::chrono_literals;
using TestSupport::awaitReadable;
using TestSupport::mostTakeLessThan;
using TestSupport::readBytes;
using TestSupport::timeOf;
using TestSupport::waitUntil;
using VornNet::VornSocketConnection;
using VornPlatform::OsCondition;
using VornSupport::VornException;
using Clock = std::chrono::steady_clock;

namespace {

std::string encoded(const std::string& text) {
    std::string bytes;
    VornNet::appendString(bytes, text);
    return bytes;
}

std::string encoded(std::int32_t value) {
    std::string bytes;
    VornNet::appendInt(bytes, value);
    return bytes;
}

}  // namespace

TEST(VornSocketConnection, CarriesATypedConversation) {
    for (const char* host : {"127.0.0.1", "::1"}) {
        TcpPair pair(host);
        std::thread client([&] {
            sendBytes(pair.client, std::string("\x1e\x61", 2) + encoded("Notifier") + encoded(-3));
            EXPECT_EQ(readBytes(pair.client, 12), encoded(0) + encoded("done"));
        });
        EXPECT_EQ(pair->readUnsignedShort(), 7777);
        std::string name;
        pair->readString(name);
        EXPECT_EQ(name, "Notifier");
        EXPECT_EQ(pair->readInt(), -3);
        pair->writeInt(0);
        pair->writeString("done");
        pair->flush();
        client.join();
    }
}

TEST(VornSocketConnection, ThrowsWhereverTheClientIsCutOff) {
    const std::string all = std::string("\0\1", 2) + encoded("name") + encoded(4);
    for (std::size_t cut = 0; cut < all.size(); ++cut) {
        TcpPair pair;
        sendBytes(pair.client, all.substr(0, cut));
        pair.client.close();
        EXPECT_THROW(
            {
                pair->readUnsignedShort();
                std::string name;
                pair->readString(name);
                EXPECT_EQ(name, "name");
                pair->readInt();
            },
            VornException)
            << cut;
    }
}

TEST(VornSocketConnection, ReportsAResetAsALostConnection) {
    TcpPair pair;
    pair->writeInt(1);
    pair->flush();
    awaitReadable(pair.client);
    pair.client.close();  // with unread bytes: a reset
    try {
        pair->readInt();
        FAIL();
    } catch (const VornException& e) {
        // An emulator shows a reset as the plain end of the stream.
        const bool lost =
            VornPlatform::OsError(e.getCode()).condition() == OsCondition::ConnectionLost;
        const std::string expected =
            lost ? ": the connection was lost: " : ": the peer has closed the connection";
        EXPECT_NE(e.getMessage().find(expected), std::string::npos) << e.getMessage();
    }
}

TEST(VornSocketConnection, MovesLargeDataBothWays) {
    TcpPair pair;
    std::string large(3'000'000, '\0');
    for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<char>(i * 7 + i / 251);
    std::thread client([&] {
        const std::string got = readBytes(pair.client, large.size() + 4);
        EXPECT_EQ(got.substr(0, 4), encoded(17));
        EXPECT_TRUE(got.substr(4) == large);
        sendBytes(pair.client, got.substr(4));
    });
    pair->writeInt(17);
    int count = 0;
    pair->write(large.data(), static_cast<int>(large.size()), count);
    EXPECT_EQ(count, static_cast<int>(large.size()));
    std::string back(large.size(), '\0');
    pair->read(back.data(), static_cast<int>(back.size()), count, true);
    EXPECT_TRUE(back == large);
    client.join();
}

TEST(VornSocketConnection, PeeksAndReadsOnARealSocket) {
    TcpPair pair;
    char buffer[16];
    int length = 5;
    bool closed = true;
    EXPECT_FALSE(pair->peek(buffer, length, closed));
    EXPECT_FALSE(closed);
    sendBytes(pair.client, "\x16\x03\x01");
    ASSERT_TRUE(waitUntil([&] {
        length = 5;
        return pair->peek(buffer, length, closed);
    }));
    EXPECT_EQ(std::string(buffer, static_cast<std::size_t>(length)), "\x16\x03\x01");
    pair->read(buffer, 3, length, true);
    pair.client.close();
    ASSERT_TRUE(waitUntil([&] {
        length = 5;
        return !pair->peek(buffer, length, closed) && closed;
    }));
}

TEST(VornSocketConnection, NoticesThatThePeerHasClosedWithoutConsuming) {
    TcpPair pair;
    EXPECT_FALSE(pair->isPeerGone());
    sendBytes(pair.client, "last words");
    VornPlatform::SocketWait wait{.socket = pair->getSocket(), .wantRead = true};
    VornPlatform::waitReady({&wait, 1}, 20000);
    EXPECT_FALSE(pair->isPeerGone());
    pair.client.close();
    char buffer[16];
    int count = 0;
    pair->read(buffer, 10, count, true);
    EXPECT_EQ(std::string(buffer, 10), "last words");
    EXPECT_TRUE(waitUntil([&] { return pair->isPeerGone(); }));
}

// More than the system takes for a peer that does not read: the rest, and the end
// behind it, wait at the other side.
TEST(VornSocketConnection, NoticesThatThePeerHasClosedBehindMuchThatNobodyRead) {
    TcpPair pair;
    std::atomic<bool> closed{false};
    std::thread client([&] {
        sendBytes(pair.client, std::string(800'000, 'x'));
        pair.client.close();
        closed = true;
    });
    EXPECT_TRUE(waitUntil([&] { return pair->isPeerGone(); }));
    EXPECT_TRUE(waitUntil([&] { return closed.load(); }));
    client.join();
    std::string all(800'000, '\0');
    int count = 0;
    pair->read(all.data(), static_cast<int>(all.size()), count, true);
    EXPECT_EQ(all, std::string(800'000, 'x'));
}

TEST(VornSocketConnection, NamesItsPeerAndItsSocket) {
    TcpPair pair;
    VornPlatform::SocketAddress own;
    ASSERT_FALSE(VornPlatform::localAddress(pair.client.handle(), own));
    EXPECT_EQ(pair->getPeerName(), "tcp:" + own.text());
    VornPlatform::SocketAddress peer;
    ASSERT_FALSE(VornPlatform::peerAddress(pair->getSocket(), peer));
    EXPECT_EQ(peer.port(), own.port());
    pair->close();
    EXPECT_EQ(pair->getSocket(), -1);
}

TEST(VornSocketConnection, WaitsOnASocketThatARelayLeftNonBlocking) {
    TcpPair pair;
    ASSERT_FALSE(VornPlatform::setNonBlocking(pair->getSocket(), true));
    std::thread client([&] {
        sendBytes(pair.client, encoded(9));
        EXPECT_EQ(readBytes(pair.client, 2'000'000).size(), 2'000'000U);
    });
    EXPECT_EQ(pair->readInt(), 9);
    int count = 0;
    const std::string large(2'000'000, 'x');
    pair->write(large.data(), static_cast<int>(large.size()), count);
    pair->flush();
    client.join();
}

// ---- abort -------------------------------------------------------------------

TEST(VornSocketConnection, EndsABlockedReadByAbort) {
    TcpPair pair;
    std::string message;
    std::thread reader([&] { message = messageOf([&] { pair->readInt(); }); });
    pair->abort();
    reader.join();
    EXPECT_EQ(message, pair->getPeerName() + ": the connection was aborted");
    EXPECT_EQ(readBytes(pair.client, 1), "") << "the client sees the end";
}

// How long the close takes after that.
Clock::duration endBlockedWriteByAbort() {
    TcpPair pair;
    std::atomic<bool> started{false};
    std::string message;
    std::thread writer([&] {
        const std::string block(64 * 1024, 'w');
        message = messageOf([&] {
            for (;;) {
                int count = 0;
                pair->write(block.data(), static_cast<int>(block.size()), count);
                started = true;
            }
        });
    });
    EXPECT_TRUE(waitUntil([&] { return started.load(); }));
    pair->abort();
    writer.join();
    EXPECT_EQ(message, pair->getPeerName() + ": the connection was aborted");
    return timeOf([&] { pair->close(); });
}

TEST(VornSocketConnection, EndsABlockedWriteByAbort) {
    EXPECT_TRUE(mostTakeLessThan(1000ms, endBlockedWriteByAbort)) << "something is waited for";
}

TEST(VornSocketConnection, EndsABlockedLineReadByAbort) {
    TcpPair pair;
    sendBytes(pair.client, "no end of line");
    std::thread reader([&] {
        char line[512];
        bool closed = false;
        EXPECT_THROW(pair->readLine(line, sizeof line, closed), VornException);
    });
    pair->abort();
    reader.join();
}

// An abort at any moment of a connection's life ends it and harms nothing else.
TEST(VornSocketConnection, MayBeAbortedWhileItIsClosedAndDestroyed) {
    VornNet::VornServerSocket server(0, 5, "127.0.0.1");
    std::atomic<bool> stop{false};
    std::thread aborter([&] {
        while (!stop) VornNet::VornAcceptedConnections::getInstance().abortAll();
    });
    for (int i = 0; i < 200; ++i) {
        const auto client = connectTo(server.getPort());
        ConnectionPointer connection = server.waitForClient(true);
        if (i % 2 == 0) connection->close();
        connection = nullptr;
    }
    stop = true;
    aborter.join();
    EXPECT_EQ(VornNet::VornAcceptedConnections::getInstance().size(), 0);
}

// ---- close -------------------------------------------------------------------

TEST(VornSocketConnection, DeliversTheLastAnswerAlthoughInputIsUnread) {
    for (int round = 0; round < 20; ++round) {
        TcpPair pair;
        sendBytes(pair.client, std::string(100'000, 'u'));
        pair->readUnsigned();
        pair->writeString("the last answer");
        std::thread closing([&] { pair->close(); });
        EXPECT_EQ(readBytes(pair.client, 19), encoded("the last answer"));
        pair.client.close();
        closing.join();
    }
}

TEST(VornSocketConnection, ClosesInBoundedTimeWhenTheClientKeepsSending) {
    TcpPair pair;
    std::atomic<bool> broken{false};
    std::thread client([&] {
        const std::string block(10'000, 'f');
        for (;;) {
            const auto sent =
                VornPlatform::send(pair.client.handle(), block.data(), block.size());
            if (sent.error) break;
        }
        broken = true;
    });
    pair->readInt();
    pair->close();
    client.join();
    EXPECT_TRUE(broken);
}

TEST(VornSocketConnection, ClosesInBoundedTimeWhenTheClientNeverReads) {
    TcpPair pair;
    // Fill what the system takes, then hold more.
    ASSERT_FALSE(VornPlatform::setNonBlocking(pair->getSocket(), true));
    const std::string block(64 * 1024, 'b');
    while (!VornPlatform::send(pair->getSocket(), block.data(), block.size()).error) {}
    pair->writeInt(1);
    EXPECT_LT(timeOf([&] { pair->close(); }), TestSupport::kPatience);
}

TEST(VornSocketConnection, ClosesAtOnceWhenNothingIsOwed) {
    const auto attempt = [] {
        TcpPair pair;
        const auto took = timeOf([&] { pair->close(); });
        EXPECT_EQ(readBytes(pair.client, 1), "");
        return took;
    };
    EXPECT_TRUE(mostTakeLessThan(900ms, attempt)) << "it lingers";
}

TEST(VornSocketConnection, IsClosedByItsLastRelease) {
    TcpPair pair;
    pair->writeInt(8);
    pair.connection = nullptr;
    EXPECT_EQ(readBytes(pair.client, 5), encoded(8));
}

// ---- establish ---------------------------------------------------------------

TEST(VornSocketConnection, EstablishesAConnectionToHostAndPort) {
    TestSupport::TcpListener listener;
    VornSocketConnection connection("127.0.0.1", listener.port(), 1, 0);
    EXPECT_EQ(connection.getSocket(), -1);
    EXPECT_EQ(connection.getPeerName(), "tcp:127.0.0.1:" + std::to_string(listener.port()));
    connection.establish();
    EXPECT_NE(connection.getSocket(), -1);
    const auto peer = listener.accept();
    connection.writeInt(5);
    sendBytes(peer, encoded(6));
    EXPECT_EQ(connection.readInt(), 6);
    EXPECT_EQ(readBytes(peer, 4), encoded(5));
    EXPECT_THROW(connection.establish(), VornException);
}

TEST(VornSocketConnection, StartsInRawModeWhenAsked) {
    TestSupport::TcpListener listener;
    VornSocketConnection connection("127.0.0.1", listener.port(), 0, 1);
    connection.establish();
    const auto peer = listener.accept();
    connection.writeInt(5);
    EXPECT_EQ(readBytes(peer, 4), encoded(5)) << "without a flush";
}

// "localhost" may mean an IPv6 address that nobody listens on.
TEST(VornSocketConnection, TriesTheAddressesOfAName) {
    TestSupport::TcpListener listener;
    VornSocketConnection connection("localhost", listener.port());
    connection.establish();
    EXPECT_TRUE(listener.hasCaller());
}

// A listener that nobody serves: once its queue is full, the system lets further
// callers wait for an answer, or refuses them.
class Deaf {
public:
    Deaf() {
        EXPECT_FALSE(VornPlatform::listenTcp(0, 1, "127.0.0.1", listener_));
        EXPECT_FALSE(VornPlatform::localAddress(listener_.handle(), address));
        for (bool taken = true; taken && callers_.size() < 64;) {
            VornPlatform::Socket caller;
            if (VornPlatform::startConnectTcp(address, caller)) break;
            VornPlatform::SocketWait wait{.socket = caller.handle(), .wantWrite = true};
            VornPlatform::waitReady({&wait, 1}, 100);
            taken = wait.canWrite && !VornPlatform::pendingError(caller.handle());
            callers_.push_back(std::move(caller));
        }
    }
    VornPlatform::SocketAddress address;

private:
    VornPlatform::Socket listener_;
    std::vector<VornPlatform::Socket> callers_;
};

class Reaching : public VornSocketConnection {
public:
    using VornSocketConnection::connectToOneOf;
    using VornSocketConnection::VornSocketConnection;
    ~Reaching() override { close(); }
};

TEST(VornSocketConnection, GoesOnToTheNextAddressWhenOneDoesNotAnswer) {
    const Deaf deaf;
    TestSupport::TcpListener listener;
    Reaching connection("some host", 1);
    connection.connectToOneOf({{deaf.address, addressOf("127.0.0.1", listener.port())}}, 300ms);
    EXPECT_TRUE(listener.hasCaller());
    EXPECT_EQ(connection.getPeerName(), "tcp:127.0.0.1:" + std::to_string(listener.port()));
}

TEST(VornSocketConnection, SaysThatNoAddressAnswered) {
    const Deaf deaf;
    Reaching connection("some host", 17);
    const auto begin = Clock::now();
    try {
        connection.connectToOneOf({{deaf.address, deaf.address}}, 250ms);
        FAIL();
    } catch (const VornException& e) {
        EXPECT_EQ(e.getMessage().find("cannot connect to some host:17: "), 0U) << e.getMessage();
        const auto condition = VornPlatform::OsError(e.getCode()).condition();
        if (condition == OsCondition::TimedOut) {
            EXPECT_GE(Clock::now() - begin, 500ms) << "both were waited for";
        } else {
            EXPECT_EQ(condition, OsCondition::ConnectionRefused);
        }
    }
    EXPECT_EQ(connection.getSocket(), -1);
}

TEST(VornSocketConnection, TriesNoFurtherAddressAfterAnAbort) {
    const Deaf deaf;
    TestSupport::TcpListener listener;
    Reaching connection("some host", 1);
    connection.abort();
    EXPECT_EQ(messageOf([&] {
                  connection.connectToOneOf(
                      {{deaf.address, addressOf("127.0.0.1", listener.port())}}, 10s);
              }).find("tcp:some host:1: the connection was aborted"),
              0U);
    EXPECT_FALSE(listener.hasCaller());
}

TEST(VornSocketConnection, NamesHostAndPortWhenItCannotConnect) {
    TestSupport::TcpListener gone;
    const int port = gone.port();
    gone.close();
    VornSocketConnection connection("127.0.0.1", port);
    try {
        connection.establish();
        FAIL();
    } catch (const VornException& e) {
        EXPECT_EQ(e.getMessage().find("cannot connect to 127.0.0.1:" + std::to_string(port) + ": "),
                  0U);
        EXPECT_EQ(VornPlatform::OsError(e.getCode()).condition(), OsCondition::ConnectionRefused);
    }
    VornSocketConnection nameless("no such host.invalid", 1);
    EXPECT_EQ(messageOf([&] { nameless.establish(); }).find("cannot connect to no such host"), 0U);
}

TEST(VornSocketConnection, CannotBeUsedBeforeItIsEstablished) {
    VornSocketConnection connection("127.0.0.1", 1);
    EXPECT_THROW(connection.readInt(), VornException);
    connection.writeInt(1);  // held
    EXPECT_THROW(connection.flush(), VornException);
    EXPECT_TRUE(connection.isPeerGone());
    EXPECT_FALSE(VornSocketConnection("127.0.0.1", 1).isLocalConnection());
    connection.close();
}

TEST(VornSocketConnection, DoesNotEstablishAfterAbort) {
    TestSupport::TcpListener listener;
    VornSocketConnection connection("127.0.0.1", listener.port());
    connection.abort();
    EXPECT_THROW(connection.establish(), VornException);
}

TEST(VornSocketConnection, CostsLittleWhenQuiet) {
    EXPECT_LE(sizeof(VornSocketConnection) + 512, 1024U);
}
