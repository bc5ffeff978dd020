#include "client/RuvoListener.h"
#include "tests/client/ScriptedDaemon.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <thread>

using ClientTest::delivery;
using ClientTest::i32;
using ClientTest::str;
using Ruvo::RuvoListener;
using Ruvo::RuvoListenerOptions;
using std::chrono::milliseconds;
using VornPlatform::Socket;

namespace {

constexpr milliseconds kPatience = TestSupport::kPatience;

VornPlatform::SocketAddress addressOf(const RuvoListener& listener) {
    const std::string& name = listener.remoteName();
    const auto port = static_cast<std::uint16_t>(std::stoi(name.substr(name.rfind(':') + 1)));
    return *VornPlatform::SocketAddress::parse("127.0.0.1", port);
}

// The daemon's delivery connection.
class Sender {
public:
    explicit Sender(const RuvoListener& listener) {
        EXPECT_FALSE(VornPlatform::connectTcp(addressOf(listener), socket_));
        // Else the system may gather what the test means to come apart.
        VornPlatform::setNoDelay(socket_.handle(), true);
    }
    void send(std::string_view bytes) {
        while (!bytes.empty()) {
            const auto sent = VornPlatform::send(socket_.handle(), bytes.data(), bytes.size());
            if (sent.error) return;
            bytes.remove_prefix(sent.count);
        }
    }
    // True when the listener has closed its end, which next() must do meanwhile.
    bool isRejectedBy(RuvoListener& listener) {
        return TestSupport::waitUntil([&] {
            EXPECT_FALSE(listener.next(milliseconds(1)));
            return VornPlatform::isPeerClosed(socket_.handle());
        });
    }
    void close() { socket_.close(); }

private:
    Socket socket_;
};

std::string eventOf(RuvoListener& listener) {
    const auto next = listener.next(kPatience);
    return next ? next->event : "(nothing)";
}

}  // namespace

TEST(RuvoListener, NamesItsLoopbackPort) {
    const RuvoListener first;
    const RuvoListener second;
    EXPECT_EQ(first.remoteName().rfind("tcp:127.0.0.1:", 0), 0U) << first.remoteName();
    EXPECT_NE(first.remoteName(), second.remoteName());
    const RuvoListener datagrams({.useUdp = true});
    EXPECT_EQ(datagrams.remoteName().rfind("udp:127.0.0.1:", 0), 0U);
}

TEST(RuvoListener, HandsOutADelivery) {
    RuvoListener listener;
    Sender sender(listener);
    sender.send(delivery(42, "me", "disk.failed", "bay 3", "data"));
    const auto next = listener.next(kPatience);
    ASSERT_TRUE(next);
    EXPECT_EQ(next->handle, 42);
    EXPECT_EQ(next->sender, "me");
    EXPECT_EQ(next->event, "disk.failed");
    EXPECT_EQ(next->message, "bay 3");
    EXPECT_EQ(next->data, "data");
}

TEST(RuvoListener, TellsThatNothingCameInTime) {
    RuvoListener listener;
    EXPECT_FALSE(listener.next(milliseconds(0)));
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_FALSE(listener.next(milliseconds(60)));
    EXPECT_GE(std::chrono::steady_clock::now() - begun, milliseconds(60));
    EXPECT_FALSE(listener.wasWoken());
}

TEST(RuvoListener, PutsTogetherWhatComesByteByByte) {
    RuvoListener listener;
    Sender sender(listener);
    const std::string bytes = delivery(1, "s", "e", "m", "d");
    for (const char byte : bytes.substr(0, bytes.size() - 1)) {
        sender.send({&byte, 1});
        EXPECT_FALSE(listener.next(milliseconds(1)));
    }
    sender.send(bytes.substr(bytes.size() - 1));
    EXPECT_EQ(eventOf(listener), "e");
}

TEST(RuvoListener, TakesManyDeliveriesOutOfOneReceive) {
    RuvoListener listener;
    Sender sender(listener);
    std::string all;
    for (int i = 0; i < 1000; ++i) all += delivery(1, "", "e" + std::to_string(i), "");
    sender.send(all);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(eventOf(listener), "e" + std::to_string(i));
    EXPECT_FALSE(listener.next(milliseconds(0)));
}

