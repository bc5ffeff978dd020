#include "scheduler/RuvoTSTask.h"

#include "runtime/net/VornProxyDependentContainer.h"
#include "scheduler/RuvoTSBlobTask.h"
#include "scheduler/RuvoTSHandles.h"
#include "scheduler/RuvoTSNotifications.h"
#include "scheduler/RuvoTSNotifier.h"
#include "scheduler/RuvoTSRuns.h"
#include "scheduler/RuvoTSTaskSet.h"
#include "scheduler/RuvoTSTaskThread.h"
#include "scheduler/RuvoTSTimeKeeper.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using namespace RuvoService;
using TestSupport::kNoon;
using TestSupport::LogCapture;
using TestSupport::waitUntil;

namespace {

constexpr std::int32_t kDay = 86400;

// Keeps what it is told: "2/0".
class Follower : public VornSupport::VornDependent {
public:
    void handleNotification(VornSupport::VornCollaborator&,
                            const VornSupport::VornNotification& notification) override {
        const auto& told = dynamic_cast<const RuvoTSTaskNotification&>(notification);
        const std::lock_guard lock(mutex_);
        told_.push_back(std::to_string(told.getState()) + '/' + std::to_string(told.getStatus()));
        if (told.getChange() >= latest_) {
            latest_ = told.getChange();
            last_ = told_.back();
        }
    }
    std::vector<std::string> told() const {
        const std::lock_guard lock(mutex_);
        return told_;
    }
    // The last change, even if one before it was told after it: two threads may
    // tell theirs the other way round.
    std::string last() const {
        const std::lock_guard lock(mutex_);
        return last_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> told_;
    std::uint64_t latest_ = 0;
    std::string last_;
};

using Told = std::vector<std::string>;

// Tasks without the engine, with real timers and threads: those with bytes, as
// they do nothing else.
class RuvoTSTaskTest : public testing::Test {
protected:
    RuvoTSTaskSet::Task make(std::int32_t time, std::uint32_t frequency, bool insert = true) {
        auto task = RuvoTSTask::make<RuvoTSBlobTask>("task", time, frequency, "bytes");
        if (insert) open_.set().insert(task, true);
        return task;
    }
    // Lets time pass and waits for the end of the run that begins then.
    static bool awaitRun(RuvoTSTask& task, std::int32_t lastRunTime) {
        return waitUntil([&] { return task.getLastRunTime() == lastRunTime; });
    }
    static bool awaitState(RuvoTSTask& task, RuvoTSTask::State state) {
        return waitUntil([&] { return task.getState() == state; });
    }

    TestSupport::StoreFolder folder_;
    TestSupport::TestClock clock_;
    TestSupport::OpenTaskSet open_;
};

TEST_F(RuvoTSTaskTest, BeginsWaiting) {
    const auto task = make(kNoon + 10, RuvoTSTask::Daily);
    EXPECT_EQ(task->getState(), RuvoTSTask::Waiting);
    EXPECT_EQ(task->getStatus(), -999);
    EXPECT_EQ(task->getLastRunTime(), 0);
    EXPECT_EQ(task->getNextTime(), kNoon + 10);
    EXPECT_EQ(task->getFrequency(), 0u);
    EXPECT_EQ(task->getName(), "task");
    EXPECT_GE(task->getHandle(), 0);
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 1u);
}

TEST_F(RuvoTSTaskTest, RunsAtItsTime) {
    for (const std::int32_t ahead : {10, 1}) {  // a second is enough
        const std::int32_t time = currentTime() + ahead;
        const auto task = make(time, RuvoTSTask::Daily);
        clock_.advance(ahead - 1);
        EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 1u);
        clock_.advance(1);
        EXPECT_TRUE(awaitRun(*task, time)) << ahead;
        EXPECT_TRUE(awaitState(*task, RuvoTSTask::Waiting));
        EXPECT_EQ(task->getStatus(), 0);
        EXPECT_EQ(task->getNextTime(), time + kDay);
        task->finish();
    }
}

// What is past, or less than a second ahead, waits as long as "soon" does.
TEST_F(RuvoTSTaskTest, WaitsTwoMinutesForATimeThatIsPast) {
    for (const std::int32_t time : {kNoon, kNoon - 1, kNoon - 100 * kDay, 0, -1, INT32_MIN}) {
        const auto task = make(time, RuvoTSTask::Daily);
        const std::int32_t begin = currentTime();
        clock_.advance(120);
        EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 1u) << time;
        clock_.advance(1);
        EXPECT_TRUE(awaitRun(*task, begin + 121)) << time;
        task->finish();
    }
}

