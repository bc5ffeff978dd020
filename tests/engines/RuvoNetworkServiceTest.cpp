#include "engines/RuvoNetworkService.h"

#include "engines/RuvoClientAcceptor.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornThreadName.h"
#include "tests/support/FakeConnection.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace RuvoService;
using TestSupport::FakeConnection;
using TestSupport::LogCapture;
using TestSupport::waitUntil;
using VornSupport::VornException;
using VornSupport::VornMutexLock;

namespace {

using Connection = VornSupport::VornSmartPointer<VornNet::VornConnection>;

std::atomic<int> liveEndpoints{0};

// Clients come from the test.
class FakeEndpoint : public VornNet::VornIPCServer {
public:
    explicit FakeEndpoint(std::string address = "fake:7") : address_(std::move(address)) {
        ++liveEndpoints;
    }
    ~FakeEndpoint() override { --liveEndpoints; }

    void come(Connection client) {
        VornMutexLock lock(mutex_);
        clients_.push_back(std::move(client));
        changed_.notifyAll();
    }
    void failOnce() {
        VornMutexLock lock(mutex_);
        failures_ = 1;
        changed_.notifyAll();
    }
    std::string waitingThread() {
        VornMutexLock lock(mutex_);
        return waitingThread_;
    }
    int closes() {
        VornMutexLock lock(mutex_);
        return closes_;
    }

    Connection waitForClient(bool) override {
        VornMutexLock lock(mutex_);
        waitingThread_ = VornSupport::threadName();
        while (clients_.empty() && closes_ == 0 && failures_ == 0) changed_.wait(mutex_);
        if (failures_ > 0) {
            --failures_;
            throw VornException("out of everything");
        }
        if (clients_.empty()) return nullptr;
        Connection client = clients_.front();
        clients_.pop_front();
        return client;
    }
    void close() override {
        VornMutexLock lock(mutex_);
        ++closes_;
        changed_.notifyAll();
    }
    std::string getAddress() const override { return address_; }

private:
    const std::string address_;
    VornSupport::VornMutex mutex_;
    VornSupport::VornCondition changed_;
    std::deque<Connection> clients_ VORN_GUARDED_BY(mutex_);
    std::string waitingThread_ VORN_GUARDED_BY(mutex_);
    int closes_ VORN_GUARDED_BY(mutex_) = 0;
    int failures_ VORN_GUARDED_BY(mutex_) = 0;
};

using EndpointPointer = VornSupport::VornSmartPointer<FakeEndpoint>;

class TestListener : public RuvoNetworkService {
public:
    explicit TestListener(EndpointPointer first = EndpointPointer(new FakeEndpoint))
        : RuvoNetworkService("TestListener"), next(std::move(first)) {}
    ~TestListener() override { cleanup(); }

    using RuvoNetworkService::cleanup;
    using RuvoNetworkService::requirePort;
    using RuvoNetworkService::run;

    bool initialize() override {
        return listen("TestListener", [this]() -> Endpoint {
            if (!next) throw VornException("the address is taken", 98);
            return next;
        });
    }
    VornEventMonitor& monitor() { return *this; }

    EndpointPointer next;
};

class CollectingAcceptor : public RuvoClientAcceptor {
public:
    CollectingAcceptor() { RuvoClientAcceptor::set(this); }
    ~CollectingAcceptor() override { RuvoClientAcceptor::set(nullptr); }
    void acceptClient(Connection connection) override {
        VornMutexLock lock(mutex_);
        clients_.push_back(std::move(connection));
    }
    std::vector<Connection> clients() {
        VornMutexLock lock(mutex_);
        return clients_;
    }
    bool awaitClients(std::size_t count) {
        return waitUntil([&] { return clients().size() >= count; });
    }

private:
    VornSupport::VornMutex mutex_;
    std::vector<Connection> clients_ VORN_GUARDED_BY(mutex_);
};

Connection newClient() { return Connection(new FakeConnection); }

}  // namespace

