#include "runtime/support/VornTimer.h"

#include "runtime/support/VornCollaborator.h"
#include "runtime/support/VornIdleThreads.h"
#include "runtime/support/VornThreadName.h"
#include "runtime/support/VornTimerService.h"
#include "tests/runtime/platform/NativeProbe.h"
#include "tests/runtime/support/AllocationCount.h"
#include "tests/runtime/support/CoreTestTools.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <functional>
#include <memory>
#include <ratio>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace VornSupport;
using namespace std::chrono_literals;
using CoreTest::Gate;
using CoreTest::LogCapture;

namespace {

constexpr long kHour = 3'600'000;

class TestTimer : public VornTimer {
public:
    explicit TestTimer(std::function<void()> body = {}) : body_(std::move(body)) {}
    ~TestTimer() override { stop(); }

    int calls() const { return calls_; }
    bool hasFired(int times = 1) const {
        return TestSupport::waitUntil([&] { return calls_ >= times; });
    }
    // For bodies that need the timer itself.
    void setBody(std::function<void()> body) { body_ = std::move(body); }

protected:
    void timerFired() override {
        ++calls_;
        if (body_) body_();
    }

private:
    std::function<void()> body_;
    std::atomic<int> calls_{0};
};

TEST(VornTimer, DoesNothingUntilItIsStarted) {
    TestTimer timer;
    EXPECT_FALSE(timer.isArmed());
    EXPECT_TRUE(timer.isOneShot());
    timer.stop();
    timer.reset();
    EXPECT_FALSE(timer.isArmed());
    EXPECT_EQ(timer.calls(), 0);
}

TEST(VornTimer, FiresOnceWhenOneShot) {
    TestTimer timer;
    timer.start(5, true);
    EXPECT_TRUE(timer.isOneShot());
    EXPECT_TRUE(timer.hasFired());
    EXPECT_FALSE(timer.isArmed());
    timer.stop();
    EXPECT_EQ(timer.calls(), 1);
}

TEST(VornTimer, DoesNotFireEarly) {
    for (const long ms : {1L, 20L, 60L}) {
        std::atomic<bool> early{false};
        std::chrono::steady_clock::time_point begin;
        TestTimer timer([&] {
            early = std::chrono::steady_clock::now() < begin + std::chrono::milliseconds(ms);
        });
        begin = std::chrono::steady_clock::now();
        timer.start(ms, true);
        EXPECT_TRUE(timer.hasFired());
        timer.stop();
        EXPECT_FALSE(early) << ms;
    }
}

TEST(VornTimer, FiresAtOnceForZeroAndForNegativeTimes) {
    const std::vector<std::function<void(VornTimer&)>> starts{
        [](VornTimer& t) { t.start(0, true); },
        [](VornTimer& t) { t.start(-1, true); },
        [](VornTimer& t) { t.start(LONG_MIN, true); },
        [](VornTimer& t) { t.start(0, 0, true); },
        [](VornTimer& t) { t.start(-5, 100, true); },
        [](VornTimer& t) { t.start(1, -1000, true); },
        [](VornTimer& t) { t.start(LONG_MIN, LONG_MIN, true); },
    };
    for (const auto& start : starts) {
        TestTimer timer;
        start(timer);
        EXPECT_TRUE(timer.hasFired());
    }
}

TEST(VornTimer, AddsSecondsAndMilliseconds) {
    TestTimer soon;
    soon.start(3600, -kHour + 1, true);
    EXPECT_TRUE(soon.hasFired());
    TestTimer late;
    late.start(3600, 0, true);
    EXPECT_TRUE(late.isArmed());
    EXPECT_EQ(late.calls(), 0);
}

TEST(VornTimer, NeverComesDueForTheLongestTimes) {
    const std::vector<std::pair<long, long>> times{
        {0, LONG_MAX}, {LONG_MAX, 0}, {LONG_MAX, LONG_MAX}, {INT_MAX, 0}};
    for (const auto& [seconds, milliseconds] : times) {
        TestTimer timer;
        timer.start(seconds, milliseconds, false);
        TestTimer probe;  // fires after it, were its time to wrap into the past
        probe.start(5, true);
        EXPECT_TRUE(probe.hasFired());
        EXPECT_TRUE(timer.isArmed());
        EXPECT_EQ(timer.calls(), 0) << seconds << " s " << milliseconds << " ms";
    }
}

TEST(VornTimer, ServesAnEarlierTimeThatWasArmedLater) {
    TestTimer late;
    late.start(kHour, true);
    TestTimer soon;
    soon.start(1, true);
    EXPECT_TRUE(soon.hasFired());
    EXPECT_EQ(late.calls(), 0);
}

TEST(VornTimer, GoesOnUntilItIsStoppedWhenPeriodic) {
    TestTimer timer;
    timer.start(2, false);
    EXPECT_FALSE(timer.isOneShot());
    EXPECT_TRUE(timer.hasFired(5));
    EXPECT_TRUE(timer.isArmed());
    timer.stop();
    EXPECT_FALSE(timer.isArmed());
    const int calls = timer.calls();
    TestTimer later;
    later.start(20, true);
    EXPECT_TRUE(later.hasFired());
    EXPECT_EQ(timer.calls(), calls);
}

TEST(VornTimer, TakesAPeriodOfZeroForOneMillisecond) {
    TestTimer timer;
    const auto begin = std::chrono::steady_clock::now();
    timer.start(0, false);
    EXPECT_TRUE(timer.hasFired(20));
    const auto took = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(took, 18ms) << "the first at once, nineteen periods later the last";
}

TEST(VornTimerRaster, GoesOnWithTheNextPoint) {
    const TimerClock::time_point due{1000ms};
    EXPECT_EQ(nextOnRaster(due, due, 10ms), due + 10ms);
    EXPECT_EQ(nextOnRaster(due, due + 1ms, 10ms), due + 10ms);
    EXPECT_EQ(nextOnRaster(due, due + 9999us, 10ms), due + 10ms);
}

TEST(VornTimerRaster, LeavesOutWhatHasPassed) {
    const TimerClock::time_point due{1000ms};
    EXPECT_EQ(nextOnRaster(due, due + 10ms, 10ms), due + 20ms);
    EXPECT_EQ(nextOnRaster(due, due + 10001us, 10ms), due + 20ms);
    EXPECT_EQ(nextOnRaster(due, due + 3600s, 7ms), due + 7ms * (3'600'000 / 7 + 1));
}

TEST(VornTimerRaster, DoesNotDriftHoweverLateItIsServed) {
    const TimerClock::time_point start{};
    TimerClock::time_point due = start + 10ms;
    for (int i = 0; i < 10'000; ++i) {
        due = nextOnRaster(due, due + std::chrono::microseconds(i % 30'000), 10ms);
        ASSERT_EQ((due - start) % 10ms, 0ms);
    }
}

TEST(VornTimerRaster, HoldsForTheLongestPeriods) {
    const TimerClock::time_point due = TimerClock::now();
    constexpr auto kLongest = 24h * 365 * 100;
    EXPECT_EQ(nextOnRaster(due, due + 1s, kLongest), due + kLongest);
}

// Late calls are late; none comes before its point of the raster.
TEST(VornTimer, NeverFiresBeforeItsPointOfTheRaster) {
    constexpr auto kPeriod = 10ms;
    std::vector<std::chrono::steady_clock::time_point> times;
    TestTimer timer([&] { times.push_back(std::chrono::steady_clock::now()); });
    const auto begin = std::chrono::steady_clock::now();
    timer.start(10, false);
    EXPECT_TRUE(timer.hasFired(20));
    timer.stop();
    for (std::size_t i = 0; i < times.size(); ++i) {
        EXPECT_GE(times[i], begin + kPeriod * static_cast<int>(i + 1));
    }
}

TEST(VornTimer, MakesUpForManyMissedTimesWithOneCall) {
    constexpr auto kPeriod = 20ms;
    Gate leave;
    std::vector<std::chrono::steady_clock::time_point> times;
    TestTimer timer([&] {
        times.push_back(std::chrono::steady_clock::now());
        leave.wait();
    });
    const auto begin = std::chrono::steady_clock::now();
    timer.start(20, false);
    EXPECT_TRUE(TestSupport::waitUntil(
        [&] { return std::chrono::steady_clock::now() >= begin + 20 * kPeriod; }));
    const auto opened = std::chrono::steady_clock::now();
    leave.open();
    EXPECT_TRUE(timer.hasFired(13));
    timer.stop();
    // Were each of the twenty made up for, the thirteenth would come at once.
    EXPECT_GE(times[12], opened + 8 * kPeriod);
}

TEST(VornTimer, NeverRunsItsReceiverTwiceAtOnce) {
    std::atomic<int> inside{0};
    std::atomic<int> overlaps{0};
    TestTimer timer([&] {
        if (++inside != 1) ++overlaps;
        std::this_thread::yield();
        --inside;
    });
    timer.start(0, false);
    for (int i = 0; i < 200; ++i) timer.start(0, i % 2 == 0);
    timer.start(0, false);
    EXPECT_TRUE(timer.hasFired(50));
    timer.stop();
    EXPECT_EQ(overlaps, 0);
}

TEST(VornTimer, TakesANewTimeInPlaceOfTheOldOne) {
    const int before = VornTimer::armedCount();
    TestTimer timer;
    timer.start(kHour, false);
    timer.start(kHour, 0, false);
    timer.start(2, true);
    EXPECT_EQ(VornTimer::armedCount(), before + 1);
    EXPECT_TRUE(timer.isOneShot());
    EXPECT_TRUE(timer.hasFired());
    timer.stop();
    EXPECT_EQ(timer.calls(), 1);
    EXPECT_EQ(VornTimer::armedCount(), before);
}

TEST(VornTimer, DoesNotFireAfterStop) {
    for (int round = 0; round < 300; ++round) {
        TestTimer timer;
        timer.start(round % 3, round % 2 == 0);
        timer.stop();
        const int calls = timer.calls();
        EXPECT_FALSE(timer.isArmed());
        std::this_thread::yield();
        EXPECT_EQ(timer.calls(), calls);
    }
}

TEST(VornTimer, StartsAgainWithTheSameTimesOnReset) {
    TestTimer timer;
    timer.start(3, true);
    EXPECT_TRUE(timer.hasFired());
    timer.reset();
    EXPECT_TRUE(timer.hasFired(2));
    timer.stop();
    EXPECT_EQ(timer.calls(), 2);
    EXPECT_TRUE(timer.isOneShot());
    timer.start(2, false);
    timer.stop();
    timer.reset();
    EXPECT_FALSE(timer.isOneShot());
    EXPECT_TRUE(timer.hasFired(5));
}

TEST(VornTimer, PutsTheTimeOffOnReset) {
    TestTimer timer;
    timer.start(kHour, true);
    for (int i = 0; i < 10; ++i) timer.reset();
    EXPECT_TRUE(timer.isArmed());
    EXPECT_EQ(timer.calls(), 0);
}

TEST(VornTimer, SetsItsEventWhenNotOverridden) {
    VornTimer timer;
    EXPECT_EQ(timer.getEvent().wait(0), 0);
    timer.start(1, true);
    EXPECT_NE(timer.getEvent().wait(60'000), 0);
    timer.stop();
    EXPECT_EQ(timer.getEvent().wait(0), 0) << "automatic";
}

TEST(VornTimer, MayBeRestartedFromItsReceiver) {
    TestTimer timer;
    timer.setBody([&] {
        if (timer.calls() < 5) timer.start(1, true);
    });
    timer.start(1, true);
    EXPECT_TRUE(timer.hasFired(5));
    timer.stop();
    EXPECT_EQ(timer.calls(), 5);

    TestTimer resetting;
    resetting.setBody([&] {
        if (resetting.calls() < 5) resetting.reset();
    });
    resetting.start(0, true);
    EXPECT_TRUE(resetting.hasFired(5));
}

TEST(VornTimer, MayBeStoppedFromItsReceiver) {
    TestTimer timer;
    Gate stopped;
    timer.setBody([&] {
        if (timer.calls() != 3) return;
        timer.stop();
        stopped.open();
    });
    timer.start(1, false);
    EXPECT_TRUE(stopped.wait());
    EXPECT_FALSE(timer.isArmed());
    timer.stop();
    EXPECT_EQ(timer.calls(), 3);
}

TEST(VornTimer, MayBeDestroyedByItsReceiver) {
    class SelfDestroying : public VornTimer {
    public:
        explicit SelfDestroying(std::atomic<bool>& flag) : flag_(flag) {}
        std::unique_ptr<SelfDestroying> self;

    protected:
        void timerFired() override {
            std::atomic<bool>& flag = flag_;
            std::exchange(self, nullptr).reset();
            flag = true;
        }

    private:
        std::atomic<bool>& flag_;
    };
    std::atomic<bool> gone{false};
    auto owned = std::make_unique<SelfDestroying>(gone);
    SelfDestroying& borrowed = *owned;
    borrowed.self = std::move(owned);
    borrowed.start(1, false);
    EXPECT_TRUE(TestSupport::waitUntil([&] { return gone.load(); }));
}

TEST(VornTimer, WaitsInStopForTheRunningReceiver) {
    Gate entered;
    Gate leave;
    std::atomic<bool> left{false};
    std::atomic<bool> stopped{false};
    TestTimer timer([&] {
        entered.open();
        leave.wait();
        left = true;
    });
    timer.start(0, false);
    ASSERT_TRUE(entered.wait());
    std::thread stopper([&] {
        timer.stop();
        EXPECT_TRUE(left);
        stopped = true;
    });
    EXPECT_FALSE(TestSupport::waitUntil([&] { return stopped.load(); }, 50ms));
    leave.open();
    stopper.join();
    const int calls = timer.calls();
    TestTimer later;
    later.start(20, true);
    EXPECT_TRUE(later.hasFired());
    EXPECT_EQ(timer.calls(), calls);
}

// However eagerly a receiver starts its timer again, stop() has the last word.
TEST(VornTimer, EndsInStopWhenTheReceiverAlwaysRestarts) {
    for (int round = 0; round < 20; ++round) {
        TestTimer timer;
        timer.setBody([&] {
            timer.start(0, true);
            // Give the dispatcher the time to find it due again.
            for (int i = 0; i < 50; ++i) std::this_thread::yield();
        });
        timer.start(0, true);
        EXPECT_TRUE(timer.hasFired(10));
        timer.stop();
        EXPECT_FALSE(timer.isArmed());
        const int calls = timer.calls();
        TestTimer later;
        later.start(2, true);
        EXPECT_TRUE(later.hasFired());
        EXPECT_EQ(timer.calls(), calls);
        timer.start(0, true);
        EXPECT_TRUE(timer.hasFired(calls + 1)) << "a later start counts again";
    }
}

TEST(VornTimer, LetsSeveralThreadsStopIt) {
    Gate entered;
    Gate leave;
    std::atomic<bool> left{false};
    TestTimer timer([&] {
        entered.open();
        leave.wait();
        left = true;
    });
    timer.start(0, true);
    ASSERT_TRUE(entered.wait());
    std::vector<std::thread> stoppers;
    for (int i = 0; i < 4; ++i) {
        stoppers.emplace_back([&] {
            timer.stop();
            EXPECT_TRUE(left);
        });
    }
    leave.open();
    for (auto& stopper : stoppers) stopper.join();
}

TEST(VornTimer, CatchesAndLogsTheExceptionsOfItsReceiver) {
    const LogCapture log(2);
    TestTimer timer;
    timer.setBody([&] {
        if (timer.calls() == 1) throw std::runtime_error("boom");
        if (timer.calls() == 2) throw 3;
    });
    timer.start(1, false);
    EXPECT_TRUE(timer.hasFired(3));
    timer.stop();
    const auto records = CoreTest::recordsWith(log, "VornTimer::timerFired");
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].text, "VornTimer::timerFired: exception: boom");
    EXPECT_EQ(records[1].text, "VornTimer::timerFired: unknown exception");
    for (const auto& record : records) EXPECT_EQ(record.level, 2);
}

TEST(VornTimer, TellsItsDependentsOnAWorker) {
    class TaskTimer : public VornTimer, public VornCollaborator {
    public:
        ~TaskTimer() override { stop(); }

    protected:
        void timerFired() override { notify(VornNotification(3)); }
    };
    class Listener : public VornDependent {
    public:
        void handleNotification(VornCollaborator&, const VornNotification& told) override {
            kind = told.getKind();
            thread = threadName();
            heard.open();
        }
        int kind = 0;
        std::string thread;
        Gate heard;
    };
    Listener listener;
    TaskTimer timer;
    timer.addDependent(listener);
    timer.start(0, 1, true);
    EXPECT_TRUE(listener.heard.wait());
    timer.stop();
    timer.removeDependent(listener);
    EXPECT_EQ(listener.kind, 3);
    EXPECT_EQ(listener.thread, "VornTimerWork");
}

// Every receiver goes on only when all have begun.
TEST(VornTimer, DelaysNoOtherByAReceiverThatPauses) {
    constexpr int kTimers = 60;
    std::atomic<int> inside{0};
    std::atomic<int> alone{0};
    std::vector<std::unique_ptr<TestTimer>> timers;
    for (int i = 0; i < kTimers; ++i) {
        timers.push_back(std::make_unique<TestTimer>([&] {
            ++inside;
            if (!TestSupport::waitUntil([&] { return inside == kTimers; })) ++alone;
        }));
    }
    for (auto& timer : timers) timer->start(1, true);
    for (auto& timer : timers) EXPECT_TRUE(timer->hasFired());
    timers.clear();
    EXPECT_EQ(alone, 0);
}

// How many times threads are added for hundreds of receivers, all due at one moment, of
// which every one that `pauses` goes on only when all have begun.
std::uint64_t additionsFor(int timerCount, const std::function<bool(int)>& pauses) {
    std::atomic<int> begun{0};
    Gate gate;
    std::vector<std::unique_ptr<TestTimer>> timers;
    for (int i = 0; i < timerCount; ++i) {
        timers.push_back(std::make_unique<TestTimer>([&begun, &gate, waits = pauses(i)] {
            ++begun;
            if (waits) gate.wait();
        }));
    }
    const auto before = VornTimer::additionsForTest();
    // Far enough ahead to arm all before.
    using Ms = std::chrono::duration<long, std::milli>;
    const auto due = std::chrono::steady_clock::now() + 500ms;
    for (auto& timer : timers) {
        const auto left = std::chrono::floor<Ms>(due - std::chrono::steady_clock::now());
        timer->start(std::max(left.count(), 0L), true);
    }
    EXPECT_TRUE(TestSupport::waitUntil([&] { return begun == timerCount; }));
    const auto additions = VornTimer::additionsForTest() - before;
    gate.open();
    timers.clear();
    return additions;
}

// Each time as many as there are: a few steps. One at a time would be hundreds, and
// half a second for a thousand receivers.
TEST(VornTimer, HasThreadsForHundredsThatPauseInAFewSteps) {
    EXPECT_LE(additionsFor(500, [](int) { return true; }), 20u);
}

// Each new thread takes a quick one or two before it stands still.
TEST(VornTimer, HasThreadsInAFewStepsThoughSomeOfTheReceiversAreQuick) {
    EXPECT_LE(additionsFor(800, [](int i) { return i % 2 == 0; }), 25u);
    EXPECT_LE(additionsFor(800, [](int i) { return i % 4 != 0; }), 25u);
}

TEST(VornTimer, ServesThousandsThatComeDueTogetherWithFewThreads) {
    constexpr int kTimers = 4000;
    const int before = NativeProbe::countThreads();
    std::vector<std::unique_ptr<TestTimer>> timers;
    for (int i = 0; i < kTimers; ++i) timers.push_back(std::make_unique<TestTimer>());
    for (auto& timer : timers) timer->start(0, true);
    for (auto& timer : timers) EXPECT_TRUE(timer->hasFired());
    EXPECT_LT(NativeProbe::countThreads(), before + kTimers / 4);
    for (auto& timer : timers) EXPECT_EQ(timer->calls(), 1);
}

TEST(VornTimer, GoesOnTickingWithoutMemory) {
    TestTimer timer;
    timer.start(1, false);
    ASSERT_TRUE(timer.hasFired(3));
    const AllocationFailure noMemory("VornTimers");
    EXPECT_TRUE(timer.hasFired(timer.calls() + 30));
}

TEST(VornTimer, FiresLateRatherThanNeverWhenThereIsNoMemory) {
    Gate gate;
    std::vector<std::unique_ptr<TestTimer>> timers;
    for (int i = 0; i < 500; ++i) {
        timers.push_back(std::make_unique<TestTimer>([&] { EXPECT_TRUE(gate.wait()); }));
    }
    TestTimer tick;
    tick.start(1, false);
    ASSERT_TRUE(tick.hasFired());
    // Threads that are idle take receivers without memory: there must be none, and none
    // that become so.
    endIdleTimerThreads();
    {
        const AllocationFailure noMemory("VornTimers");
        for (auto& timer : timers) timer->start(1, true);
        // Where the dispatcher's memory is not ours to refuse, all simply fire.
        EXPECT_TRUE(TestSupport::waitUntil([&] {
            return noMemory.count() > 0 || !NativeProbe::replacesAllocationEverywhere();
        }));
    }
    gate.open();
    for (auto& timer : timers) {
        ASSERT_TRUE(timer->hasFired());
        timer->stop();
        EXPECT_EQ(timer->calls(), 1);
    }
}

TEST(VornTimer, HoldsAHundredThousandOnOneThread) {
    constexpr int kTimers = 100'000;
    TestTimer first;
    first.start(0, true);
    EXPECT_TRUE(first.hasFired());
    const int threads = NativeProbe::countThreads();
    const int armed = VornTimer::armedCount();
    std::atomic<int> fired{0};
    class Counter : public VornTimer {
    public:
        explicit Counter(std::atomic<int>& count) : count_(count) {}
        ~Counter() override { stop(); }

    protected:
        void timerFired() override { ++count_; }

    private:
        std::atomic<int>& count_;
    };
    std::vector<std::unique_ptr<Counter>> timers;
    for (int i = 0; i < kTimers; ++i) {
        timers.push_back(std::make_unique<Counter>(fired));
        timers.back()->start(kHour + i % 1000, i % 2 == 0);
    }
    EXPECT_EQ(VornTimer::armedCount(), armed + kTimers);
    EXPECT_LE(NativeProbe::countThreads(), threads + 1);

    TestTimer among;
    among.start(1, true);
    EXPECT_TRUE(among.hasFired()) << "the others do not hold it up";
    timers.clear();
    EXPECT_EQ(VornTimer::armedCount(), armed);
    EXPECT_EQ(fired, 0);
}

// Timers come and go, memory and all, while they fire.
TEST(VornTimer, NeverCallsATimerThatIsGone) {
    std::atomic<int> dead{0};
    class Mortal : public VornTimer {
    public:
        explicit Mortal(std::atomic<int>& count) : dead_(count) {}
        ~Mortal() override {
            stop();
            alive_ = 0;
        }

    protected:
        void timerFired() override {
            if (alive_ != 4711) ++dead_;
        }

    private:
        std::atomic<int>& dead_;
        int alive_ = 4711;
    };
    CoreTest::onThreads(4, [&](int i) {
        for (int n = 0; n < 400; ++n) {
            Mortal timer(dead);
            timer.start((n + i) % 3, n % 2 == 0);
            if (n % 5 == 0) timer.reset();
            if (n % 7 == 0) timer.stop();
            std::this_thread::yield();
        }
    });
    EXPECT_EQ(dead, 0);
}

class TickThread : public VornEventTimerThread {
public:
    TickThread(VornTimer& timer, std::function<bool(int)> body)
        : VornEventTimerThread("TickThread", timer), body_(std::move(body)) {}
    ~TickThread() override {
        stop();
        waitForThreadExit();
    }
    int ticks() const { return ticks_; }
    bool hasTicked(int times) const {
        return TestSupport::waitUntil([&] { return ticks_ >= times; });
    }

protected:
    bool tick() override { return body_(++ticks_); }

private:
    std::function<bool(int)> body_;
    std::atomic<int> ticks_{0};
};

TEST(VornEventTimerThread, TicksWithItsTimerOnAThreadOfItsOwn) {
    VornTimer timer;
    std::string name;
    TickThread thread(timer, [&](int) {
        name = threadName();
        return true;
    });
    ASSERT_TRUE(thread.start());
    timer.start(1, false);
    EXPECT_TRUE(thread.hasTicked(5));
    thread.stop();
    EXPECT_TRUE(thread.wait(60'000));
    EXPECT_EQ(name, "TickThread");
    const int ticks = thread.ticks();
    EXPECT_NE(timer.getEvent().wait(60'000), 0) << "the timer goes on";
    EXPECT_EQ(thread.ticks(), ticks);
}

TEST(VornEventTimerThread, DoesNotTickWithoutItsTimer) {
    VornTimer timer;
    TickThread thread(timer, [](int) { return true; });
    ASSERT_TRUE(thread.start());
    EXPECT_FALSE(thread.wait(20));
    thread.stop();
    EXPECT_TRUE(thread.wait(60'000));
    EXPECT_EQ(thread.ticks(), 0);
    EXPECT_EQ(thread.getExitCode(), 0);
}

TEST(VornEventTimerThread, EndsWhenATickSaysSo) {
    VornTimer timer;
    TickThread thread(timer, [](int n) { return n < 3; });
    timer.start(1, false);
    ASSERT_TRUE(thread.start());
    EXPECT_TRUE(thread.wait(60'000));
    EXPECT_EQ(thread.ticks(), 3);
}

TEST(VornEventTimerThread, MayBeStoppedFromATick) {
    VornTimer timer;
    std::function<void()> stop;
    TickThread thread(timer, [&](int) {
        stop();
        return true;
    });
    stop = [&] { thread.stop(); };
    timer.start(0, false);
    ASSERT_TRUE(thread.start());
    EXPECT_TRUE(thread.wait(60'000));
    EXPECT_EQ(thread.ticks(), 1);
}

TEST(VornEventTimerThread, EndsAtOnceWhenStoppedWhileItsTimerIsDue) {
    VornTimer timer;
    Gate entered;
    Gate leave;
    TickThread thread(timer, [&](int) {
        entered.open();
        return leave.wait();
    });
    ASSERT_TRUE(thread.start());
    timer.start(0, false);
    ASSERT_TRUE(entered.wait());
    thread.stop();
    timer.stop();
    timer.getEvent().set();
    leave.open();
    EXPECT_TRUE(thread.wait(60'000));
    EXPECT_EQ(thread.ticks(), 1);
}

// A stop that finds no run belongs to none.
TEST(VornEventTimerThread, StartsAgainAfterAStopThatCameTooLate) {
    VornTimer timer;
    TickThread thread(timer, [](int n) { return n % 2 == 1; });
    timer.start(0, false);
    ASSERT_TRUE(thread.start());
    EXPECT_TRUE(thread.wait(60'000));
    EXPECT_EQ(thread.ticks(), 2);
    thread.stop();
    ASSERT_TRUE(thread.start());
    EXPECT_TRUE(thread.wait(60'000));
    EXPECT_EQ(thread.ticks(), 4);
}

TEST(VornEventTimerThread, StartsAgainAfterAStop) {
    VornTimer timer;
    TickThread thread(timer, [](int) { return true; });
    timer.start(1, false);
    for (int round = 0; round < 20; ++round) {
        const int ticks = thread.ticks();
        ASSERT_TRUE(thread.start());
        EXPECT_TRUE(thread.hasTicked(ticks + 1));
        thread.stop();
        EXPECT_TRUE(thread.wait(60'000));
    }
}

TEST(VornEventTimerThread, EndsWithALogLineWhenATickThrows) {
    const LogCapture log(2);
    VornTimer timer;
    TickThread thread(timer, [](int) -> bool { throw std::runtime_error("bad tick"); });
    timer.start(0, true);
    ASSERT_TRUE(thread.start());
    EXPECT_TRUE(thread.wait(60'000));
    EXPECT_EQ(CoreTest::textsWith(log, "VornThread::run"),
              std::vector<std::string>{"VornThread::run: TickThread: exception: bad tick"});
}

TEST(VornEventTimerThread, TicksByItself) {
    VornTimer timer;
    VornEventTimerThread thread("Plain", timer);
    ASSERT_TRUE(thread.start());
    timer.start(1, false);
    EXPECT_FALSE(thread.wait(10)) << "the hook goes on unless overridden";
    thread.stop();
    EXPECT_TRUE(thread.wait(60'000));
}

}  // namespace