TEST_F(RuvoTSTaskTest, WaitsTwoMinutesWhateverTheTimeWhenItIsSoon) {
    for (const std::int32_t time : {kNoon - 10, kNoon + 1, kNoon + 90 * kDay}) {
        const auto task = make(time, RuvoTSTask::Soon);
        const std::int32_t begin = currentTime();
        clock_.advance(120);
        EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 1u);
        clock_.advance(1);
        EXPECT_TRUE(awaitRun(*task, begin + 121));
        EXPECT_TRUE(awaitState(*task, RuvoTSTask::Finished));
    }
}

TEST_F(RuvoTSTaskTest, ComesAgainByItsFrequency) {
    struct {
        std::uint32_t frequency;
        std::int32_t days;
    } const known[] = {{0, 1}, {1, 7}, {2, 28}};
    for (const auto& [frequency, days] : known) {
        const std::int32_t first = currentTime() + 10;
        const auto task = make(first, frequency);
        clock_.advance(10);
        ASSERT_TRUE(awaitRun(*task, first));
        ASSERT_TRUE(awaitState(*task, RuvoTSTask::Waiting));
        EXPECT_EQ(task->getNextTime(), first + days * kDay);
        clock_.advance(days * kDay - 1);
        EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 1u);
        clock_.advance(1);
        ASSERT_TRUE(awaitRun(*task, first + days * kDay));
        ASSERT_TRUE(awaitState(*task, RuvoTSTask::Waiting));
        EXPECT_EQ(task->getNextTime(), first + 2 * days * kDay);
        task->finish();
    }
}

// Not counted from the end of the run: the time of day stays.
TEST_F(RuvoTSTaskTest, RunsAtOnceWhenItsNextTimeIsPast) {
    const auto task = make(kNoon + 10, RuvoTSTask::Daily);
    clock_.advance(2 * kDay + 3600);
    // Late by two days: three runs, one after the other.
    EXPECT_TRUE(waitUntil([&] { return task->getNextTime() == kNoon + 10 + 3 * kDay; }));
    EXPECT_TRUE(awaitState(*task, RuvoTSTask::Waiting));
    EXPECT_TRUE(waitUntil([] { return RuvoTSTimeKeeper::getInstance().waiting() == 1; }));
}

TEST_F(RuvoTSTaskTest, IsRemovedAfterTheOnlyRun) {
    for (const std::uint32_t frequency : {RuvoTSTask::Once, RuvoTSTask::Soon}) {
        const auto task = make(currentTime() + 10, frequency);
        EXPECT_EQ(folder_.lines().size(), 1u);
        clock_.advance(121);
        EXPECT_TRUE(waitUntil([&] { return open_.set().size() == 0; }));
        EXPECT_EQ(task->getState(), RuvoTSTask::Finished);
        EXPECT_TRUE(waitUntil([&] { return folder_.lines().empty(); }));
        EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 0u);
    }
}

TEST_F(RuvoTSTaskTest, StaysAfterOneRunWithAnUnknownFrequency) {
    for (const std::uint32_t frequency : {5u, 7u, 4'294'967'295u}) {
        const auto task = make(currentTime() + 10, frequency);
        clock_.advance(10);
        EXPECT_TRUE(awaitState(*task, RuvoTSTask::Ended));
        EXPECT_TRUE(awaitRun(*task, currentTime()));
        EXPECT_EQ(task->getStatus(), 0);
        EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 0u);
        EXPECT_EQ(open_.set().find(task->getHandle()), task);
        open_.set().remove(task->getHandle());
    }
}

// ---- clocks ----------------------------------------------------------------------

TEST_F(RuvoTSTaskTest, RunsOnceWhenTheClockIsSetForwardsOverItsTime) {
    const auto task = make(kNoon + 600, RuvoTSTask::Daily);
    clock_.jump(3600);
    EXPECT_TRUE(awaitRun(*task, kNoon + 3600));
    EXPECT_TRUE(awaitState(*task, RuvoTSTask::Waiting));
    EXPECT_EQ(task->getNextTime(), kNoon + 600 + kDay);
    clock_.advance(kDay - 3600);
    EXPECT_EQ(task->getLastRunTime(), kNoon + 3600);
    clock_.advance(600);
    EXPECT_TRUE(awaitRun(*task, kNoon + 600 + kDay));
}

