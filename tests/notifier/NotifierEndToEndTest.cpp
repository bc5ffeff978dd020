// The notification engine from a client's request to another client's listener,
// over real sockets of the loopback.

#include "runtime/net/VornNetLimits.h"
#include "runtime/net/WireCodec.h"
#include "tests/notifier/RecordingDependent.h"
#include "tests/notifier/TestNotifier.h"
#include "tests/support/TestListener.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

using namespace std::chrono_literals;
using TestSupport::readBytes;
using TestSupport::TcpListener;
using VornPlatform::Socket;

namespace {

using Texts = std::vector<std::string>;

struct Delivery {
    std::int32_t handle = 0;
    std::string sender;
    std::string eventName;
    std::string message;
    std::string data;
    bool operator==(const Delivery&) const = default;
};

std::int32_t readInt(const Socket& socket) {
    return static_cast<std::int32_t>(VornNet::decode32(readBytes(socket, 4).data()));
}

std::string readText(const Socket& socket) {
    return readBytes(socket, static_cast<std::size_t>(readInt(socket)));
}

Delivery readDelivery(const Socket& socket) {
    Delivery delivery;
    delivery.handle = readInt(socket);
    delivery.sender = readText(socket);
    delivery.eventName = readText(socket);
    delivery.message = readText(socket);
    delivery.data = readText(socket);  // a size and that many bytes, too
    return delivery;
}

Delivery deliveryOf(std::int32_t handle, const std::string& name, const std::string& data = "") {
    return {handle, "the sender", name, "the message", data};
}

class NotifierEndToEnd : public testing::Test {
protected:
    NotifierEndToEnd() { engine_.initialize(); }
    ~NotifierEndToEnd() override {
        engine_.cleanup();
        emptyContainer();
        VornNet::VornNetLimits::getInstance().deliveryMs = 2000;
    }

    TestNotifier engine_;
};

}  // namespace

TEST_F(NotifierEndToEnd, DeliversTheHandleAndWhatWasRaised) {
    const TcpListener listener;
    ASSERT_EQ(engine_.enroll("disk", listener.remoteName(), -77), Texts{"int 0"});
    const std::string data("\0\1\2\xff\n", 5);
    ASSERT_EQ(engine_.raise("raid.disk.ok", data), Texts{"int 0"});
    const Socket client = listener.accept();
    EXPECT_EQ(readDelivery(client), deliveryOf(-77, "raid.disk.ok", data));
}

TEST_F(NotifierEndToEnd, DeliversOnlyWhatTheSignatureSelects) {
    const TcpListener listener;
    engine_.enroll("^disk$", listener.remoteName(), 1);
    engine_.raise("raid.disk.ok");
    engine_.raise("disk.failed");
    engine_.raise("disk");
    const Socket client = listener.accept();
    EXPECT_EQ(readDelivery(client), deliveryOf(1, "disk"));
}

TEST_F(NotifierEndToEnd, DeliversEventsToEveryClientInTheOrderTheyWereRaised) {
    constexpr int kEvents = 100;
    const TcpListener listeners[2];
    engine_.enroll(".*", listeners[0].remoteName(), 1);
    engine_.enroll(".*", listeners[1].remoteName(), 2);
    for (int i = 0; i < kEvents; ++i) {
        engine_.raise("event " + std::to_string(i), std::string(100, 'x'));
    }
    for (int l = 0; l < 2; ++l) {
        const Socket client = listeners[l].accept();
        for (int i = 0; i < kEvents; ++i) {
            ASSERT_EQ(readDelivery(client), deliveryOf(l + 1, "event " + std::to_string(i),
                                                       std::string(100, 'x')));
        }
    }
}

TEST_F(NotifierEndToEnd, SharesOneConnectionAmongTheRegistrationsOfAName) {
    const TcpListener listener;
    engine_.enroll("disk", listener.remoteName(), 1);
    engine_.enroll("raid", listener.remoteName(), 2);
    engine_.enroll("disk", listener.remoteName(), 1);  // told twice
    engine_.raise("raid.disk");
    const Socket client = listener.accept();
    EXPECT_EQ(readDelivery(client), deliveryOf(1, "raid.disk"));
    EXPECT_EQ(readDelivery(client), deliveryOf(2, "raid.disk"));
    EXPECT_EQ(readDelivery(client), deliveryOf(1, "raid.disk"));
    EXPECT_FALSE(listener.hasCaller());
}