TEST(RuvoNetworkService, WaitsForClientsOnAThreadOfItsName) {
    TestListener listener;
    ASSERT_TRUE(listener.monitor().start());
    EXPECT_TRUE(waitUntil([&] { return listener.next->waitingThread() == "TestListener"; }));
    EXPECT_EQ(listener.getAddress(), "fake:7");
}

TEST(RuvoNetworkService, HandsEveryClientToTheAcceptorAndGoesOnWaiting) {
    CollectingAcceptor acceptor;
    TestListener listener;
    ASSERT_TRUE(listener.monitor().start());
    const Connection first = newClient();
    const Connection second = newClient();
    listener.next->come(first);
    ASSERT_TRUE(acceptor.awaitClients(1));
    listener.next->come(second);
    ASSERT_TRUE(acceptor.awaitClients(2));
    EXPECT_EQ(acceptor.clients()[0].get(), first.get());
    EXPECT_EQ(acceptor.clients()[1].get(), second.get());
    listener.monitor().stop();
    // Ours and the acceptor's: the listener keeps none.
    EXPECT_EQ(first->refCount(), 2u);
}

TEST(RuvoNetworkService, TracesEachRequestWithItsName) {
    CollectingAcceptor acceptor;
    TestListener listener;
    ASSERT_TRUE(listener.monitor().start());
    const LogCapture log(9);
    listener.next->come(newClient());
    ASSERT_TRUE(acceptor.awaitClients(1));
    EXPECT_EQ(log.count(9, "RuvoNetworkService::run: servicing request for |TestListener|"), 1u);
}

TEST(RuvoNetworkService, StopsWhileItWaitsForAClient) {
    const int threads = VornSupport::VornThread::liveCount();
    TestListener listener;
    ASSERT_TRUE(listener.monitor().start());
    const EndpointPointer endpoint = listener.next;
    ASSERT_TRUE(waitUntil([&] { return !endpoint->waitingThread().empty(); }));
    EXPECT_TRUE(listener.monitor().stop());
    EXPECT_EQ(endpoint->closes(), 1);
    EXPECT_TRUE(VornSupport::VornThread::waitForLiveCount(threads, 20000));
    EXPECT_EQ(listener.getAddress(), "");
}

TEST(RuvoNetworkService, CleansUpWhatWasNeverInitialized) {
    TestListener listener;
    EXPECT_TRUE(listener.cleanup());
    EXPECT_TRUE(listener.cleanup());
    EXPECT_EQ(listener.next->closes(), 0);
}

TEST(RuvoNetworkService, RunsOutAtOnceWithoutAnEndpoint) {
    TestListener listener;
    EXPECT_EQ(listener.run(), 0);
}

TEST(RuvoNetworkService, StaysWithoutThreadAndEndpointWhenInitializingFails) {
    const int threads = VornSupport::VornThread::liveCount();
    const LogCapture log(9);
    {
        TestListener listener(nullptr);
        EXPECT_FALSE(listener.monitor().start());
        EXPECT_FALSE(listener.monitor().isStarted());
        EXPECT_EQ(listener.getAddress(), "");
        EXPECT_TRUE(VornSupport::VornThread::waitForLiveCount(threads, 20000));
        EXPECT_TRUE(listener.cleanup());
    }
    EXPECT_EQ(log.count(9, "TestListener::initialize: exception setting server - "
                           "the address is taken (98)"),
              1u);
}

TEST(RuvoNetworkService, TellsWhereItListens) {
    const LogCapture log(4);
    TestListener listener(EndpointPointer(new FakeEndpoint("tcp:0.0.0.0:4711")));
    ASSERT_TRUE(listener.monitor().start());
    EXPECT_TRUE(log.has(4, "TestListener::initialize: listening on tcp:0.0.0.0:4711"));
}