TEST_F(RuvoTSTaskTest, RunsOnceWhenTheClockIsSetBackwards) {
    const auto task = make(kNoon + 600, RuvoTSTask::Daily);
    clock_.advance(600);
    EXPECT_TRUE(awaitRun(*task, kNoon + 600));
    EXPECT_TRUE(awaitState(*task, RuvoTSTask::Waiting));
    clock_.jump(-3600);
    clock_.advance(3600);  // its time comes a second time
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 1u);
    EXPECT_EQ(task->getNextTime(), kNoon + 600 + kDay);
    clock_.advance(kDay);
    EXPECT_TRUE(awaitRun(*task, kNoon + 600 + kDay));
}

TEST_F(RuvoTSTaskTest, WaitsOnWhenTheClockIsSetBackwardsBeforeItsTime) {
    const auto task = make(kNoon + 600, RuvoTSTask::Once);
    clock_.jump(-3600);
    clock_.advance(600);
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 1u);
    clock_.advance(3600);
    EXPECT_TRUE(awaitState(*task, RuvoTSTask::Finished));
    EXPECT_EQ(task->getLastRunTime(), kNoon + 600);
}

// A second that begins while the wait is worked out.
class HastyClock final : public TestSupport::TestClock {
public:
    std::int64_t wallMs() const override {
        return TestClock::wallMs() + (hasty ? late.fetch_add(1000) : late.load());
    }
    mutable std::atomic<std::int64_t> late{0};
    std::atomic<bool> hasty{false};
};

TEST(RuvoTSTask, IsNotLateWhenASecondBeginsMeanwhile) {
    const TestSupport::StoreFolder folder;
    HastyClock clock;
    const TestSupport::OpenTaskSet open;
    clock.hasty = true;
    const auto task = RuvoTSTask::make<RuvoTSBlobTask>("task", kNoon + 10, RuvoTSTask::Daily, "");
    clock.hasty = false;
    clock.advanceMs(10'000 - 1 - clock.late);
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 1u);
    clock.advanceMs(1);
    EXPECT_TRUE(waitUntil([&] { return task->getLastRunTime() == kNoon + 10; }));
    EXPECT_TRUE(waitUntil([&] { return task->getState() == RuvoTSTask::Waiting; }));

    // The same with the time after that.
    clock.hasty = true;
    task->rescheduleTask();
    clock.hasty = false;
    const std::int32_t next = kNoon + 10 + 2 * kDay;
    EXPECT_EQ(task->getNextTime(), next);
    clock.advanceMs(next * std::int64_t{1000} - 1 - clock.wallMs());
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 1u);
    clock.advanceMs(1);
    EXPECT_TRUE(waitUntil([&] { return task->getLastRunTime() == next; }));
    task->finish();
}

// ---- states ----------------------------------------------------------------------

TEST_F(RuvoTSTaskTest, TellsItsDependentsEachState) {
    const auto task = make(kNoon + 10, RuvoTSTask::Daily);
    Follower follower;
    task->addDependent(follower);
    clock_.advance(10);
    EXPECT_TRUE(waitUntil([&] { return follower.told() == Told{"0/0", "1/0", "2/0"}; }));
    task->finish();
    EXPECT_EQ(follower.told(), (Told{"0/0", "1/0", "2/0", "-1/0"}));
    task->removeDependent(follower);
}

TEST_F(RuvoTSTaskTest, KeepsTheStatusOfTheLastRunWhileItWaits) {
    const auto task = make(kNoon + 10, RuvoTSTask::Daily);
    task->setState(RuvoTSTask::Running, 5);
    EXPECT_EQ(task->getStatus(), -999);
    task->setState(RuvoTSTask::Ended, 42);
    EXPECT_EQ(task->getState(), RuvoTSTask::Ended);
    EXPECT_EQ(task->getStatus(), 42);
    task->setState(RuvoTSTask::Waiting, 0);
    EXPECT_EQ(task->getState(), RuvoTSTask::Waiting);
    EXPECT_EQ(task->getStatus(), 42);
}

