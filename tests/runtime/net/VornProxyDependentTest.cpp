#include "runtime/net/VornProxyDependent.h"

#include "runtime/net/VornDeliveryChannel.h"
#include "runtime/net/VornDeliveryGathering.h"
#include "runtime/net/VornNetLimits.h"
#include "runtime/net/VornProxyDependentContainer.h"
#include "runtime/net/WireCodec.h"
#include "runtime/support/VornException.h"
#include "tests/runtime/net/TestProxy.h"
#include "tests/support/TestListener.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

using TestSupport::readBytes;
using TestSupport::TcpListener;
using VornNet::VornDeliveryGathering;
using VornNet::VornProxyDependentContainer;
using VornPlatform::Socket;
using VornSupport::makeCounted;
using VornSupport::VornException;
using Clock = std::chrono::steady_clock;

namespace {

std::string delivery(std::int32_t handle, const std::string& text) {
    std::string bytes;
    VornNet::appendInt(bytes, handle);
    return bytes + text;
}

// A port at which nobody listens.
std::uint16_t deadPort() {
    TcpListener listener;
    return listener.port();
}

std::string messageOf(TestProxy& proxy) {
    try {
        proxy.tell();
    } catch (const VornException& e) {
        return e.getMessage();
    }
    return "";
}

class VornProxyDependentTest : public ::testing::Test {
protected:
    void SetUp() override { limits().deliveryMs = 20000; }
    void TearDown() override { limits().deliveryMs = 2000; }
    static VornNet::VornNetLimits& limits() { return VornNet::VornNetLimits::getInstance(); }
};

}  // namespace

TEST_F(VornProxyDependentTest, DeliversTheHandleAndThenTheContent) {
    TcpListener listener;
    const auto proxy = makeCounted<TestProxy>(listener.remoteName(), -7, "hello");
    proxy->tell();
    EXPECT_EQ(readBytes(listener.accept(), 9), delivery(-7, "hello"));
}

TEST_F(VornProxyDependentTest, KeepsOneConnectionForAllRegistrationsOfAName) {
    TcpListener listener;
    const auto one = makeCounted<TestProxy>(listener.remoteName(), 1, "a");
    const auto two = makeCounted<TestProxy>(listener.remoteName(), 2, "b");
    one->tell();
    two->tell();
    one->tell();
    const Socket client = listener.accept();
    EXPECT_EQ(readBytes(client, 15), delivery(1, "a") + delivery(2, "b") + delivery(1, "a"));
    EXPECT_FALSE(listener.hasCaller());
}

TEST_F(VornProxyDependentTest, ClosesTheConnectionWithTheLastRegistrationOfTheName) {
    TcpListener listener;
    auto& container = VornProxyDependentContainer::getInstance();
    container.add(makeCounted<TestProxy>(listener.remoteName(), 1, "a"));
    container.add(makeCounted<TestProxy>(listener.remoteName(), 2, "b"));
    dynamic_cast<TestProxy&>(*container.lookup(listener.remoteName(), 1)).tell();
    const Socket client = listener.accept();
    EXPECT_EQ(readBytes(client, 5), delivery(1, "a"));
    container.remove(listener.remoteName(), 1);
    EXPECT_FALSE(VornPlatform::isPeerClosed(client.handle()));
    container.remove(listener.remoteName(), 2);
    EXPECT_EQ(readBytes(client, 1), "");  // the end of the stream
}

TEST_F(VornProxyDependentTest, ConnectsAnewToAListenerThatHasClosedItsConnection) {
    TcpListener listener;
    const auto proxy = makeCounted<TestProxy>(listener.remoteName(), 1, "x");
    proxy->tell();
    {
        const Socket client = listener.accept();
        EXPECT_EQ(readBytes(client, 5), delivery(1, "x"));
    }
    proxy->tell();
    EXPECT_EQ(readBytes(listener.accept(), 5), delivery(1, "x"));
}

