#include "runtime/support/VornEvent.h"

#include "tests/runtime/platform/NativeProbe.h"
#include "tests/runtime/support/CoreTestTools.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <climits>
#include <functional>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

using namespace VornSupport;

namespace {

constexpr int kLong = 60'000;

// A thread that waits and keeps the result.
template <class Wait>
class Waiting {
public:
    explicit Waiting(Wait wait) : thread_([this, wait] {
        result_ = wait();
        over_ = true;
    }) {}
    ~Waiting() {
        if (thread_.joinable()) thread_.join();
    }
    bool isOver() const { return over_; }
    int result() {
        thread_.join();
        return result_;
    }

private:
    int result_ = 0;
    std::atomic<bool> over_{false};
    std::thread thread_;
};

bool hasWaiters(const VornEvent& event, std::size_t count) {
    return TestSupport::waitUntil([&] { return event.waitersForTest() == count; });
}

TEST(VornEvent, StartsAsTold) {
    VornEvent automatic;
    EXPECT_EQ(automatic.wait(0), 0);
    VornEvent manual(true);
    EXPECT_EQ(manual.wait(0), 0);
    VornEvent signalled(false, true);
    EXPECT_NE(signalled.wait(0), 0);
    VornEvent manualSignalled(true, true);
    EXPECT_NE(manualSignalled.wait(0), 0);
}

TEST(VornEvent, LetsOneWaitThroughWhenAutomatic) {
    VornEvent event;
    event.set();
    EXPECT_NE(event.wait(0), 0);
    EXPECT_EQ(event.wait(0), 0);
    event.set();
    event.set();
    EXPECT_NE(event.wait(), 0);
    EXPECT_EQ(event.wait(0), 0) << "two sets are one signal";
}

TEST(VornEvent, LetsEveryWaitThroughUntilResetWhenManual) {
    VornEvent event(true);
    event.set();
    for (int i = 0; i < 5; ++i) EXPECT_NE(event.wait(i - 2), 0);
    event.reset();
    EXPECT_EQ(event.wait(0), 0);
    event.reset();
    event.set();
    EXPECT_NE(event.wait(0), 0);
}

TEST(VornEvent, IsUnsignalledAfterResetWhenAutomatic) {
    VornEvent event(false, true);
    event.reset();
    EXPECT_EQ(event.wait(0), 0);
}

TEST(VornEvent, SaysZeroWhenTheTimeIsUp) {
    VornEvent event;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(event.wait(30), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(30));
    EXPECT_EQ(event.waitersForTest(), 0u);
}

TEST(VornEvent, EndsAWaitOnAnotherThread) {
    for (const int ms : {VornEvent::kForever, INT_MIN, kLong, INT_MAX}) {
        VornEvent event;
        Waiting waiting([&] { return event.wait(ms); });
        EXPECT_TRUE(hasWaiters(event, 1));
        event.set();
        EXPECT_NE(waiting.result(), 0) << ms;
        EXPECT_EQ(event.wait(0), 0) << "the waiter took the signal";
    }
}

TEST(VornEvent, LetsTheLongestWaiterGoFirstWhenAutomatic) {
    VornEvent event;
    std::vector<std::unique_ptr<Waiting<std::function<int()>>>> waiting;
    for (std::size_t i = 0; i < 5; ++i) {
        waiting.push_back(std::make_unique<Waiting<std::function<int()>>>(
            [&event] { return event.wait(kLong); }));
        ASSERT_TRUE(hasWaiters(event, i + 1));
    }
    for (std::size_t i = 0; i < 5; ++i) {
        event.set();
        EXPECT_NE(waiting[i]->result(), 0);
        EXPECT_EQ(event.waitersForTest(), 4 - i);
        for (std::size_t later = i + 1; later < 5; ++later) EXPECT_FALSE(waiting[later]->isOver());
    }
}

TEST(VornEvent, LetsAllWaitersGoWhenManual) {
    VornEvent event(true);
    std::atomic<int> through{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i) {
        threads.emplace_back([&] {
            if (event.wait(kLong) != 0) ++through;
        });
    }
    EXPECT_TRUE(hasWaiters(event, 6));
    event.set();
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(through, 6);
    EXPECT_NE(event.wait(0), 0);
}

TEST(VornEvent, LetsOnePulsedWaiterGoWhenAutomatic) {
    VornEvent event;
    Waiting first([&] { return event.wait(kLong); });
    ASSERT_TRUE(hasWaiters(event, 1));
    Waiting second([&] { return event.wait(kLong); });
    ASSERT_TRUE(hasWaiters(event, 2));
    event.pulse();
    EXPECT_NE(first.result(), 0);
    EXPECT_EQ(event.waitersForTest(), 1u);
    EXPECT_EQ(event.wait(0), 0);
    event.pulse();
    EXPECT_NE(second.result(), 0);
}

TEST(VornEvent, LetsAllPulsedWaitersGoWhenManual) {
    VornEvent event(true);
    Waiting first([&] { return event.wait(kLong); });
    Waiting second([&] { return event.wait(kLong); });
    ASSERT_TRUE(hasWaiters(event, 2));
    event.pulse();
    EXPECT_NE(first.result(), 0);
    EXPECT_NE(second.result(), 0);
    EXPECT_EQ(event.wait(0), 0);
}

TEST(VornEvent, ForgetsAPulseThatNobodyWaitedFor) {
    for (const bool manual : {false, true}) {
        VornEvent event(manual);
        event.pulse();
        EXPECT_EQ(event.wait(0), 0);
        event.set();
        event.pulse();
        EXPECT_EQ(event.wait(0), 0) << "a pulse leaves it unsignalled";
    }
}

TEST(VornEventWaitForAny, SaysThatThereIsNothingToWaitFor) {
    std::vector<VornEvent*> none;
    EXPECT_EQ(VornEvent::wait(none, false, VornEvent::kForever), VornEvent::kWaitFailed);
    EXPECT_EQ(VornEvent::wait(none, true, VornEvent::kForever), VornEvent::kWaitFailed);
    VornEvent event(true, true);
    EXPECT_EQ(VornEvent::wait(0, &event, false, kLong), VornEvent::kWaitFailed);
    EXPECT_EQ(VornEvent::wait(-3, &event, false, kLong), VornEvent::kWaitFailed);
    EXPECT_NE(VornEvent::kWaitFailed, VornEvent::kTimedOut);
}

// Both forms of the call, on the same events.
class VornEventSet : public testing::TestWithParam<bool> {
protected:
    int wait(bool all, int ms) {
        if (GetParam()) return VornEvent::wait(3, events, all, ms);
        std::vector<VornEvent*> list{&events[0], &events[1], &events[2]};
        return VornEvent::wait(list, all, ms);
    }
    VornEvent events[3];
};

INSTANTIATE_TEST_SUITE_P(ByArrayAndByVector, VornEventSet, testing::Bool(),
                         [](const auto& form) { return form.param ? "Array" : "Vector"; });

TEST_P(VornEventSet, TimesOutWhenNoneIsSignalled) {
    for (const bool all : {false, true}) {
        EXPECT_EQ(wait(all, 0), VornEvent::kTimedOut);
        EXPECT_EQ(wait(all, 10), VornEvent::kTimedOut);
    }
    for (const auto& event : events) EXPECT_EQ(event.waitersForTest(), 0u);
}

TEST_P(VornEventSet, TellsWhichOneItWas) {
    for (int i = 0; i < 3; ++i) {
        events[i].set();
        EXPECT_EQ(wait(false, 0), i);
        EXPECT_EQ(wait(false, 0), VornEvent::kTimedOut);
    }
}

TEST_P(VornEventSet, TakesTheLowestOfSeveralAndLeavesTheOthers) {
    events[2].set();
    events[1].set();
    EXPECT_EQ(wait(false, VornEvent::kForever), 1);
    EXPECT_EQ(wait(false, VornEvent::kForever), 2);
    EXPECT_EQ(wait(false, 0), VornEvent::kTimedOut);
}

TEST_P(VornEventSet, EndsAWaitForAnyOnAnotherThread) {
    for (int i = 0; i < 3; ++i) {
        Waiting waiting([&] { return wait(false, kLong); });
        ASSERT_TRUE(hasWaiters(events[2], 1));
        events[i].set();
        EXPECT_EQ(waiting.result(), i);
        for (auto& event : events) {
            EXPECT_EQ(event.waitersForTest(), 0u);
            EXPECT_EQ(event.wait(0), 0);
        }
    }
}

TEST_P(VornEventSet, WaitsForAllWithoutTakingSome) {
    events[0].set();
    events[2].set();
    EXPECT_EQ(wait(true, 5), VornEvent::kTimedOut);
    EXPECT_NE(events[0].wait(0), 0) << "still signalled";
    events[0].set();
    events[1].set();
    EXPECT_EQ(wait(true, 0), 0);
    for (auto& event : events) EXPECT_EQ(event.wait(0), 0);
}

TEST_P(VornEventSet, EndsAWaitForAllWithTheLastOfThem) {
    Waiting waiting([&] { return wait(true, kLong); });
    ASSERT_TRUE(hasWaiters(events[2], 1));
    events[2].set();
    events[0].set();
    events[0].reset();
    events[1].set();
    EXPECT_FALSE(waiting.isOver());
    EXPECT_EQ(events[1].waitersForTest(), 1u);
    events[0].set();
    EXPECT_EQ(waiting.result(), 0);
    for (auto& event : events) {
        EXPECT_EQ(event.waitersForTest(), 0u);
        EXPECT_EQ(event.wait(0), 0);
    }
}

TEST_P(VornEventSet, EndsAWaitForAllWithAPulseOfTheLast) {
    Waiting waiting([&] { return wait(true, kLong); });
    ASSERT_TRUE(hasWaiters(events[2], 1));
    events[1].pulse();
    EXPECT_EQ(events[1].waitersForTest(), 1u) << "the others were not signalled";
    events[0].set();
    events[2].set();
    events[1].pulse();
    EXPECT_EQ(waiting.result(), 0);
    for (auto& event : events) EXPECT_EQ(event.wait(0), 0);
}

TEST(VornEventWaitForAll, LeavesManualEventsSignalled) {
    VornEvent manual(true, true);
    VornEvent automatic(false, true);
    std::vector<VornEvent*> events{&manual, &automatic};
    EXPECT_EQ(VornEvent::wait(events, true, 0), 0);
    EXPECT_NE(manual.wait(0), 0);
    EXPECT_EQ(automatic.wait(0), 0);
}

TEST(VornEventWaitForAll, PassesASignalOnToAWaiterThatItSuffices) {
    VornEvent first;
    VornEvent second;
    Waiting both([&] {
        std::vector<VornEvent*> events{&first, &second};
        return VornEvent::wait(events, true, kLong);
    });
    ASSERT_TRUE(hasWaiters(first, 1));
    Waiting one([&] { return first.wait(kLong); });
    ASSERT_TRUE(hasWaiters(first, 2));
    first.set();
    EXPECT_NE(one.result(), 0) << "the wait for both is longer, but cannot end yet";
    second.set();
    first.set();
    EXPECT_EQ(both.result(), 0);
}

TEST(VornEventWaitForAny, AllowsOneEventToStandInTheSetTwice) {
    VornEvent event;
    VornEvent other;
    std::vector<VornEvent*> events{&other, &event, &event};
    Waiting waiting([&] { return VornEvent::wait(events, false, kLong); });
    ASSERT_TRUE(hasWaiters(event, 2));
    event.set();
    EXPECT_EQ(waiting.result(), 1);
    EXPECT_EQ(event.waitersForTest(), 0u);
    EXPECT_EQ(event.wait(0), 0);
}

TEST(VornEventWaitForAny, TakesHundredsOfEvents) {
    std::vector<std::unique_ptr<VornEvent>> owned;
    std::vector<VornEvent*> events;
    for (int i = 0; i < 500; ++i) {
        owned.push_back(std::make_unique<VornEvent>());
        events.push_back(owned.back().get());
    }
    Waiting waiting([&] { return VornEvent::wait(events, false, kLong); });
    ASSERT_TRUE(hasWaiters(*events.back(), 1));
    events[321]->set();
    EXPECT_EQ(waiting.result(), 321);
}

// Each setter leaves its work, sets the event and goes on only when a waiter
// has answered: a single wake-up that is lost ends the exchange.
TEST(VornEventStress, LosesNoWakeUp) {
    struct Desk {
        std::atomic<bool> work{false};
        VornEvent answered;
    };
    std::array<Desk, 8> desks;
    VornEvent come;
    std::atomic<bool> stop{false};
    std::atomic<int> busySetters{8};
    std::atomic<long> rounds{0};
    std::atomic<int> lost{0};
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    CoreTest::onThreads(16, [&](int i) {
        if (i < 8) {
            Desk& desk = desks[static_cast<std::size_t>(i)];
            while (lost == 0 && std::chrono::steady_clock::now() < end) {
                desk.work = true;
                come.set();
                if (desk.answered.wait(20'000) == 0) ++lost;
                ++rounds;
            }
            if (--busySetters == 0) stop = true;
            while (!stop && lost == 0) std::this_thread::yield();
            come.set();
            return;
        }
        while (!stop) {
            if (come.wait(i % 2 == 0 ? VornEvent::kForever : 1) == 0) continue;
            for (Desk& desk : desks) {
                if (desk.work.exchange(false)) desk.answered.set();
            }
        }
        come.set();  // on to the next waiter
    });
    EXPECT_EQ(lost, 0);
    EXPECT_GT(rounds, 0);
}

TEST(VornEventStress, DoesNotLockUpWhenSetsAreWaitedForInOppositeOrders) {
    VornEvent first(false, true);
    VornEvent second(false, true);
    int inside = 0;
    std::atomic<int> failures{0};
    CoreTest::onThreads(4, [&](int i) {
        std::vector<VornEvent*> events{&first, &second};
        if (i % 2 == 0) std::swap(events[0], events[1]);
        for (int n = 0; n < 1000; ++n) {
            if (VornEvent::wait(events, true, kLong) != 0) ++failures;
            if (++inside != 1) ++failures;  // the two events are a lock together
            --inside;
            events[0]->set();
            events[1]->set();
        }
    });
    EXPECT_EQ(failures, 0);
}

TEST(VornEventStress, LetsExactlyAsManyThroughAsWereSet) {
    VornEvent event;
    VornEvent taken;
    std::atomic<int> through{0};
    std::atomic<bool> stop{false};
    CoreTest::onThreads(5, [&](int i) {
        if (i > 0) {
            while (!stop) {
                if (event.wait(kLong) == 0 || stop) break;
                ++through;
                taken.set();
            }
            event.set();
            return;
        }
        for (int n = 0; n < 3000; ++n) {
            event.set();
            EXPECT_NE(taken.wait(kLong), 0);
        }
        EXPECT_EQ(through, 3000);
        stop = true;
        event.set();
    });
}

// The waiter may destroy the event as soon as its wait is over, whatever the
// thread that set it still does.
TEST(VornEventStress, MayBeDestroyedByTheWaiterThatItLetGo) {
    for (int round = 0; round < 500; ++round) {
        auto event = std::make_unique<VornEvent>(round % 2 == 0);
        VornEvent& borrowed = *event;
        std::thread setter([&borrowed] { borrowed.set(); });
        EXPECT_NE(event->wait(kLong), 0);
        event = nullptr;
        setter.join();
    }
}

TEST(VornEventHandle, IsReadyWhileTheEventIsSignalled) {
    for (const bool manual : {false, true}) {
        VornEvent event(manual);
        const auto handle = event.getHandle();
        EXPECT_FALSE(NativeProbe::waitsReady(handle, 0));
        event.set();
        EXPECT_TRUE(NativeProbe::waitsReady(handle, 0));
        EXPECT_TRUE(NativeProbe::waitsReady(handle, 0)) << "looking consumes nothing";
        EXPECT_NE(event.wait(0), 0);
        EXPECT_EQ(NativeProbe::waitsReady(handle, 0), manual);
        event.reset();
        EXPECT_FALSE(NativeProbe::waitsReady(handle, 0));
        event.set();
        event.pulse();
        EXPECT_FALSE(NativeProbe::waitsReady(handle, 0));
    }
}

TEST(VornEventHandle, StaysTheSame) {
    VornEvent event;
    EXPECT_EQ(event.getHandle(), event.getHandle());
    VornEvent other;
    EXPECT_NE(event.getHandle(), other.getHandle());
}

TEST(VornEventHandle, KnowsASignalFromBeforeItWasMade) {
    VornEvent event(false, true);
    EXPECT_TRUE(NativeProbe::waitsReady(event.getHandle(), 0));
}

TEST(VornEventHandle, EndsASystemCallOnAnotherThread) {
    VornEvent event;
    const auto handle = event.getHandle();
    Waiting waiting([&] { return NativeProbe::waitsReady(handle, kLong) ? 1 : 0; });
    event.set();
    EXPECT_EQ(waiting.result(), 1);
    EXPECT_NE(event.wait(0), 0);
}

TEST(VornEventHandle, IsNotLeftReadyByASignalThatAWaiterTook) {
    VornEvent event;
    const auto handle = event.getHandle();
    Waiting waiting([&] { return event.wait(kLong); });
    ASSERT_TRUE(hasWaiters(event, 1));
    event.set();
    EXPECT_FALSE(NativeProbe::waitsReady(handle, 0));
    EXPECT_NE(waiting.result(), 0);
}

TEST(VornEventHandle, IsClearedByAWaitForAll) {
    VornEvent first(false, true);
    VornEvent second(false, true);
    const auto handle = first.getHandle();
    std::vector<VornEvent*> events{&first, &second};
    EXPECT_EQ(VornEvent::wait(events, true, 0), 0);
    EXPECT_FALSE(NativeProbe::waitsReady(handle, 0));
}

TEST(VornEventHandle, IsMadeOnDemandAndGivenBack) {
    const int before = NativeProbe::countHandles();
    {
        std::vector<std::unique_ptr<VornEvent>> events;
        for (int i = 0; i < 200; ++i) events.push_back(std::make_unique<VornEvent>());
        EXPECT_LE(NativeProbe::countHandles(), before + 20);
        for (auto& event : events) event->getHandle();
        EXPECT_GE(NativeProbe::countHandles(), before + 180);
    }
    EXPECT_LE(NativeProbe::countHandles(), before + 20);
}

TEST(VornEvent, MakesAndFreesItsNotificationThroughItsHooks) {
    class Bell : public VornNotification {};
    class Event : public VornEvent {
    public:
        using VornEvent::createNotification;
        using VornEvent::destroyNotification;
    };
    class BellEvent : public Event {
    protected:
        VornNotification* createNotification() override { return new Bell; }
    };
    Event event;
    VornNotification* plain = event.createNotification();
    ASSERT_NE(plain, nullptr);
    EXPECT_EQ(plain->getClassName(), "VornNotification");
    event.destroyNotification(plain);
    BellEvent bell;
    Event& base = bell;
    VornNotification* ring = base.createNotification();
    EXPECT_EQ(ring->getClassName(), "Bell");
    base.destroyNotification(ring);
    base.destroyNotification(nullptr);
}

}  // namespace
