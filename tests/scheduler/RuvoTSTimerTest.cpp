#include "scheduler/RuvoTSTimer.h"

#include "scheduler/RuvoTSNotifications.h"
#include "scheduler/RuvoTSTimeKeeper.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

using namespace RuvoService;
using TestSupport::TestClock;
using TestSupport::waitUntil;

namespace {

std::int64_t now() { return RuvoTSClock::current().wallMs(); }

std::atomic<int> liveOwners{0};

// An owner as a task is one: the timer is a member.
class Owner : public VornSupport::VornDependent, public virtual VornSupport::VornObjectBase {
public:
    Owner() {
        ++liveOwners;
        timer.addDependent(*this);
    }
    ~Owner() override { --liveOwners; }

    void handleNotification(VornSupport::VornCollaborator&,
                            const VornSupport::VornNotification& notification) override {
        EXPECT_EQ(notification.getClassName(), "RuvoTSTimerNotification");
        ++fired;
    }

    RuvoTSTimer timer{*this};
    std::atomic<int> fired{0};
};

using OwnerPointer = VornSupport::VornSmartPointer<Owner>;

class RuvoTSTimerTest : public testing::Test {
protected:
    ~RuvoTSTimerTest() override {
        owner_->timer.disarm();
        another_->timer.disarm();
        EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 0u);
    }

    bool fires(int times = 1) {
        return waitUntil([&] { return owner_->fired == times; });
    }
    // Whoever fires late is found out by a timer that is due at the same time
    // and was armed later.
    bool staysQuiet() {
        const int before = owner_->fired;
        another_->timer.startToTime(0, now());
        EXPECT_TRUE(waitUntil([&] { return another_->fired > 0; }));
        another_->fired = 0;
        return owner_->fired == before;
    }

    TestClock clock_;
    OwnerPointer owner_ = VornSupport::makeCounted<Owner>();
    OwnerPointer another_ = VornSupport::makeCounted<Owner>();
};

TEST_F(RuvoTSTimerTest, FiresWhenTheWallClockShowsTheTime) {
    owner_->timer.startToTime(10, now());
    clock_.advance(9);
    clock_.advanceMs(999);
    EXPECT_TRUE(staysQuiet());
    clock_.advanceMs(1);
    EXPECT_TRUE(fires());
    clock_.advance(1000);
    EXPECT_TRUE(staysQuiet());
}

TEST_F(RuvoTSTimerTest, CountsFromTheFullSecond) {
    clock_.advanceMs(700);
    owner_->timer.startToTime(1, now());
    clock_.advanceMs(299);
    EXPECT_TRUE(staysQuiet());
    clock_.advanceMs(1);
    EXPECT_TRUE(fires());
}

TEST_F(RuvoTSTimerTest, FiresAtOnceWithoutTimeLeft) {
    owner_->timer.startToTime(0, now());
    EXPECT_TRUE(fires(1));
    owner_->timer.startToTime(-100'000, now());
    EXPECT_TRUE(fires(2));
    owner_->timer.startToTime(INT32_MIN, now());
    EXPECT_TRUE(fires(3));
    owner_->timer.startToWait(0);
    EXPECT_TRUE(fires(4));
}

TEST_F(RuvoTSTimerTest, WaitsForSixtyEightYears) {
    owner_->timer.startToTime(INT32_MAX, now());
    clock_.advance(INT32_MAX - 1);
    EXPECT_TRUE(staysQuiet());
    clock_.advance(1);
    EXPECT_TRUE(fires());
}

TEST_F(RuvoTSTimerTest, FiresOnceWhenTheClockIsSetForwards) {
    owner_->timer.startToTime(600, now());
    clock_.jump(3600);
    EXPECT_TRUE(fires());
    clock_.advance(600);
    EXPECT_TRUE(staysQuiet());
    EXPECT_EQ(owner_->fired, 1);
}

TEST_F(RuvoTSTimerTest, WaitsLongerWhenTheClockIsSetBackwards) {
    owner_->timer.startToTime(600, now());
    clock_.jump(-3600);
    clock_.advance(600);
    EXPECT_TRUE(staysQuiet());
    clock_.advance(3600 - 1);
    EXPECT_TRUE(staysQuiet());
    clock_.advance(1);
    EXPECT_TRUE(fires());
}

TEST_F(RuvoTSTimerTest, DoesNotFireAgainWhenTheClockIsSetBackOverItsTime) {
    owner_->timer.startToTime(600, now());
    clock_.advance(600);
    EXPECT_TRUE(fires());
    clock_.jump(-3600);
    clock_.advance(7200);
    EXPECT_TRUE(staysQuiet());
    EXPECT_EQ(owner_->fired, 1);
}

TEST_F(RuvoTSTimerTest, MeasuresWaitsByTheTimeThatPasses) {
    owner_->timer.startToWait(121);
    clock_.jump(3600);
    EXPECT_TRUE(staysQuiet());
    clock_.jump(-7200);
    clock_.advance(120);
    EXPECT_TRUE(staysQuiet());
    clock_.advance(1);
    EXPECT_TRUE(fires());
}

TEST_F(RuvoTSTimerTest, MayBeStartedAnew) {
    owner_->timer.startToTime(10, now());
    owner_->timer.startToWait(100);
    clock_.advance(50);
    EXPECT_TRUE(staysQuiet());
    owner_->timer.startToTime(20, now());
    clock_.advance(20);
    EXPECT_TRUE(fires());
    clock_.advance(100);
    EXPECT_TRUE(staysQuiet());
}

TEST_F(RuvoTSTimerTest, CanBeDisarmed) {
    owner_->timer.startToTime(10, now());
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 1u);
    owner_->timer.disarm();
    owner_->timer.disarm();
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 0u);
    clock_.advance(10);
    EXPECT_TRUE(staysQuiet());
}