TEST_F(VornProxyDependentTest, ReportsAClientThatCannotBeReachedAndBacksOff) {
    const auto port = deadPort();
    const auto proxy =
        makeCounted<TestProxy>("tcp:127.0.0.1:" + std::to_string(port), 1, "x");
    EXPECT_NE(messageOf(*proxy).find("failed"), std::string::npos);
    EXPECT_NE(messageOf(*proxy).find("back-off"), std::string::npos);

    TcpListener listener(port);
    const auto start = Clock::now();
    while (!messageOf(*proxy).empty()) {
        ASSERT_LT(Clock::now() - start, std::chrono::seconds(30)) << "never tried again";
        std::this_thread::yield();
    }
    EXPECT_EQ(readBytes(listener.accept(), 5), delivery(1, "x"));
}

TEST_F(VornProxyDependentTest, RefusesANameThatCannotBeRead) {
    const auto proxy = makeCounted<TestProxy>("somewhere", 1, "x");
    EXPECT_NE(messageOf(*proxy).find("somewhere"), std::string::npos);
}

TEST_F(VornProxyDependentTest, LooksUpAHostName) {
    TcpListener listener;
    const auto proxy =
        makeCounted<TestProxy>("tcp:localhost:" + std::to_string(listener.port()), 1, "x");
    proxy->tell();
    EXPECT_EQ(readBytes(listener.accept(), 5), delivery(1, "x"));
}

TEST_F(VornProxyDependentTest, ReportsAHostNameThatDoesNotExist) {
    const auto proxy = makeCounted<TestProxy>("tcp:no-such-host.invalid:80", 1, "x");
    EXPECT_NE(messageOf(*proxy).find("no-such-host.invalid"), std::string::npos);
}

TEST_F(VornProxyDependentTest, DeliversNothingOfAContentThatFailed) {
    TcpListener listener;
    const auto broken = makeCounted<TestProxy>(
        listener.remoteName(), 1, [](VornNet::VornConnection& connection) {
            connection.writeInt(1);
            throw VornException("half way");
        });
    const auto whole = makeCounted<TestProxy>(listener.remoteName(), 2, "b");
    EXPECT_EQ(messageOf(*broken), "half way");
    whole->tell();
    EXPECT_EQ(readBytes(listener.accept(), 5), delivery(2, "b"));
}

TEST(VornDeliveryChannel, DoublesItsBackOffFromATenthToThirtySeconds) {
    std::vector<long long> times;
    for (int failures = 0; failures < 11; ++failures) {
        times.push_back(VornNet::VornDeliveryChannel::backOffAfter(failures).count());
    }
    EXPECT_EQ(times, (std::vector<long long>{100, 200, 400, 800, 1600, 3200, 6400, 12800, 25600,
                                             30000, 30000}));
    EXPECT_EQ(VornNet::VornDeliveryChannel::backOffAfter(1 << 30).count(), 30000);
}

TEST_F(VornProxyDependentTest, FailsAListenerThatDoesNotTakeItsBytesInTime) {
    limits().deliveryMs = 200;
    TcpListener listener;
    const auto proxy =
        makeCounted<TestProxy>(listener.remoteName(), 1, std::string(8 << 20, 'x'));
    const auto small = makeCounted<TestProxy>(listener.remoteName(), 2, "x");
    const auto start = Clock::now();
    std::string message;
    for (int i = 0; i < 100 && message.empty(); ++i) message = messageOf(*proxy);
    EXPECT_NE(message.find("200 ms"), std::string::npos) << message;
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(200));
    EXPECT_NE(messageOf(*small).find("back-off"), std::string::npos);
}

TEST_F(VornProxyDependentTest, SendsADeliveryOverUdpAsOneDatagram) {
    Socket receiver;
    ASSERT_FALSE(VornPlatform::bindUdp(0, "127.0.0.1", receiver));
    VornPlatform::SocketAddress address;
    VornPlatform::localAddress(receiver.handle(), address);
    const auto proxy =
        makeCounted<TestProxy>("udp:" + address.text(), 3, std::string(59996, 'u'));
    proxy->tell();
    TestSupport::awaitReadable(receiver);
    std::string bytes(70000, '\0');
    VornPlatform::SocketAddress from;
    VornPlatform::SocketAddress to;
    const auto got =
        VornPlatform::receiveFrom(receiver.handle(), bytes.data(), bytes.size(), from, to);
    bytes.resize(got.count);
    EXPECT_EQ(bytes, delivery(3, std::string(59996, 'u')));

    const auto tooLarge =
        makeCounted<TestProxy>("udp:" + address.text(), 3, std::string(59997, 'u'));
    EXPECT_NE(messageOf(*tooLarge), "");
}

