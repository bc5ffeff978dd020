#include "notifier/RuvoNNEngine.h"

#include "runtime/net/VornDeliveryGathering.h"
#include "runtime/net/VornNetLimits.h"
#include "runtime/support/VornEvent.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornThreadName.h"
#include "tests/notifier/RecordingDependent.h"
#include "tests/notifier/TestNotifier.h"
#include "tests/runtime/net/NetTest.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

using RuvoService::RuvoNNEngine;
using TestSupport::addressText;
using TestSupport::LogCapture;
using TestSupport::waitUntil;
using VornSupport::VornEvent;
using VornSupport::VornException;

namespace {

using Texts = std::vector<std::string>;

}  // namespace

TEST(RuvoNNEngine, IsTheMonitorNotifier) {
    TestNotifier engine;
    EXPECT_EQ(engine.getMonitorName(), "Notifier");
}

TEST(RuvoNNEngine, OffersEventsInTheOrderOfTheirProductionToEveryEntry) {
    TestNotifier engine;
    Recorder first(1);
    Recorder second(2);
    ASSERT_TRUE(engine.initialize());
    Texts expected;
    for (int i = 0; i < 100; ++i) {
        expected.push_back("event " + std::to_string(i));
        engine.produce(eventNamed(expected.back()));
    }
    ASSERT_TRUE(first->await(100));
    ASSERT_TRUE(second->await(100));
    EXPECT_EQ(first->names(), expected);
    EXPECT_EQ(second->names(), expected);
}

TEST(RuvoNNEngine, OffersOneEventToTheEntriesInTheOrderOfTheContainer) {
    TestNotifier engine;
    Texts order;  // of the queue thread alone
    Recorder entries[3] = {Recorder(1), Recorder(2), Recorder(3)};
    for (int i = 0; i < 3; ++i) {
        entries[i]->onEvent = [&order, i] { order.push_back(std::to_string(i)); };
    }
    engine.produce(eventNamed("A"));
    engine.produce(eventNamed("B"));
    engine.initialize();
    engine.cleanup();
    EXPECT_EQ(order, (Texts{"0", "1", "2", "0", "1", "2"}));
}

TEST(RuvoNNEngine, KeepsTheOrderOfEachProducer) {
    TestNotifier engine;
    Recorder recorder;
    engine.initialize();
    {
        std::vector<std::jthread> producers;
        for (int t = 0; t < 8; ++t) {
            producers.emplace_back([&, t] {
                for (int i = 0; i < 200; ++i) {
                    engine.produce(eventNamed(std::to_string(t) + ":" + std::to_string(i)));
                }
            });
        }
    }
    engine.cleanup();
    std::map<std::string, int> next;
    for (const std::string& name : recorder->names()) {
        const auto colon = name.find(':');
        EXPECT_EQ(std::stoi(name.substr(colon + 1)), next[name.substr(0, colon)]++);
    }
    EXPECT_EQ(recorder->names().size(), 1600u);
}

TEST(RuvoNNEngine, GoesOnWhenAnEntryThrows) {
    TestNotifier engine;
    Recorder first(1);
    Recorder second(2);
    Recorder third(3);
    first->onEvent = [] { throw VornException("no such client"); };
    second->onEvent = [] { throw 17; };
    engine.initialize();
    engine.produce(eventNamed("A"));
    engine.produce(eventNamed("B"));
    EXPECT_TRUE(third->await(2));
    EXPECT_TRUE(first->await(2));
}

TEST(RuvoNNEngine, ReleasesAnEventThatNobodyWants) {
    TestNotifier engine;
    engine.initialize();
    const auto event = eventNamed("A");
    engine.produce(event);
    EXPECT_TRUE(waitUntil([&] { return event->refCount() == 1; }));
}

TEST(RuvoNNEngine, ReleasesAnEventBeforeItWaitsForTheNext) {
    TestNotifier engine;
    Recorder recorder;
    engine.initialize();
    const auto event = eventNamed("A");
    engine.produce(event);
    ASSERT_TRUE(recorder->await(1));
    EXPECT_TRUE(waitUntil([&] { return event->refCount() == 1; }));
}