TEST_F(RuvoTSTaskTest, RaisesEachStateAsAnEvent) {
    RuvoNNEngine notifier;
    notifier.start();
    const auto log = VornSupport::makeCounted<TestSupport::EventLog>();
    VornNet::VornProxyDependentContainer::getInstance().add(log);
    RuvoTSNotifier::getInstance().connect(&notifier);
    const auto task = make(kNoon + 10, RuvoTSTask::Once);
    EXPECT_TRUE(log->awaitStates(task->getHandle(), {2}));
    clock_.advance(10);
    EXPECT_TRUE(log->awaitStates(task->getHandle(), {2, 0, 1, -1}));
    RuvoTSNotifier::getInstance().connect(nullptr);
    task->setState(RuvoTSTask::Ended, 0);  // goes nowhere, and no harm is done
    notifier.stop();
    EXPECT_EQ(log->events().size(), 4u);
    VornNet::VornProxyDependentContainer::getInstance().remove(*log);
}

// ---- the end ---------------------------------------------------------------------

TEST_F(RuvoTSTaskTest, CanBeFinishedOnce) {
    const auto task = make(kNoon + 10, RuvoTSTask::Daily);
    Follower follower;
    task->addDependent(follower);
    EXPECT_FALSE(task->isFinished());
    EXPECT_TRUE(task->finish());
    EXPECT_FALSE(task->finish());
    EXPECT_TRUE(task->isFinished());
    EXPECT_EQ(task->getState(), RuvoTSTask::Finished);
    EXPECT_EQ(follower.told(), Told{"-1/0"});
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 0u);
    clock_.advance(kDay);
    task->removeDependent(follower);
}

// The end of a run that was under way reaches the task; its dependents and its
// timer have been told the last.
TEST_F(RuvoTSTaskTest, DoesNotComeBackFromItsEnd) {
    const auto task = make(kNoon + 10, RuvoTSTask::Daily);
    Follower follower;
    task->addDependent(follower);
    task->setState(RuvoTSTask::Running, 0);
    EXPECT_TRUE(task->finish());
    task->setState(RuvoTSTask::Ended, 7);
    EXPECT_EQ(task->getStatus(), 7);
    task->setState(RuvoTSTask::Waiting, 0);
    task->setState(RuvoTSTask::Running, 0);
    EXPECT_EQ(task->getState(), RuvoTSTask::Ended);
    clock_.advance(3600);
    task->rescheduleTask();
    EXPECT_EQ(task->getLastRunTime(), kNoon + 3600);
    EXPECT_EQ(task->getNextTime(), kNoon + 10);
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 0u);
    EXPECT_EQ(follower.told(), (Told{"0/0", "-1/0"}));
    task->removeDependent(follower);
}

TEST_F(RuvoTSTaskTest, RetiresWithoutAWord) {
    const auto task = make(kNoon + 10, RuvoTSTask::Once);
    Follower follower;
    task->addDependent(follower);
    task->retire();
    EXPECT_EQ(task->getState(), RuvoTSTask::Waiting);
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 0u);
    task->rescheduleTask();
    EXPECT_EQ(folder_.lines().size(), 1u);  // it is in the store for the next life
    EXPECT_EQ(follower.told(), Told{});
    task->removeDependent(follower);
}

// Whenever the end comes while a run begins: it is told, and is the last change.
TEST_F(RuvoTSTaskTest, EndsWhileARunBegins) {
    for (int i = 0; i < 20; ++i) {
        const auto task = make(currentTime() + 1, RuvoTSTask::Daily);
        Follower follower;
        task->addDependent(follower);
        clock_.advance(1);
        if (i % 2 == 1) std::this_thread::yield();
        EXPECT_TRUE(task->finish());
        task->removeDependent(follower);
        EXPECT_EQ(follower.last(), "-1/0");
        open_.set().remove(task->getHandle());
    }
    EXPECT_TRUE(waitUntil([] { return RuvoTSRuns::getInstance().count() == 0; }));
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 0u);
}

TEST_F(RuvoTSTaskTest, IgnoresNotificationsOfOtherKinds) {
    const auto task = make(kNoon + 10, RuvoTSTask::Daily);
    VornSupport::VornCollaborator source;
    source.addDependent(*task);
    source.notify(VornSupport::VornNotification());
    source.notify(RuvoTSTaskNotification(1, 2, 3, 4));
    EXPECT_EQ(task->getState(), RuvoTSTask::Waiting);
    EXPECT_EQ(task->getLastRunTime(), 0);
    source.removeDependent(*task);
}