TEST(RuvoListener, KeepsTheConnectionsApart) {
    RuvoListener listener;
    Sender first(listener);
    Sender second(listener);
    const std::string a = delivery(1, "", "a", "message of a");
    const std::string b = delivery(2, "", "b", "message of b");
    first.send(a.substr(0, 9));
    second.send(b.substr(0, 14));
    EXPECT_FALSE(listener.next(milliseconds(20)));
    second.send(b.substr(14));
    EXPECT_EQ(eventOf(listener), "b");
    first.send(a.substr(9));
    EXPECT_EQ(eventOf(listener), "a");
}

TEST(RuvoListener, TakesALargeDelivery) {
    RuvoListener listener;
    const std::string data(std::size_t{20} << 20, 'x');
    std::thread daemon([&] {
        Sender sender(listener);
        sender.send(delivery(1, "", "large", "", data));
        sender.send(delivery(1, "", "small", ""));
    });
    const auto next = listener.next(kPatience);
    daemon.join();
    ASSERT_TRUE(next);
    EXPECT_TRUE(next->data == data);
    EXPECT_EQ(eventOf(listener), "small");
}

TEST(RuvoListener, DropsTheRestOfADeliveryWhoseConnectionBreaks) {
    RuvoListener listener;
    Sender first(listener);
    const std::string bytes = delivery(1, "", "lost", "");
    first.send(delivery(1, "", "whole", "") + bytes.substr(0, bytes.size() - 1));
    first.close();
    EXPECT_EQ(eventOf(listener), "whole");
    Sender second(listener);
    second.send(delivery(1, "", "next", ""));
    EXPECT_EQ(eventOf(listener), "next");
}

TEST(RuvoListener, ClosesAConnectionThatDeclaresTooMuch) {
    const std::string fine = str("x");
    for (const std::string& hostile :
         {i32(1) + i32(-1), i32(1) + fine + i32(0x7fffffff), i32(1) + fine + fine + i32(-2147483648),
          i32(1) + fine + fine + fine + i32(-1)}) {
        RuvoListener listener;
        Sender honest(listener);
        Sender sender(listener);
        sender.send(hostile);
        EXPECT_TRUE(sender.isRejectedBy(listener));
        EXPECT_EQ(listener.rejected(), 1U);
        honest.send(delivery(1, "", "goes on", ""));
        EXPECT_EQ(eventOf(listener), "goes on");
    }
}

TEST(RuvoListener, TakesTextsOfUpTo64Mebibytes) {
    RuvoListener listener;
    std::thread daemon([&] {
        Sender sender(listener);
        sender.send(delivery(1, "", "VornJSEvent:" + std::string(1048576, 'n'), ""));
        sender.send(delivery(1, "", std::string(67108864, 'n'), ""));
    });
    EXPECT_EQ(eventOf(listener).size(), 1048588U);
    EXPECT_EQ(eventOf(listener).size(), 67108864U);
    daemon.join();
    EXPECT_EQ(listener.lost(), 0U);
    Sender sender(listener);
    sender.send(i32(1) + i32(67108865));
    EXPECT_TRUE(sender.isRejectedBy(listener));
    EXPECT_EQ(listener.lost(), 1U);
}

TEST(RuvoListener, CountsWhatItLostOfItsOwn) {
    RuvoListener listener({.maxStringBytes = 10, .maxHeldBytes = 100000});
    const std::int32_t mine = listener.newHandle();
    const auto reject = [&](const std::string& bytes) {
        Sender sender(listener);
        sender.send(bytes);
        EXPECT_TRUE(sender.isRejectedBy(listener));
    };
    reject(i32(mine) + i32(11));
    EXPECT_EQ(listener.lost(), 1U);
    reject(i32(std::int64_t{mine} - 1) + i32(11));  // somebody else's
    EXPECT_EQ(listener.lost(), 1U);
    EXPECT_EQ(listener.rejected(), 2U);
    reject(i32(mine) + str("") + str("") + str("") + i32(200000) + std::string(150000, 'd'));
    EXPECT_EQ(listener.lost(), 2U);
    reject(i32(0) + str("") + str("") + str("") + i32(200000) + std::string(150000, 'd'));
    EXPECT_EQ(listener.lost(), 2U);
}

TEST(RuvoListener, HandsOutWhatCameBeforeTheHostilePart) {
    RuvoListener listener;
    Sender sender(listener);
    sender.send(delivery(1, "", "good", "") + i32(1) + i32(-1));
    EXPECT_EQ(eventOf(listener), "good");
    EXPECT_TRUE(sender.isRejectedBy(listener));
}