TEST(RuvoNNEngine, OffersOnAThreadOfItsOwnThatGathersDeliveries) {
    TestNotifier engine;
    Recorder recorder;
    std::string thread;
    bool gathers = false;
    recorder->onEvent = [&] {
        thread = VornSupport::threadName();
        gathers = VornNet::VornDeliveryGathering::current() != nullptr;
    };
    engine.produce(eventNamed("A"));
    engine.initialize();
    engine.cleanup();
    EXPECT_EQ(thread, "RuvoNNEngineQueue");
    EXPECT_TRUE(gathers);
}

TEST(RuvoNNEngine, NeverMakesAProducerWaitForADelivery) {
    TestNotifier engine;
    Recorder recorder;
    VornEvent inside(true);
    VornEvent goOn(true);
    recorder->onEvent = [&] {
        inside.set();
        goOn.wait(20000);
    };
    engine.initialize();
    engine.produce(eventNamed("A"));
    ASSERT_TRUE(inside.wait(20000));
    for (int i = 0; i < 1000; ++i) engine.produce(eventNamed("B"));
    EXPECT_EQ(recorder->names().size(), 1u);
    goOn.set();
    EXPECT_TRUE(recorder->await(1001));
}

// ---- its life ----------------------------------------------------------------------

TEST(RuvoNNEngine, IsWokenAtTheEndOfACommandThatAsksForThat) {
    TestNotifier engine;
    Recorder recorder;
    ASSERT_TRUE(engine.initialize());
    std::size_t raised = 0;
    const auto isLate = [&] {
        const RuvoNNEngine::LateWake late(&engine);
        engine.produce(eventNamed("event"));
        ++raised;
        // Unless the queue thread was awake.
        return !waitUntil([&] { return recorder->names().size() == raised; },
                          std::chrono::milliseconds(50));
    };
    EXPECT_TRUE(waitUntil(isLate));
    EXPECT_TRUE(recorder->await(raised)) << "woken";
    engine.produce(eventNamed("at once"));
    EXPECT_TRUE(recorder->await(raised + 1));
}

// The change that the event tells of has been made, whether or not its client
// reads the answer.
TEST(RuvoNNEngine, IsWokenBeforeTheAnswerWaitsForAClientThatDoesNotRead) {
    TestNotifier engine;
    Recorder recorder;
    ASSERT_TRUE(engine.initialize());
    NetTest::TcpPair pair;
    std::atomic<bool> ended{false};
    std::jthread command([&] {
        const RuvoNNEngine::LateWake late(&engine);
        engine.produce(eventNamed("event"));
        // More than any system takes for a client that reads nothing.
        const std::string block(64 * 1024, 'x');
        const auto answer = [&] {
            for (int count = 0;;) pair->write(block.data(), static_cast<int>(block.size()), count);
        };
        EXPECT_THROW(answer(), VornException);
        ended = true;
    });
    EXPECT_TRUE(recorder->await(1));
    EXPECT_FALSE(ended);
    pair->abort();
}

TEST(RuvoNNEngine, IsWokenAtOnceByEverybodyElse) {
    TestNotifier engine;
    Recorder recorder;
    ASSERT_TRUE(engine.initialize());
    const RuvoNNEngine::LateWake none(nullptr);
    engine.produce(eventNamed("of no engine"));
    EXPECT_TRUE(recorder->await(1));
    const RuvoNNEngine::LateWake late(&engine);
    std::jthread([&] { engine.produce(eventNamed("of another thread")); }).join();
    EXPECT_TRUE(recorder->await(2));
}

TEST(RuvoNNEngine, DeliversWhatIsQueuedBeforeItEnds) {
    TestNotifier engine;
    Recorder recorder;
    for (const char* name : {"A", "B", "C"}) engine.produce(eventNamed(name));
    EXPECT_TRUE(recorder->names().empty());
    ASSERT_TRUE(engine.initialize());
    EXPECT_TRUE(engine.cleanup());
    EXPECT_EQ(recorder->names(), (Texts{"A", "B", "C"}));
}