TEST_F(VornProxyDependentTest, FindsOutAnOverlongDatagramWhoseWriterSwallowsTheError) {
    const auto proxy = makeCounted<TestProxy>(
        "udp:127.0.0.1:9", 1, [](VornNet::VornConnection& connection) {
            try {
                connection.writeString(std::string(60000, 'x'));
            } catch (const VornException&) {
            }
        });
    EXPECT_NE(messageOf(*proxy).find("too large"), std::string::npos);
}

TEST_F(VornProxyDependentTest, DeliversNothingOfAContentWhoseWriterGaveUp) {
    TcpListener listener;
    const auto broken = makeCounted<TestProxy>(listener.remoteName(), 1,
                                               [](VornNet::VornConnection& connection) {
                                                   connection.writeInt(1);
                                                   connection.abort();
                                               });
    EXPECT_NE(messageOf(*broken), "");
    makeCounted<TestProxy>(listener.remoteName(), 2, "b")->tell();
    EXPECT_EQ(readBytes(listener.accept(), 5), delivery(2, "b"));
}

TEST_F(VornProxyDependentTest, CheckEventOfTheBaseDoesNothing) {
    const auto proxy = makeCounted<TestProxy>("somewhere", 1, "x");
    EXPECT_FALSE(proxy->checkEvent(VornSupport::VornNotification()));
}

using VornDeliveryGatheringTest = VornProxyDependentTest;

TEST_F(VornDeliveryGatheringTest, HoldsDeliveriesBackUntilItIsFlushed) {
    TcpListener listener;
    const auto proxy = makeCounted<TestProxy>(listener.remoteName(), 1, "x");
    VornDeliveryGathering gathering;
    proxy->tell();
    proxy->tell();
    gathering.settle();
    EXPECT_FALSE(listener.hasCaller());
    gathering.flush();
    EXPECT_EQ(readBytes(listener.accept(), 10), delivery(1, "x") + delivery(1, "x"));
}

TEST_F(VornDeliveryGatheringTest, HandsOverWithoutWaitingForAnybody) {
    TestSupport::BusyListener busy;
    TcpListener listener;
    const auto unreachable = makeCounted<TestProxy>(busy.remoteName(), 1, "x");
    const auto reachable = makeCounted<TestProxy>(listener.remoteName(), 2, "y");
    const auto start = Clock::now();
    {
        VornDeliveryGathering gathering;
        for (int i = 0; i < 3; ++i) {
            unreachable->tell();
            reachable->tell();
            gathering.handOver();
        }
        EXPECT_EQ(readBytes(listener.accept(), 15),
                  delivery(2, "y") + delivery(2, "y") + delivery(2, "y"));
    }
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
    const Socket late = busy.serve();
    EXPECT_EQ(readBytes(late, 15), delivery(1, "x") + delivery(1, "x") + delivery(1, "x"));
}

// What it has been told still comes, and then the connection ends.
TEST_F(VornDeliveryGatheringTest, SendsWhatIsHeldForARegistrationThatIsGone) {
    TestSupport::BusyListener busy;
    auto& container = VornProxyDependentContainer::getInstance();
    auto proxy = makeCounted<TestProxy>(busy.remoteName(), 1, "x");
    container.add(proxy);
    const auto start = Clock::now();
    {
        VornDeliveryGathering gathering;
        proxy->tell();
        EXPECT_TRUE(container.removeWithoutWaiting(*proxy));
        EXPECT_FALSE(container.removeWithoutWaiting(*proxy));
        EXPECT_EQ(container.lookup(busy.remoteName(), 1), nullptr);
        proxy = nullptr;
        gathering.handOver();
    }
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(readBytes(busy.serve(), 100), delivery(1, "x"));
}

// A client that stays away loses what is held, and the thread that sends ends.
TEST_F(VornDeliveryGatheringTest, GivesUpAfterTheTimeForDeliveries) {
    limits().deliveryMs = 100;
    TestSupport::BusyListener busy;
    const auto unreachable = makeCounted<TestProxy>(busy.remoteName(), 1, "x");
    VornDeliveryGathering gathering;
    unreachable->tell();
    gathering.handOver();
    EXPECT_TRUE(TestSupport::waitUntil(
        [&] { return messageOf(*unreachable).find("back-off") != std::string::npos; }));
}

