#include "runtime/monitor/VornEventMonitorManager.h"

#include "runtime/support/VornEvent.h"
#include "runtime/support/VornException.h"
#include "tests/runtime/monitor/TestMonitor.h"
#include "tests/support/FakeConnection.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using TestSupport::FakeConnection;
using TestSupport::LogCapture;
using TestSupport::waitUntil;
using VornMonitor::VornEventMonitor;
using VornMonitor::VornEventMonitorManager;
using VornNet::VornConnection;
using VornSupport::VornEvent;
using VornSupport::VornException;

namespace {

using Lines = std::vector<std::string>;

VornEventMonitorManager& manager() { return VornEventMonitorManager::getInstance(); }

// Set even when a wait of the test fails, so that no thread is left hanging.
class SetAtEnd {
public:
    explicit SetAtEnd(VornEvent& event) : event_(event) {}
    ~SetAtEnd() { event_.set(); }

private:
    VornEvent& event_;
};

}  // namespace

// ---- knowing ---------------------------------------------------------------------

TEST(VornEventMonitorManager, KnowsAMonitorFromItsConstructionToItsEnd) {
    EXPECT_FALSE(manager().isKnown("A"));
    {
        TestMonitor monitor("A");
        EXPECT_TRUE(manager().isKnown("A"));
        EXPECT_FALSE(manager().isKnown("a"));
        EXPECT_FALSE(manager().isKnown(""));
    }
    EXPECT_FALSE(manager().isKnown("A"));
}

TEST(VornEventMonitorManager, RefusesASecondMonitorOfAName) {
    Journal journal;
    auto first = std::make_unique<TestMonitor>("A", &journal);
    EXPECT_THROW(TestMonitor("A", &journal), VornException);
    EXPECT_TRUE(manager().isKnown("A"));
    EXPECT_TRUE(manager().startMonitors(nullptr));
    EXPECT_EQ(journal.take(), Lines{"A initialize"});
    manager().stopMonitors();
    first.reset();
    TestMonitor again("A");
    EXPECT_TRUE(manager().isKnown("A"));
}

TEST(VornEventMonitorManager, ForgetsARetiredMonitorOnce) {
    TestMonitor monitor("A");
    monitor.retire();
    EXPECT_FALSE(manager().isKnown("A"));
    TestMonitor other("A");  // the name is free
    monitor.retire();        // and not its any more
    EXPECT_TRUE(manager().isKnown("A"));
}

// ---- starting and stopping ---------------------------------------------------------

TEST(VornEventMonitorManager, StartsConfiguresAndStopsInTheOrderOfBecomingKnown) {
    Journal journal;
    TestMonitor c("C", &journal);
    TestMonitor a("A", &journal);
    TestMonitor b("B", &journal);
    EXPECT_TRUE(manager().startMonitors(nullptr));
    EXPECT_EQ(journal.take(), (Lines{"C initialize", "A initialize", "B initialize"}));
    manager().configureMonitors();
    EXPECT_EQ(journal.take(), (Lines{"C configure", "A configure", "B configure"}));
    manager().stopMonitors();
    EXPECT_EQ(journal.take(), (Lines{"C cleanup", "A cleanup", "B cleanup"}));
}

TEST(VornEventMonitorManager, KeepsTheOrderWhenOneLeavesInTheMiddle) {
    Journal journal;
    TestMonitor a("A", &journal);
    std::optional<TestMonitor> b(std::in_place, "B", &journal);
    TestMonitor c("C", &journal);
    b.reset();
    TestMonitor d("D", &journal);
    journal.take();
    manager().startMonitors(nullptr);
    EXPECT_EQ(journal.take(), (Lines{"A initialize", "C initialize", "D initialize"}));
    manager().stopMonitors();
}