TEST_F(RuvoTSTaskTest, LogsItsNextTime) {
    const auto task = make(kNoon + 10, RuvoTSTask::Weekly);
    task->setState(RuvoTSTask::Ended, 3);
    clock_.advance(5);
    const LogCapture log(4);
    task->rescheduleTask();
    EXPECT_EQ(log.texts(4),
              (Told{"RuvoTSTask::rescheduleTask  TASK=task TIME=2024-06-15 12:00:10 UTC STATUS=3",
                    "RuvoTSTask::rescheduleTask WEEKLY  DELTATIME=604805"}));
    const LogCapture daily(4);
    make(kNoon + 10, RuvoTSTask::Daily)->rescheduleTask();
    EXPECT_TRUE(daily.has(4, "RuvoTSTask::rescheduleTask DAILY  DELTATIME=86405"));
    make(kNoon + 10, RuvoTSTask::Monthly)->rescheduleTask();
    EXPECT_TRUE(daily.has(4, "RuvoTSTask::rescheduleTask MONTHLY  DELTATIME=2419205"));
}

int draws = 0;

// Then it keeps the one that another task has.
TEST_F(RuvoTSTaskTest, DrawsAHandleAHundredTimesAtMost) {
    draws = 0;
    RuvoTSHandles::setDrawForTest([] {
        ++draws;
        return 5;
    });
    const auto first = make(kNoon + 10, RuvoTSTask::Once);
    EXPECT_EQ(draws, 1);
    draws = 0;
    const auto second = make(kNoon + 10, RuvoTSTask::Once);
    EXPECT_EQ(draws, 100);
    EXPECT_EQ(second->getHandle(), 5);
    EXPECT_EQ(open_.set().find(5), first);
    draws = 0;
    RuvoTSHandles::setDrawForTest([] { return ++draws < 100 ? 5 : 6; });
    EXPECT_EQ(make(kNoon + 10, RuvoTSTask::Once)->getHandle(), 6);
    EXPECT_EQ(draws, 100);
    RuvoTSHandles::setDrawForTest(nullptr);
}

// A busy machine may hold a start up; not each of twenty.
TEST_F(RuvoTSTaskTest, StartsARunWithoutPauses) {
    auto shortest = std::chrono::steady_clock::duration::max();
    for (int i = 0; i < 20 && shortest >= std::chrono::milliseconds(90); ++i) {
        const auto task = make(kNoon + 10, RuvoTSTask::Daily);
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(task->performTask(), 0);
        shortest = std::min(shortest, std::chrono::steady_clock::now() - begin);
        EXPECT_TRUE(waitUntil([&] { return task->getLastRunTime() != 0; }));
        EXPECT_TRUE(waitUntil([] { return RuvoTSRuns::getInstance().count() == 0; }));
        task->finish();
    }
    EXPECT_LT(shortest, std::chrono::milliseconds(90));
}

TEST_F(RuvoTSTaskTest, LogsTheRunOfATaskWithBytes) {
    const LogCapture log(9);
    const auto task = make(kNoon + 10, RuvoTSTask::Daily);
    clock_.advance(10);
    ASSERT_TRUE(awaitRun(*task, kNoon + 10));
    ASSERT_TRUE(waitUntil([&] { return log.has(9, "RuvoTSTaskThread::run exit "); }));
    ASSERT_TRUE(waitUntil([&] { return log.has(9, "RuvoTSBlobTask::performTask exit "); }));
    Told steps;
    for (const std::string& text : log.beginning("RuvoTS")) {
        if (text.find("BlobTask::") != std::string::npos &&
            text.find("performTask") == std::string::npos) {
            steps.push_back(text);
        }
    }
    EXPECT_EQ(steps, (Told{"RuvoTSTBlobTask::runtaskonsystem enter",
                           "RuvoTSBlobTask::runtaskonsystem exit  STATUS=0"}));
    EXPECT_EQ(log.count(9, "RuvoTSBlobTask::performTask "), 1u);
    EXPECT_EQ(log.count(9, "RuvoTSBlobTask::performTask exit "), 1u);
    for (const auto& record : log.records()) {
        if (record.text == "RuvoTSTBlobTask::runtaskonsystem enter") {
            EXPECT_EQ(record.thread, "RuvoTSTaskThread");
        }
    }
}

TEST_F(RuvoTSTaskTest, HasAHandleThatNoLiveTaskHas) {
    std::vector<RuvoTSTaskSet::Task> tasks;
    for (int i = 0; i < 200; ++i) {
        auto task = make(kNoon + 10, RuvoTSTask::Once, false);
        EXPECT_EQ(open_.set().find(task->getHandle()), nullptr);
        open_.set().insert(task, false);
        tasks.push_back(task);
    }
    for (const auto& task : tasks) EXPECT_EQ(open_.set().find(task->getHandle()), task);
}

}  // namespace