TEST_F(VornDeliveryGatheringTest, SendsWhenSixteenKibibytesAreHeld) {
    TcpListener listener;
    const auto proxy = makeCounted<TestProxy>(listener.remoteName(), 1, std::string(5000, 'x'));
    VornDeliveryGathering gathering;
    for (int i = 0; i < 3; ++i) proxy->tell();
    EXPECT_FALSE(listener.hasCaller());
    proxy->tell();
    const Socket client = listener.accept();
    gathering.settle();
    EXPECT_EQ(readBytes(client, 4 * 5004).size(), 4u * 5004u);
}

TEST_F(VornDeliveryGatheringTest, FlushesAtItsEnd) {
    TcpListener listener;
    const auto proxy = makeCounted<TestProxy>(listener.remoteName(), 1, "x");
    {
        VornDeliveryGathering gathering;
        EXPECT_EQ(VornDeliveryGathering::current(), &gathering);
        proxy->tell();
    }
    EXPECT_EQ(VornDeliveryGathering::current(), nullptr);
    EXPECT_EQ(readBytes(listener.accept(), 5), delivery(1, "x"));
}

TEST_F(VornDeliveryGatheringTest, SendsWhatIsHeldForARegistrationBeforeItIsGone) {
    TcpListener listener;
    auto& container = VornProxyDependentContainer::getInstance();
    container.add(makeCounted<TestProxy>(listener.remoteName(), 1, "x"));
    VornDeliveryGathering gathering;
    dynamic_cast<TestProxy&>(*container.lookup(listener.remoteName(), 1)).tell();
    container.remove(listener.remoteName(), 1);
    const Socket client = listener.accept();
    EXPECT_EQ(readBytes(client, 5), delivery(1, "x"));
    EXPECT_EQ(VornPlatform::bytesAvailable(client.handle()), 0u);
}

// Two listeners that never read, each fed until its channel is stuck, cost the
// time-out once together, and a third one is served all the same.
TEST_F(VornDeliveryGatheringTest, WaitsForAllStalledListenersAtOnce) {
    limits().deliveryMs = 1000;
    std::vector<TcpListener> stalled(2);
    TcpListener reading;
    const std::string block(512 * 1024, 'x');
    std::vector<VornSupport::VornSmartPointer<TestProxy>> proxies;
    for (const auto& listener : stalled) {
        proxies.push_back(makeCounted<TestProxy>(listener.remoteName(), 1, block));
    }
    const auto good = makeCounted<TestProxy>(reading.remoteName(), 2, "good");

    VornDeliveryGathering gathering;
    std::vector<bool> failed(2, false);
    auto start = Clock::now();
    int events = 0;
    while (!(failed[0] && failed[1])) {
        ASSERT_LT(++events, 1000);
        for (std::size_t i = 0; i < 2; ++i) {
            if (!failed[i] && messageOf(*proxies[i]) != "") failed[i] = true;
        }
        if (events == 1) good->tell();
        gathering.settle();
    }
    const auto took = Clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(1000));
    gathering.flush();
    EXPECT_EQ(readBytes(reading.accept(), 8), delivery(2, "good"));
}

TEST_F(VornDeliveryGatheringTest, ASlowReaderGetsEverythingInOrder) {
    TcpListener listener;
    constexpr int kDeliveries = 2000;
    const std::string text(3000, 'x');
    std::string received;
    std::thread reader([&] {
        const Socket client = listener.accept();
        received = readBytes(client, kDeliveries * (4 + text.size()));
    });
    const auto registered = makeCounted<TestProxy>(listener.remoteName(), 0, text);
    {
        VornDeliveryGathering gathering;
        for (int i = 0; i < kDeliveries; ++i) {
            makeCounted<TestProxy>(listener.remoteName(), i, text)->tell();
            gathering.settle();
        }
    }
    reader.join();
    ASSERT_EQ(received.size(), kDeliveries * (4 + text.size()));
    for (int i = 0; i < kDeliveries; ++i) {
        const auto at = static_cast<std::size_t>(i) * (4 + text.size());
        ASSERT_EQ(VornNet::decode32(received.data() + at), static_cast<std::uint32_t>(i));
    }
}