TEST(RuvoNNEngine, KeepsEventsThatComeWhileItIsStopped) {
    TestNotifier engine;
    Recorder recorder;
    engine.initialize();
    engine.cleanup();
    engine.produce(eventNamed("A"));
    EXPECT_TRUE(recorder->names().empty());
    engine.initialize();
    EXPECT_TRUE(recorder->await(1));
}

TEST(RuvoNNEngine, StartsAndStopsAnyNumberOfTimes) {
    TestNotifier engine;
    Recorder recorder;
    const int threads = VornSupport::VornThread::liveCount();
    for (std::size_t round = 1; round <= 5; ++round) {
        ASSERT_TRUE(engine.initialize());
        engine.produce(eventNamed("A"));
        ASSERT_TRUE(recorder->await(round));
        ASSERT_TRUE(engine.cleanup());
        EXPECT_TRUE(VornSupport::VornThread::waitForLiveCount(threads, 20000));
    }
    EXPECT_TRUE(engine.cleanup());
}

TEST(RuvoNNEngine, CanBeDestroyedInAnyState) {
    { TestNotifier never; }
    {
        TestNotifier withEvents;
        withEvents.produce(eventNamed("A"));
    }
    {
        TestNotifier running;
        running.initialize();
        running.produce(eventNamed("A"));
    }
    TestNotifier stopped;
    stopped.initialize();
    stopped.cleanup();
}

TEST(RuvoNNEngine, OffersNothingToAnEntryThatWasRemoved) {
    TestNotifier engine;
    Recorder recorder;
    VornEvent inside(true);
    VornEvent removed(true);
    bool removedWhileInside = false;
    recorder->onEvent = [&] {
        inside.set();
        removedWhileInside = removed.wait(100) != 0;
    };
    engine.initialize();
    engine.produce(eventNamed("A"));
    engine.produce(eventNamed("B"));
    ASSERT_TRUE(inside.wait(20000));
    recorder.remove();  // waits for the walk that is under way
    removed.set();
    const auto seen = recorder->names().size();
    engine.produce(eventNamed("C"));
    engine.cleanup();
    EXPECT_FALSE(removedWhileInside);
    EXPECT_EQ(recorder->names().size(), seen);
}

// ---- traces ------------------------------------------------------------------------

TEST(RuvoNNEngine, TracesItsLifeUnderTheNamesThatLogReadersKnow) {
    const LogCapture log(9);
    auto engine = std::make_unique<TestNotifier>();
    const std::string address = addressText(static_cast<RuvoNNEngine*>(engine.get()));
    engine->initialize();
    engine->cleanup();
    engine.reset();
    auto lines = log.beginning("RuvoNN");
    EXPECT_EQ(lines, (Texts{"RuvoNNEngine::constructor this=" + address,
                            "RuvoNNEngine::initialize this=" + address,
                            "RuvoNNEngine::cleanup this=" + address,
                            "RuvoNNConsumer::destructor  this=" + address}));
}

TEST(RuvoNNEngine, TracesTheWayOfAnEvent) {
    TestNotifier engine;
    Recorder first(1);
    Recorder second(2);
    const auto event = eventNamed("A");
    engine.produce(event);
    const LogCapture log(9);
    engine.initialize();
    engine.cleanup();
    Texts lines;
    for (const auto& record : log.records()) {
        if (record.thread == "RuvoNNEngineQueue") lines.push_back(record.text);
    }
    lines.resize(std::min<std::size_t>(lines.size(), 8));
    EXPECT_EQ(lines, (Texts{"VornProducerConsumer::consume: checking queue",
                            "VornProducerConsumer::consume: check completed",
                            "VornProducerConsumer::consume: popping element",
                            "NotificationQueueHandler::run: Processing notification=" +
                                addressText(event.get()) + " (event=|A|)",
                            "NotificationQueueHandler::run: container locked, size=2",
                            "NotificationQueueHandler::run: index=0",
                            "NotificationQueueHandler::run: index=1",
                            "NotificationQueueHandler::run: container unlocked"}));
    EXPECT_TRUE(log.has(9, "VornProducerConsumer::consume: found sentinel"));
}