TEST(VornEventMonitorManager, GoesOnWhenAMonitorDoesNotStart) {
    Journal journal;
    TestMonitor a("A", &journal);
    TestMonitor b("B", &journal);
    TestMonitor c("C", &journal);
    a.onInitialize = [] { return false; };
    b.onInitialize = []() -> bool { throw VornException("no port", 98); };
    {
        const LogCapture log(2);
        EXPECT_FALSE(manager().startMonitors(nullptr));
        EXPECT_EQ(log.texts(2),
                  (Lines{"VornEventMonitorManager::startMonitors: could not start A",
                         "VornEventMonitorManager::startMonitors: could not start B: no port"}));
    }
    EXPECT_FALSE(a.isStarted());
    EXPECT_FALSE(b.isStarted());
    EXPECT_TRUE(c.isStarted());

    journal.take();
    a.onInitialize = nullptr;
    b.onInitialize = []() -> bool { throw 17; };
    const LogCapture log(2);
    EXPECT_FALSE(manager().startMonitors(nullptr));
    EXPECT_EQ(journal.take(), (Lines{"A initialize", "B initialize"}));
    EXPECT_EQ(log.texts(2), Lines{"VornEventMonitorManager::startMonitors: could not start B: "
                                  "unknown exception"});
    manager().stopMonitors();
    EXPECT_EQ(journal.take(), (Lines{"A cleanup", "C cleanup"}));
}

TEST(VornEventMonitorManager, StartsAndStopsAMonitorOnce) {
    Journal journal;
    TestMonitor a("A", &journal);
    EXPECT_TRUE(manager().startMonitors(nullptr));
    EXPECT_TRUE(manager().startMonitors(nullptr));
    EXPECT_TRUE(a.start());
    manager().stopMonitors();
    manager().stopMonitors();
    EXPECT_TRUE(a.stop());
    EXPECT_EQ(journal.take(), (Lines{"A initialize", "A cleanup"}));
    EXPECT_TRUE(manager().startMonitors(nullptr));
    manager().stopMonitors();
    EXPECT_EQ(journal.take(), (Lines{"A initialize", "A cleanup"}));
}

TEST(VornEventMonitorManager, StopsTheOthersWhenOneFailsToStop) {
    Journal journal;
    TestMonitor a("A", &journal);
    TestMonitor b("B", &journal);
    TestMonitor c("C", &journal);
    a.onCleanup = []() -> bool { throw std::runtime_error("stuck"); };
    b.onCleanup = [] { return false; };
    manager().startMonitors(nullptr);
    const LogCapture log(2);
    manager().stopMonitors();
    EXPECT_EQ(log.texts(2),
              (Lines{"VornEventMonitorManager::stopMonitors: could not stop A: stuck",
                     "VornEventMonitorManager::stopMonitors: could not stop B"}));
    EXPECT_FALSE(a.isStarted());
    EXPECT_FALSE(c.isStarted());
    journal.take();
    manager().stopMonitors();
    EXPECT_TRUE(journal.take().empty());
}

TEST(VornEventMonitorManager, ConfiguresTheOthersWhenOneFails) {
    Journal journal;
    TestMonitor a("A", &journal);
    TestMonitor b("B", &journal);
    a.onConfigure = [] { throw VornException("bad value"); };
    const LogCapture log(2);
    manager().configureMonitors();
    EXPECT_EQ(journal.take(), (Lines{"A configure", "B configure"}));
    EXPECT_EQ(log.texts(2), Lines{"VornEventMonitorManager::configureMonitors: A: bad value"});
}

TEST(VornEventMonitorManager, HandsThePropertiesToWhatItStarts) {
    TestMonitor a("A");
    EXPECT_THROW(a.requireProperty("key"), VornSupport::VornPropertyNotFound);
    const auto properties = VornSupport::makeCounted<VornEventMonitor::Properties>();
    properties->setProperty("key", "value");
    std::string seen;
    a.onInitialize = [&] {
        seen = a.requireProperty("key");
        return true;
    };
    manager().startMonitors(properties);
    EXPECT_EQ(seen, "value");
    EXPECT_EQ(a.getProperties().get(), properties.get());
    EXPECT_THROW(a.requireProperty("other"), VornSupport::VornPropertyNotFound);
    manager().stopMonitors();
}

// ---- clients ---------------------------------------------------------------------