// However large an event and however many do not read, the deliveries themselves
// wait for nobody and copy little.
TEST_F(VornDeliveryGatheringTest, WaitsForNobodyInsideADelivery) {
    class Content : public VornSupport::VornObjectBase {
    public:
        const std::string bytes = std::string(32 << 20, 'x');
    };
    const auto content = makeCounted<Content>();
    const auto writeIt = [&](VornNet::VornConnection& connection) {
        connection.writeShared(*content, content->bytes);
    };
    std::vector<TcpListener> listeners(8);
    TcpListener reading;
    const auto good = makeCounted<TestProxy>(reading.remoteName(), 2, writeIt);
    std::string received;
    std::thread reader([&] {
        const Socket client = reading.accept();
        received = readBytes(client, 4 + content->bytes.size());
    });
    {
        VornDeliveryGathering gathering;
        const auto start = Clock::now();
        std::vector<VornSupport::VornSmartPointer<TestProxy>> proxies;
        for (const auto& listener : listeners) {
            proxies.push_back(makeCounted<TestProxy>(listener.remoteName(), 1, writeIt));
            proxies.back()->tell();
        }
        good->tell();
        EXPECT_LT(Clock::now() - start, std::chrono::seconds(10)) << "half the time of one client";
        EXPECT_EQ(content->refCount(), 10u) << "one copy for all";
        limits().deliveryMs = 1000;
        gathering.settle();
        EXPECT_EQ(content->refCount(), 1u);
    }
    reader.join();
    EXPECT_EQ(received, delivery(2, content->bytes));
}

// One that has stalled is given hardly any time until it has proved itself.
TEST_F(VornDeliveryGatheringTest, HardlyWaitsForAClientThatStalledBefore) {
    limits().deliveryMs = 200;
    TcpListener stalled;
    const auto proxy =
        makeCounted<TestProxy>(stalled.remoteName(), 1, std::string(16 << 20, 'x'));
    VornDeliveryGathering gathering;
    EXPECT_EQ(messageOf(*proxy), "");
    gathering.settle();
    limits().deliveryMs = 60000;
    const auto start = Clock::now();
    std::string message;
    while (message.find("still does not take its bytes") == std::string::npos) {
        message = messageOf(*proxy);
        gathering.settle();
        ASSERT_LT(Clock::now() - start, std::chrono::seconds(30));
    }
}

// Also while events never pause.
TEST_F(VornDeliveryGatheringTest, LetsTheConnectionOfAnUnregisteredClientGo) {
    TcpListener listener;
    auto& container = VornProxyDependentContainer::getInstance();
    container.add(makeCounted<TestProxy>(listener.remoteName(), 1, "x"));
    VornDeliveryGathering gathering;
    dynamic_cast<TestProxy&>(*container.lookup(listener.remoteName(), 1)).tell();
    container.remove(listener.remoteName(), 1);
    const Socket client = listener.accept();
    for (int i = 0; i < 1000; ++i) gathering.settle();
    EXPECT_EQ(readBytes(client, 6), delivery(1, "x")) << "and then the end of the stream";
}

// A proxy may tell others while it is told.
TEST_F(VornDeliveryGatheringTest, KeepsDeliveriesInsideDeliveriesApart) {
    TcpListener outer;
    TcpListener inner;
    const auto second = makeCounted<TestProxy>(inner.remoteName(), 2, "inner");
    const auto first = makeCounted<TestProxy>(
        outer.remoteName(), 1, [&](VornNet::VornConnection& connection) {
            connection.writeInt(7);
            second->tell();
            connection.writeInt(8);
        });
    {
        VornDeliveryGathering gathering;
        first->tell();
    }
    std::string expected;
    VornNet::appendInt(expected, 7);
    VornNet::appendInt(expected, 8);
    EXPECT_EQ(readBytes(outer.accept(), 12), delivery(1, expected));
    EXPECT_EQ(readBytes(inner.accept(), 9), delivery(2, "inner"));
}