TEST_F(NotifierEndToEnd, DeliversAnEventWithoutData) {
    const TcpListener listener;
    engine_.enroll("disk", listener.remoteName(), 1);
    engine_.raise("disk");
    const Socket client = listener.accept();
    EXPECT_EQ(readDelivery(client), deliveryOf(1, "disk", ""));
    engine_.raise("disk again");
    EXPECT_EQ(readDelivery(client), deliveryOf(1, "disk again", ""));
}

TEST_F(NotifierEndToEnd, DeliversTheLargestTextsWhole) {
    const TcpListener listener;
    const std::string name = "disk" + std::string((1 << 20) - 4, '\xfe');
    const std::string data(3 << 20, '\0');
    engine_.enroll("^disk", listener.remoteName(), 1);
    engine_.raise(name, data);
    const Socket client = listener.accept();
    EXPECT_EQ(readDelivery(client), deliveryOf(1, name, data));
}

TEST_F(NotifierEndToEnd, LeavesARefusedSignatureToItsOwner) {
    const TcpListener listener;
    engine_.enroll("disk[", listener.remoteName(), 1);
    engine_.enroll("disk", listener.remoteName(), 2);
    engine_.raise("disk[");
    const Socket client = listener.accept();
    EXPECT_EQ(readDelivery(client), deliveryOf(2, "disk["));
}

TEST_F(NotifierEndToEnd, TellsAClientNothingMoreOnceItHasWithdrawn) {
    const TcpListener listener;
    engine_.enroll(".*", listener.remoteName(), 1);
    engine_.enroll(".*", listener.remoteName(), 2);
    for (int i = 0; i < 50; ++i) engine_.raise("before");
    EXPECT_EQ(engine_.withdraw(listener.remoteName(), 1), Texts{"int 0"});
    const Socket client = listener.accept();
    engine_.raise("after");
    int first = 0;
    for (Delivery next = readDelivery(client); next.eventName != "after";
         next = readDelivery(client)) {
        if (next.handle == 1) ++first;
    }
    EXPECT_LE(first, 50);
    engine_.raise("end");
    EXPECT_EQ(readDelivery(client), deliveryOf(2, "end"));
}

TEST_F(NotifierEndToEnd, GoesOnForOthersWhenAClientHasGone) {
    const TcpListener steady;
    TcpListener leaving;
    engine_.enroll(".*", leaving.remoteName(), 1);
    engine_.enroll(".*", steady.remoteName(), 2);
    engine_.raise("A");
    const Socket client = steady.accept();
    EXPECT_EQ(readDelivery(client), deliveryOf(2, "A"));
    leaving.accept().close();
    leaving.close();
    for (const char* name : {"B", "C", "D"}) {
        engine_.raise(name);
        EXPECT_EQ(readDelivery(client), deliveryOf(2, name));
    }
}

TEST_F(NotifierEndToEnd, IsNotHeldUpByAClientThatDoesNotRead) {
    VornNet::VornNetLimits::getInstance().deliveryMs = 100;
    const TcpListener stalled;
    const TcpListener steady;
    engine_.enroll(".*", stalled.remoteName(), 1);
    engine_.enroll(".*", steady.remoteName(), 2);
    engine_.raise("first");
    const Socket never = stalled.accept();
    const Socket client = steady.accept();
    EXPECT_EQ(readDelivery(client), deliveryOf(2, "first"));

    // More than the system takes for a client that does not read.
    const std::string data(1 << 20, 'x');
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 30; ++i) {
        engine_.raise(std::to_string(i), data);
        ASSERT_EQ(readDelivery(client), deliveryOf(2, std::to_string(i), data));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
}

TEST_F(NotifierEndToEnd, StopsThoughAClientDoesNotRead) {
    VornNet::VornNetLimits::getInstance().deliveryMs = 100;
    const TcpListener stalled;
    engine_.enroll(".*", stalled.remoteName(), 1);
    for (int i = 0; i < 20; ++i) engine_.raise("e", std::string(1 << 20, 'x'));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(engine_.cleanup());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
}
