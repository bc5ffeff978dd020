// Client threads, their pool, and the acceptor that makes them.

#include "service/RuvoServiceClientThread.h"

#include "service/RuvoServiceClientAcceptor.h"
#include "service/RuvoServiceClientThreadPool.h"
#include "tests/service/OpenService.h"
#include "tests/service/TestMonitor.h"
#include "tests/support/FakeConnection.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace ServiceTests {
namespace {

using RuvoService::RuvoClientAcceptor;
using RuvoService::RuvoServiceClientThreadPool;
using TestSupport::FakeConnection;
using TestSupport::waitUntil;
using VornSupport::makeCounted;
using VornSupport::VornThread;

using Client = VornSupport::VornSmartPointer<FakeConnection>;

// A thread that runs until it is told to end, or cannot be started at all.
class WaitingThread : public VornThread {
public:
    WaitingThread() : VornThread("WaitingThread") {}
    bool start() override { return startable ? VornThread::start() : false; }

    bool startable = true;
    VornSupport::VornEvent end{true};

protected:
    int run() override {
        end.wait();
        return 0;
    }
};

// ---- the pool ------------------------------------------------------------------

TEST(RuvoServiceClientThreadPool, HoldsAThreadUntilItIsDone) {
    RuvoServiceClientThreadPool pool;
    const auto thread = makeCounted<WaitingThread>();
    pool.add(*thread);
    EXPECT_EQ(pool.size(), 1u);
    ASSERT_TRUE(thread->start());
    EXPECT_EQ(pool.size(), 1u);
    thread->end.set();
    thread->waitForThreadExit();
    EXPECT_EQ(pool.size(), 0u);
}

TEST(RuvoServiceClientThreadPool, IgnoresOtherNotifications) {
    RuvoServiceClientThreadPool pool;
    const auto thread = makeCounted<WaitingThread>();
    pool.add(*thread);
    thread->notify(VornSupport::VornNotification(1));
    EXPECT_EQ(pool.size(), 1u);
    thread->notify(VornThread::ThreadDone());
    EXPECT_EQ(pool.size(), 0u);
}

TEST(RuvoServiceClientThreadPool, ForgetsAThreadThatIsTakenOut) {
    RuvoServiceClientThreadPool pool;
    const auto kept = makeCounted<WaitingThread>();
    const auto thread = makeCounted<WaitingThread>();
    pool.add(*kept);
    pool.add(*thread);
    pool.remove(*thread);
    EXPECT_EQ(pool.size(), 1u);
    pool.remove(*thread);
    EXPECT_EQ(pool.size(), 1u);
    pool.remove(*kept);
    EXPECT_EQ(pool.size(), 0u);
}

TEST(RuvoServiceClientThreadPool, WaitsForItsThreadsBeforeItGoes) {
    const TestSupport::LogCapture log;
    auto pool = std::make_unique<RuvoServiceClientThreadPool>();
    std::vector<VornSupport::VornSmartPointer<WaitingThread>> threads;
    for (int i = 0; i < 3; ++i) {
        threads.push_back(makeCounted<WaitingThread>());
        pool->add(*threads.back());
        ASSERT_TRUE(threads.back()->start());
    }
    std::atomic<bool> gone{false};
    std::thread destroying([&] {
        pool.reset();
        gone = true;
    });
    EXPECT_TRUE(waitUntil([&] {
        return log.has(9, "~RuvoServiceClientThreadPool: waiting for active client threads: 3");
    }));
    threads[0]->end.set();
    threads[1]->end.set();
    threads[0]->waitForThreadExit();
    EXPECT_FALSE(gone);
    EXPECT_FALSE(log.has(9, "~RuvoServiceClientThreadPool: all client threads exited."));
    threads[2]->end.set();
    destroying.join();
    EXPECT_TRUE(log.has(9, "~RuvoServiceClientThreadPool: all client threads exited."));
    for (const auto& thread : threads) thread->waitForThreadExit();
}

TEST(RuvoServiceClientThreadPool, GoesAtOnceWhenNobodyIsLeft) {
    const TestSupport::LogCapture log;
    { RuvoServiceClientThreadPool pool; }
    EXPECT_EQ(log.records().size(), 1u);
    EXPECT_TRUE(log.has(9, "~RuvoServiceClientThreadPool: all client threads exited."));
}

// ---- client threads ------------------------------------------------------------

class RuvoServiceClientThreads : public ::testing::Test {
protected:
    static Client newClient() {
        auto client = makeCounted<FakeConnection>();
        client->waitForMore();
        return client;
    }
    static void dispatch(const Client& client) { RuvoClientAcceptor::dispatch(client); }