// ---- room in the queue ---------------------------------------------------------------

namespace {

// A limit of two of these events.
constexpr std::size_t kEventBytes = 40000;

RuvoNNEngine::Event largeEvent() {
    return VornSupport::makeCounted<RuvoService::RuvoNNEventNotification>(
        "s", "e", "m", std::string(kEventBytes, 'x'));
}

class RuvoNNEngineRoom : public ::testing::Test {
protected:
    RuvoNNEngineRoom() { limit() = 2 * kEventBytes; }
    ~RuvoNNEngineRoom() override { limit() = 67108864; }
    static std::atomic<std::uint32_t>& limit() {
        return VornNet::VornNetLimits::getInstance().eventQueueBytes;
    }

    // Lets the queue thread stand still inside an event until `go_` is set.
    void holdQueue() {
        recorder_->onEvent = [this] { go_.wait(); };
        engine_.initialize();
        engine_.produce(eventNamed("first"));
        ASSERT_TRUE(recorder_->await(1));
    }

    VornEvent go_{true};
    Recorder recorder_;
    TestSupport::FakeConnection connection_;
    TestNotifier engine_;  // ends first: its thread uses the others
};

}  // namespace

TEST_F(RuvoNNEngineRoom, IsThereUpToTheLimit) {
    holdQueue();
    engine_.produce(largeEvent());
    engine_.waitForRoom(connection_);
    EXPECT_EQ(connection_.written(), Texts{});
    go_.set();
}

TEST_F(RuvoNNEngineRoom, IsWaitedForBeyondTheLimitWithTheAnswersSent) {
    holdQueue();
    for (int i = 0; i < 3; ++i) engine_.produce(largeEvent());
    std::atomic<bool> hasRoom{false};
    std::jthread raiser([&] {
        engine_.waitForRoom(connection_);
        hasRoom = true;
    });
    EXPECT_TRUE(waitUntil([&] { return connection_.flushes() == 1; }));
    EXPECT_FALSE(hasRoom);
    go_.set();
    EXPECT_TRUE(waitUntil([&] { return hasRoom.load(); }));
    EXPECT_TRUE(recorder_->await(4));
}

TEST_F(RuvoNNEngineRoom, IsNotWaitedForOnceTheEngineStops) {
    holdQueue();
    for (int i = 0; i < 3; ++i) engine_.produce(largeEvent());
    std::jthread raiser([&] { engine_.waitForRoom(connection_); });
    EXPECT_TRUE(waitUntil([&] { return connection_.flushes() == 1; }));
    std::jthread stopping([&] { engine_.cleanup(); });
    raiser.join();
    go_.set();
    stopping.join();
    EXPECT_EQ(recorder_->names().size(), 4u) << "what was raised is told all the same";
}

TEST_F(RuvoNNEngineRoom, KeepsACommandWaitingThatRaisesAnEvent) {
    holdQueue();
    for (int i = 0; i < 3; ++i) engine_.produce(largeEvent());
    std::jthread raiser([&] {
        connection_.sendString("RUVO_NN_NOTIFY").sendString("s").sendString("last");
        connection_.sendString("m").sendInt(0);
        engine_.run(connection_);
    });
    EXPECT_TRUE(waitUntil([&] { return connection_.flushes() == 1; }));
    EXPECT_EQ(connection_.reads(), Texts{"string"}) << "the command's name alone";
    go_.set();
    raiser.join();
    EXPECT_EQ(connection_.written(), (Texts{"flush", "int 0"}));
    EXPECT_TRUE(recorder_->await(5));
}

TEST(RuvoNNEngine, SendsASingleEventAtOnceAndABurstTogether) {
    TestNotifier engine;
    Recorder recorder;
    engine.initialize();
    for (std::size_t round = 1; round <= 20; ++round) {
        engine.produce(eventNamed("single"));
        ASSERT_TRUE(recorder->await(101 * round - 100));
        for (int i = 0; i < 100; ++i) engine.produce(eventNamed("burst"));
        ASSERT_TRUE(recorder->await(101 * round));
    }
}