TEST(RuvoNetworkService, ReplacesTheEndpointWhenInitializedAgain) {
    CollectingAcceptor acceptor;
    TestListener listener;
    ASSERT_TRUE(listener.initialize());
    const EndpointPointer old = listener.next;
    listener.next = new FakeEndpoint("fake:8");
    ASSERT_TRUE(listener.initialize());
    EXPECT_EQ(old->closes(), 1);
    EXPECT_EQ(old->refCount(), 1u);
    EXPECT_EQ(listener.getAddress(), "fake:8");
    listener.next->come(newClient());
    EXPECT_TRUE(acceptor.awaitClients(1));
}

TEST(RuvoNetworkService, LosesTheOldEndpointWhenTheNewOneCannotBeHad) {
    TestListener listener;
    ASSERT_TRUE(listener.initialize());
    const EndpointPointer old = listener.next;
    listener.next = nullptr;
    EXPECT_FALSE(listener.initialize());
    EXPECT_EQ(old->closes(), 1);
    EXPECT_EQ(listener.getAddress(), "");
}

TEST(RuvoNetworkService, StartsAgainAfterAStop) {
    CollectingAcceptor acceptor;
    TestListener listener;
    for (int round = 0; round < 3; ++round) {
        listener.next = new FakeEndpoint;
        ASSERT_TRUE(listener.monitor().start());
        listener.next->come(newClient());
        ASSERT_TRUE(acceptor.awaitClients(static_cast<std::size_t>(round) + 1));
        ASSERT_TRUE(listener.monitor().stop());
    }
}

TEST(RuvoNetworkService, GoesOnAfterAFailureOfTheEndpoint) {
    CollectingAcceptor acceptor;
    TestListener listener;
    ASSERT_TRUE(listener.monitor().start());
    const LogCapture log(2);
    listener.next->failOnce();
    listener.next->come(newClient());
    EXPECT_TRUE(acceptor.awaitClients(1));
    EXPECT_TRUE(log.has(2, "RuvoNetworkService::run: TestListener: out of everything"));
}

TEST(RuvoNetworkService, ClosesItsEndpointWhenItIsDestroyed) {
    const int before = liveEndpoints;
    const LogCapture log(9);
    const EndpointPointer endpoint(new FakeEndpoint);
    {
        TestListener listener(endpoint);
        ASSERT_TRUE(listener.monitor().start());
    }
    EXPECT_EQ(endpoint->closes(), 1);
    EXPECT_EQ(liveEndpoints, before + 1);  // ours
    EXPECT_EQ(log.count(9, "RuvoNetworkService::~RuvoNetworkService: exiting for TestListener"),
              1u);
}

TEST(RuvoNetworkService, ServesNoClientsItself) {
    class Open : public TestListener {
    public:
        using RuvoNetworkService::VornEventMonitor::handleClient;
    } listener;
    FakeConnection connection;
    EXPECT_THROW(listener.handleClient(static_cast<VornNet::VornConnection&>(connection)),
                 VornException);
    EXPECT_TRUE(connection.written().empty());
}

TEST(RuvoNetworkService, NarrowsAPortToItsLowSixteenBits) {
    TestListener listener;
    const auto properties = VornSupport::makeCounted<VornMonitor::VornEventMonitor::Properties>();
    listener.monitor().setProperties(properties);
    const std::vector<std::pair<const char*, int>> cases = {
        {"8080", 8080},   {"0", 0},        {"70000", 4464}, {"40000", -25536}, {"32768", -32768},
        {"65535", -1},    {"65536", 0},    {"-1", -1},      {"-40000", 25536}, {"  80", 80},
        {"80 tcp", 80},   {"http", 0},     {"", 0},         {"4294967376", 80}};
    for (const auto& [text, port] : cases) {
        properties->setProperty("port", text);
        EXPECT_EQ(listener.requirePort("port"), port) << text;
    }
    EXPECT_THROW(listener.requirePort("no-port"), VornSupport::VornPropertyNotFound);
}