    const Place place_;
    OpenService service_{place_.properties(), ""};
};

TEST_F(RuvoServiceClientThreads, ServeAClientAndCloseItsConnection) {
    const auto client = newClient();
    client->sendBytes("RUVO\n");
    dispatch(client);
    EXPECT_TRUE(waitUntil([&] { return client->wire() == "+\r\n"; }));
    EXPECT_FALSE(client->isClosed());
    client->endOfInput();
    EXPECT_TRUE(waitUntil([&] { return client->isClosed(); }));
    EXPECT_TRUE(waitUntil([] { return VornThread::liveCount() == 0; }));
    EXPECT_EQ(client->refCount(), 1u) << "the thread let go of its connection";
    EXPECT_TRUE(place_.logged(5, "RuvoServiceClientThread::run: Entering. "));
    EXPECT_TRUE(place_.logged(5, "RuvoServiceClientThread::run: Exiting. "));
    EXPECT_NE(place_.log().find("[RuvoServiceClientThread]"), std::string::npos);
}

TEST_F(RuvoServiceClientThreads, CloseTheConnectionWhateverTheClientDoes) {
    for (const char* bytes : {"", "hello\n", "GET / HTTP/1.0\n\n", "RUVO\n"}) {
        const auto client = newClient();
        client->sendBytes(bytes).endOfInput();
        dispatch(client);
        EXPECT_TRUE(waitUntil([&] { return client->isClosed(); })) << bytes;
    }
    EXPECT_TRUE(waitUntil([] { return VornThread::liveCount() == 0; }));
}

TEST_F(RuvoServiceClientThreads, CloseTheConnectionWhenItFailsBeforeTheConversation) {
    const auto client = newClient();
    client->sendBytes("RUVO\n").failAfter(2);
    client->failWritesAfter(0);
    dispatch(client);
    EXPECT_TRUE(waitUntil([&] { return client->isClosed(); }));
    EXPECT_TRUE(waitUntil([] { return VornThread::liveCount() == 0; }));
    EXPECT_NE(place_.log().find("] 3 RuvoServiceClientThread::run: exception: FakeConnection: "),
              std::string::npos);
}

TEST_F(RuvoServiceClientThreads, SurviveAnEngineThatThrowsWhatNobodyExpects) {
    TestMonitor monitor("ServiceTest", [](VornNet::VornConnection&) {
        throw std::runtime_error("unexpected");
    });
    const auto client = newClient();
    client->sendBytes("RUVO\n").sendUnsignedShort(1).sendUnsignedShort(7777);
    client->sendString("ServiceTest");
    dispatch(client);
    EXPECT_TRUE(waitUntil([&] { return client->isClosed(); }));
    EXPECT_TRUE(waitUntil([] { return VornThread::liveCount() == 0; }));
    EXPECT_TRUE(place_.logged(2, "RuvoServiceClientThread::run: exception: unexpected"));
}

TEST_F(RuvoServiceClientThreads, ServeManyClientsAtOnce) {
    TestMonitor monitor("ServiceTest", &answerNext);
    std::vector<Client> clients;
    for (int i = 0; i < 50; ++i) {
        clients.push_back(newClient());
        clients.back()->sendBytes("RUVO\n").sendUnsignedShort(1).sendUnsignedShort(7777);
        clients.back()->sendString("ServiceTest").sendInt(i);
        dispatch(clients.back());
    }
    for (int i = 0; i < 50; ++i) {
        const auto& client = clients[static_cast<std::size_t>(i)];
        EXPECT_TRUE(waitUntil([&] { return client->flushes() == 1; }));
        EXPECT_EQ(client->written().at(1), "int " + std::to_string(i + 1));
    }
    EXPECT_EQ(VornThread::liveCount(), 50);
    for (const auto& client : clients) client->endOfInput();
    EXPECT_TRUE(waitUntil([] { return VornThread::liveCount() == 0; }));
}

TEST_F(RuvoServiceClientThreads, LeaveNoTraceInThePoolWhenTheyCannotBeStarted) {
    const auto thread = makeCounted<WaitingThread>();
    thread->startable = false;
    EXPECT_FALSE(RuvoService::RuvoServiceClientThread::startInPool(*thread));
    // Nobody waits for the thread that never was.
    const auto client = newClient();
    dispatch(client);
    EXPECT_FALSE(client->isClosed());
    client->endOfInput();
    EXPECT_TRUE(waitUntil([&] { return client->isClosed(); }));
}

// ---- the acceptor --------------------------------------------------------------

TEST(RuvoServiceClientAcceptor, IsInForceAsLongAsTheServiceLives) {
    const Place place;
    const auto client = makeCounted<FakeConnection>();
    {
        const OpenService service(place.properties(), "");
        RuvoClientAcceptor::dispatch(client);
        EXPECT_TRUE(waitUntil([&] { return client->isClosed(); }));
    }
    const auto late = makeCounted<FakeConnection>();
    late->waitForMore();
    RuvoClientAcceptor::dispatch(late);
    EXPECT_TRUE(late->isClosed());
}

TEST(RuvoServiceClientAcceptor, ClosesClientsAtOnceWhileItRefuses) {
    const Place place;
    const OpenService service(place.properties(), "");
    RuvoService::RuvoServiceClientAcceptor acceptor;
    acceptor.setRefusing(true);
    const auto refused = makeCounted<FakeConnection>();
    refused->waitForMore();
    RuvoClientAcceptor::dispatch(refused);
    EXPECT_TRUE(refused->isClosed());
    EXPECT_TRUE(refused->isAborted()) << "closing waited for the client";
    acceptor.setRefusing(false);
    const auto served = makeCounted<FakeConnection>();
    served->waitForMore();
    RuvoClientAcceptor::dispatch(served);
    EXPECT_TRUE(waitUntil([&] { return served->isWaiting(); }));
    served->endOfInput();
    EXPECT_TRUE(waitUntil([&] { return served->isClosed(); }));
}

TEST(RuvoService, WaitsForItsClientsBeforeItGoes) {
    const Place place;
    auto service = std::make_unique<OpenService>(place.properties(), "");
    const auto client = makeCounted<FakeConnection>();
    client->waitForMore();
    RuvoClientAcceptor::dispatch(client);
    ASSERT_TRUE(waitUntil([&] { return client->isWaiting(); }));
    std::thread destroying([&] { service.reset(); });
    EXPECT_TRUE(waitUntil([&] {
        return place.logged(9, "~RuvoServiceClientThreadPool: waiting for active client "
                               "threads: 1");
    }));
    client->endOfInput();
    destroying.join();
    EXPECT_TRUE(client->isClosed());
    EXPECT_TRUE(waitUntil([] { return VornThread::liveCount() == 0; }));
}

}  // namespace
}  // namespace ServiceTests