TEST(VornEventMonitorManager, HandsAClientToTheMonitorOfTheNameOnTheCallingThread) {
    TestMonitor a("A");
    TestMonitor b("B");
    a.onClient = [](VornConnection& connection) { connection.writeInt(1); };
    std::thread::id thread;
    b.onClient = [&](VornConnection& connection) {
        thread = std::this_thread::get_id();
        connection.writeInt(2);
    };
    FakeConnection connection;
    manager().handleClient("B", connection);  // though it is not started
    EXPECT_EQ(connection.written(), Lines{"int 2"});
    EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST(VornEventMonitorManager, NamesTheMonitorThatIsUnknown) {
    TestMonitor a("A");
    FakeConnection connection;
    try {
        manager().handleClient("Arbiter", connection);
        FAIL() << "nothing was thrown";
    } catch (const VornException& e) {
        EXPECT_EQ(e.getMessage(), "VornEventMonitorManager::handleClient: unknown monitor Arbiter");
    }
    EXPECT_THROW(manager().handleClient("", connection), VornException);
    EXPECT_THROW(manager().handleClient("a", connection), VornException);
    EXPECT_TRUE(connection.written().empty());
}

TEST(VornEventMonitorManager, ShowsTheBeginningOfAHugeNameOnly) {
    FakeConnection connection;
    try {
        manager().handleClient(std::string(1 << 20, 'x'), connection);
        FAIL() << "nothing was thrown";
    } catch (const VornException& e) {
        EXPECT_LT(e.getMessage().size(), 300u);
        EXPECT_NE(e.getMessage().find("xxx..."), std::string::npos);
    }
}

TEST(VornEventMonitorManager, RefusesAClientOfAMonitorThatServesNone) {
    TestMonitor a("A");
    FakeConnection connection;
    try {
        manager().handleClient("A", connection);
        FAIL() << "nothing was thrown";
    } catch (const VornException& e) {
        EXPECT_EQ(e.getMessage(), "the monitor A serves no clients");
    }
}

TEST(VornEventMonitorManager, PassesOnWhatAMonitorThrows) {
    struct OwnException : VornException {
        using VornException::VornException;
    };
    TestMonitor a("A");
    a.onClient = [](VornConnection&) { throw OwnException("mine", 5); };
    FakeConnection connection;
    EXPECT_THROW(manager().handleClient("A", connection), OwnException);
    a.onClient = [](VornConnection&) { throw 17; };
    EXPECT_THROW(manager().handleClient("A", connection), int);
    // Nobody is left inside after an exception, who would be broken off.
    a.retire();
    EXPECT_FALSE(connection.isAborted());
}

TEST(VornEventMonitorManager, LetsAnyNumberOfClientsInAtOnce) {
    constexpr int kClients = 8;
    TestMonitor a("A");
    std::atomic<int> inside{0};
    a.onClient = [&](VornConnection& connection) {
        ++inside;
        if (waitUntil([&] { return inside == kClients; })) connection.writeInt(1);
    };
    std::vector<FakeConnection> connections(kClients);
    {
        std::vector<std::jthread> clients;
        for (auto& connection : connections) {
            clients.emplace_back([&] { manager().handleClient("A", connection); });
        }
    }
    for (const auto& connection : connections) EXPECT_EQ(connection.written(), Lines{"int 1"});
}

TEST(VornEventMonitorManager, LetsAClientGoOnToAnotherMonitor) {
    TestMonitor a("A");
    TestMonitor b("B");
    a.onClient = [](VornConnection& connection) { manager().handleClient("B", connection); };
    b.onClient = [](VornConnection& connection) { connection.writeInt(2); };
    FakeConnection connection;
    manager().handleClient("A", connection);
    EXPECT_EQ(connection.written(), Lines{"int 2"});
}

// ---- ending ----------------------------------------------------------------------

TEST(VornEventMonitorManager, WaitsForTheClientsInsideAMonitorThatEnds) {
    TestMonitor a("A");
    VornEvent inside(true);
    VornEvent retired(true);
    bool retiredWhileInside = false;
    a.onClient = [&](VornConnection&) {
        inside.set();
        retiredWhileInside = retired.wait(100) != 0;
    };
    FakeConnection connection;
    std::jthread client([&] { manager().handleClient("A", connection); });
    ASSERT_TRUE(inside.wait(20000));
    a.retire();
    retired.set();
    client.join();
    EXPECT_FALSE(retiredWhileInside);
    EXPECT_FALSE(connection.isAborted());
}

TEST(VornEventMonitorManager, BreaksOffClientsThatStillWaitAfterTheGrace) {
    const Grace grace(20ms);
    TestMonitor a("A");
    a.onClient = [](VornConnection& connection) { connection.readInt(); };
    FakeConnection connections[3];
    std::atomic<int> thrown{0};
    std::vector<std::jthread> clients;
    for (auto& connection : connections) {
        connection.waitForMore();
        clients.emplace_back([&] {
            try {
                manager().handleClient("A", connection);
            } catch (const VornException&) {
                ++thrown;
            }
        });
    }
    for (auto& connection : connections) {
        ASSERT_TRUE(waitUntil([&] { return connection.isWaiting(); }));
    }
    const LogCapture log(3);
    a.retire();
    clients.clear();
    EXPECT_EQ(thrown, 3);
    for (auto& connection : connections) EXPECT_TRUE(connection.isAborted());
    EXPECT_TRUE(log.has(3, "VornEventMonitorManager::deactivate: breaking off 3 clients of A"));
}

TEST(VornEventMonitorManager, LeavesClientsOfOtherMonitorsAlone) {
    const Grace grace(0ms);
    TestMonitor a("A");
    TestMonitor b("B");
    a.onClient = b.onClient = [](VornConnection& connection) { connection.readInt(); };
    FakeConnection toA;
    FakeConnection toB;
    toA.waitForMore();
    toB.waitForMore();
    std::jthread clientA([&] { EXPECT_THROW(manager().handleClient("A", toA), VornException); });
    std::jthread clientB([&] { manager().handleClient("B", toB); });
    ASSERT_TRUE(waitUntil([&] { return toA.isWaiting() && toB.isWaiting(); }));
    a.retire();
    EXPECT_TRUE(toA.isAborted());
    EXPECT_FALSE(toB.isAborted());
    toB.sendInt(1);
}

TEST(VornEventMonitorManager, LetsNobodyInWhileItWaitsForTheLastOnes) {
    TestMonitor a("A");
    VornEvent inside(true);
    VornEvent leave(true);
    a.onClient = [&](VornConnection&) {
        inside.set();
        leave.wait(20000);
    };
    FakeConnection first;
    std::jthread client([&] { manager().handleClient("A", first); });
    std::jthread ending;
    const SetAtEnd letGo(leave);
    ASSERT_TRUE(inside.wait(20000));
    ending = std::jthread([&] { a.retire(); });
    ASSERT_TRUE(waitUntil([] { return !manager().isKnown("A"); }));
    FakeConnection second;
    EXPECT_THROW(manager().handleClient("A", second), VornException);
}

TEST(VornEventMonitorManager, StandsMonitorsThatComeAndGoWhileClientsAsk) {
    TestMonitor steady("Steady");
    steady.onClient = [](VornConnection& connection) { connection.writeInt(1); };
    std::atomic<bool> over{false};
    std::atomic<long> served{0};
    std::atomic<long> refused{0};
    std::vector<std::jthread> clients;
    for (int i = 0; i < 8; ++i) {
        clients.emplace_back([&, i] {
            while (!over) {
                FakeConnection connection;
                try {
                    manager().handleClient(i % 2 == 0 ? "Steady" : "Passing", connection);
                    ++served;
                } catch (const VornException&) {
                    ++refused;
                }
            }
        });
    }
    manager().announce("Passing", [] {
        auto monitor = std::make_unique<TestMonitor>("Passing");
        monitor->onClient = [](VornConnection& connection) { connection.writeInt(2); };
        return monitor;
    });
    for (int round = 0; round < 200; ++round) {
        manager().loadMonitor("Passing", nullptr);
        manager().startMonitors(nullptr);
        manager().unloadMonitor("Passing");
    }
    manager().withdraw("Passing");
    EXPECT_TRUE(waitUntil([&] { return served > 100 && refused > 0; }));
    over = true;
}