TEST(RuvoListener, HoldsNoMoreThanItsBoundOfIncompleteDeliveries) {
    RuvoListener listener({.maxHeldBytes = 100000});
    Sender first(listener);
    Sender second(listener);
    first.send(i32(1) + i32(1000000) + std::string(60000, 'x'));
    EXPECT_FALSE(listener.next(milliseconds(20)));
    second.send(i32(1) + i32(1000000) + std::string(60000, 'x'));
    EXPECT_TRUE(TestSupport::waitUntil([&] {
        EXPECT_FALSE(listener.next(milliseconds(1)));
        return listener.rejected() == 1;
    }));
    Sender third(listener);  // room again
    third.send(delivery(1, "", "goes on", ""));
    EXPECT_EQ(eventOf(listener), "goes on");
}

TEST(RuvoListener, ThrowsAwayDeliveriesUnderForeignHandles) {
    RuvoListener listener;
    const std::int32_t mine = listener.newHandle();
    const std::int32_t other = listener.newHandle();
    EXPECT_GT(mine, 0);
    EXPECT_NE(mine, other);
    Sender sender(listener);
    sender.send(delivery(std::int64_t{mine} + 1 == other ? 0 : std::int64_t{mine} + 1, "", "forged", "") +
                delivery(mine, "", "mine", "") + delivery(other, "", "other", ""));
    EXPECT_EQ(eventOf(listener), "mine");
    EXPECT_EQ(eventOf(listener), "other");
    EXPECT_EQ(listener.rejected(), 1U);
}

TEST(RuvoListener, KeepsTheDaemonsConnectionWhenOthersCrowdIn) {
    RuvoListener listener({.maxConnections = 3});
    const std::int32_t handle = listener.newHandle();
    Sender daemon(listener);
    daemon.send(delivery(handle, "", "first", ""));
    EXPECT_EQ(eventOf(listener), "first");
    std::vector<Sender> crowd;
    for (int i = 0; i < 10; ++i) {
        crowd.emplace_back(listener);
        EXPECT_FALSE(listener.next(milliseconds(1)));
    }
    EXPECT_TRUE(TestSupport::waitUntil([&] {
        EXPECT_FALSE(listener.next(milliseconds(1)));
        return listener.rejected() == 8;
    }));
    daemon.send(delivery(handle, "", "second", ""));
    EXPECT_EQ(eventOf(listener), "second");
    // Idle ones do not keep it out either, should it come anew.
    Sender again(listener);
    again.send(delivery(handle, "", "third", ""));
    EXPECT_EQ(eventOf(listener), "third");
}

TEST(RuvoListener, IsWokenByAnotherThread) {
    RuvoListener listener;
    std::thread other([&] { listener.wake(); });
    EXPECT_FALSE(listener.next(milliseconds(-1)));
    EXPECT_TRUE(listener.wasWoken());
    other.join();
    EXPECT_FALSE(listener.next(milliseconds(0)));
    EXPECT_FALSE(listener.wasWoken());
}

TEST(RuvoListener, RemembersAWakeUpBeforeTheWait) {
    RuvoListener listener;
    listener.wake();
    EXPECT_FALSE(listener.next(milliseconds(-1)));
    EXPECT_TRUE(listener.wasWoken());
}

TEST(RuvoListener, TakesDatagrams) {
    RuvoListener listener({.useUdp = true});
    Socket socket;
    ASSERT_FALSE(VornPlatform::connectUdp(addressOf(listener), socket));
    const auto send = [&](const std::string& datagram) {
        const auto sent =
            VornPlatform::send(socket.handle(), datagram.data(), datagram.size());
        EXPECT_FALSE(sent.error);
    };
    send(delivery(1, "me", "first", "", std::string(40000, 'x')));
    const auto first = listener.next(kPatience);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->event, "first");
    EXPECT_EQ(first->data.size(), 40000U);

    const std::string whole = delivery(1, "me", "second", "m");
    send("");                                    // nothing
    send(whole.substr(0, whole.size() - 1));     // cut off
    send(whole + "x");                           // more than one delivery
    send(i32(1) + i32(-1));                      // a lie
    send(whole);
    EXPECT_EQ(eventOf(listener), "second");
    EXPECT_EQ(listener.rejected(), 4U);
    EXPECT_EQ(listener.lost(), 1U);  // the lie was under a handle that is taken
}