TEST_F(RuvoTSTimerTest, HoldsItsOwnerWhileItWaits) {
    const int before = liveOwners;
    RuvoTSTimer* timer = nullptr;
    {
        const auto owner = VornSupport::makeCounted<Owner>();
        owner->timer.startToTime(10, now());
        timer = &owner->timer;
    }
    EXPECT_EQ(liveOwners, before + 1);
    timer->disarm();
    EXPECT_EQ(liveOwners, before);
}

TEST_F(RuvoTSTimerTest, LetsGoOfItsOwnerAfterItHasFired) {
    const int before = liveOwners;
    VornSupport::makeCounted<Owner>()->timer.startToTime(10, now());
    EXPECT_EQ(liveOwners, before + 1);
    clock_.advance(10);
    EXPECT_TRUE(waitUntil([&] { return liveOwners == before; }));
}

TEST_F(RuvoTSTimerTest, SetsItsEventAfterwards) {
    owner_->timer.startToTime(1, now());
    EXPECT_EQ(owner_->timer.getEvent().wait(0), 0);
    clock_.advance(1);
    EXPECT_NE(owner_->timer.getEvent().wait(20'000), 0);
    EXPECT_EQ(owner_->fired, 1);
}

TEST_F(RuvoTSTimerTest, LogsWhatItDoes) {
    const TestSupport::LogCapture log(9);
    owner_->timer.startToTime(0, now());
    EXPECT_NE(owner_->timer.getEvent().wait(20'000), 0);
    EXPECT_TRUE(waitUntil([&] { return log.has(9, "RuvoTSTimer::set exit"); }));
    EXPECT_EQ(log.beginning("RuvoTSTimer::set enter NOTIF=0x").size(), 1u);
}

TEST_F(RuvoTSTimerTest, FiresInTheOrderOfTheTimes) {
    std::vector<OwnerPointer> owners;
    for (int i = 0; i < 100; ++i) {
        owners.push_back(VornSupport::makeCounted<Owner>());
        owners.back()->timer.startToTime(100 - i, now());
    }
    for (int i = 99; i >= 0; --i) {
        clock_.advance(1);
        EXPECT_TRUE(waitUntil([&] { return owners[static_cast<std::size_t>(i)]->fired == 1; }));
        if (i > 0) {
            EXPECT_EQ(owners[static_cast<std::size_t>(i) - 1]->fired, 0);
        }
    }
}

// Disarming while the time comes: the owner is told once or not at all, and is
// never told after it has gone.
TEST_F(RuvoTSTimerTest, MayBeDisarmedWhileItFires) {
    const int before = liveOwners;
    for (int i = 0; i < 500; ++i) {
        auto owner = VornSupport::makeCounted<Owner>();
        owner->timer.startToTime(1, now());
        clock_.advance(1);
        owner->timer.disarm();
        EXPECT_LE(owner->fired, 1);
    }
    EXPECT_TRUE(waitUntil([&] { return liveOwners == before; }));
}

// By the machine's clock, with nobody to tell the keeper that it is time.
TEST(RuvoTSTimeKeeper, WakesByItself) {
    const auto owner = VornSupport::makeCounted<Owner>();
    const auto begin = std::chrono::system_clock::now();
    owner->timer.startToTime(2, now());
    EXPECT_NE(owner->timer.getEvent().wait(20'000), 0);
    const auto end = std::chrono::system_clock::now();
    EXPECT_EQ(std::chrono::floor<std::chrono::seconds>(begin) + std::chrono::seconds(2) <= end,
              true);
    EXPECT_EQ(owner->fired, 1);
}

TEST(RuvoTSTimeKeeper, WakesForAnEarlierTimeThatComesLater) {
    const auto late = VornSupport::makeCounted<Owner>();
    const auto early = VornSupport::makeCounted<Owner>();
    late->timer.startToTime(3600, now());
    early->timer.startToWait(1);
    EXPECT_NE(early->timer.getEvent().wait(20'000), 0);
    EXPECT_EQ(late->fired, 0);
    late->timer.disarm();
}

// A clock that is set without a word is noticed after kLookMs at the latest.
class SilentClock : public RuvoTSClock {
public:
    SilentClock() { setCurrentForTest(this); }
    ~SilentClock() override { setCurrentForTest(nullptr); }
    std::int64_t wallMs() const override { return wall; }
    std::int64_t elapsedMs() const override {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::steady_clock::now().time_since_epoch())
            .count();
    }
    std::atomic<std::int64_t> wall{1'000'000'000'000};
};

TEST(RuvoTSTimeKeeper, FindsOutThatTheClockWasSet) {
    SilentClock clock;
    const auto owner = VornSupport::makeCounted<Owner>();
    owner->timer.startToTime(3600, now());
    clock.wall += 3600 * 1000;
    EXPECT_NE(owner->timer.getEvent().wait(static_cast<int>(RuvoTSTimeKeeper::kLookMs) + 20'000),
              0);
    EXPECT_EQ(owner->fired, 1);
}

}  // namespace
