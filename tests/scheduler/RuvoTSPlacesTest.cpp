// The places and the line of a shortage, with tasks that do not run by themselves.

#include "scheduler/RuvoTSBlobTask.h"
#include "scheduler/RuvoTSExecTask.h"
#include "scheduler/RuvoTSRuns.h"
#include "scheduler/RuvoTSTimeKeeper.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/ChildMain.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

using namespace RuvoService;
using TestSupport::kNoon;
using TestSupport::LogCapture;
using TestSupport::waitUntil;

namespace {

constexpr auto kLong = std::chrono::milliseconds(500);

class RuvoTSPlacesTest : public testing::Test {
protected:
    using Task = RuvoTSTaskSet::Task;

    RuvoTSPlacesTest() { TestSupport::provideCommandInterpreter(); }
    ~RuvoTSPlacesTest() override {
        EXPECT_EQ(runs_.lineForTest(), 0u);
        EXPECT_FALSE(runs_.isShort());
    }

    static Task make() {
        return RuvoTSTask::make<RuvoTSBlobTask>("blob", kNoon + 10, RuvoTSTask::Daily, "");
    }
    // The task is the first that is refused a thread.
    void refuse(const Task& task) {
        ASSERT_TRUE(runs_.takePlace(*task));
        runs_.noteShortage(*task, {});
        runs_.leavePlace(*task, false);
    }
    std::size_t ends() const { return log_.beginning("RuvoTSRuns: tasks run again").size(); }

    TestSupport::StoreFolder folder_;
    TestSupport::TestClock clock_;
    TestSupport::OpenTaskSet open_;
    const LogCapture log_{2};
    RuvoTSRuns& runs_ = RuvoTSRuns::getInstance();
};

// Its cancel came in between: there was no line yet to leave.
TEST_F(RuvoTSPlacesTest, KeepsNoTaskInLineThatIsFinishedAlready) {
    const Task task = make();
    ASSERT_TRUE(runs_.takePlace(*task));
    EXPECT_TRUE(task->finish());
    task->postponeRun({});
    EXPECT_EQ(runs_.lineForTest(), 0u);
    EXPECT_EQ(task->refCount(), 1u);
    EXPECT_EQ(ends(), 1u);
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 0u);
}

TEST_F(RuvoTSPlacesTest, KeepsNoTaskInLineThatIsRetired) {
    const Task refused = make();
    const Task other = make();
    refuse(refused);
    ASSERT_TRUE(runs_.takePlace(*other));
    refused->retire();
    EXPECT_EQ(runs_.lineForTest(), 0u);
    EXPECT_EQ(refused->refCount(), 1u);
    EXPECT_EQ(ends(), 0u);
    other->retire();
    runs_.leavePlace(*other, false);
    EXPECT_EQ(ends(), 1u);
}

// Who had the last place was cancelled in one of its pauses, and nobody waits.
TEST_F(RuvoTSPlacesTest, EndsTheShortageWithTheLastPlaceWhoeverHadIt) {
    const Task refused = make();
    const Task other = make();
    refuse(refused);
    ASSERT_TRUE(runs_.takePlace(*other));
    refused->finish();
    EXPECT_EQ(ends(), 0u);
    other->finish();
    runs_.leavePlace(*other, false);
    EXPECT_EQ(ends(), 1u);
}

// Their second was just over when they were called: they are on their way.
TEST_F(RuvoTSPlacesTest, GoesOnWhileThoseThatWereCalledHaveNotCome) {
    const Task first = make();
    const Task others[] = {make(), make(), make()};
    refuse(first);
    ASSERT_TRUE(runs_.takePlace(*others[0]));
    for (const Task& task : {others[1], others[2]}) EXPECT_FALSE(runs_.takePlace(*task));
    EXPECT_EQ(runs_.lineForTest(), 3u);
    runs_.leavePlace(*others[0], true);  // calls all: no timer waits
    EXPECT_EQ(runs_.lineForTest(), 0u);
    EXPECT_EQ(ends(), 0u);
    ASSERT_TRUE(runs_.takePlace(*first));
    ASSERT_TRUE(runs_.takePlace(*others[1]));
    EXPECT_FALSE(runs_.takePlace(*others[2])) << "two at once by now";
    EXPECT_EQ(runs_.lineForTest(), 1u);
    runs_.leavePlace(*first, true);
    EXPECT_TRUE(runs_.isCalled(*others[2]));
    runs_.leavePlace(*others[1], true);
    EXPECT_EQ(ends(), 0u);
    ASSERT_TRUE(runs_.takePlace(*others[2]));
    EXPECT_FALSE(runs_.isCalled(*others[2]));
    runs_.leavePlace(*others[2], true);
    EXPECT_EQ(ends(), 1u);
    for (const Task& task : others) task->finish();
    first->finish();
}

TEST_F(RuvoTSPlacesTest, EndsTheShortageWhenThoseThatWereCalledAreCancelled) {
    const Task first = make();
    const Task other = make();
    refuse(first);
    ASSERT_TRUE(runs_.takePlace(*other));
    runs_.leavePlace(*other, true);
    EXPECT_TRUE(runs_.isCalled(*first));
    EXPECT_EQ(ends(), 0u);
    first->finish();
    EXPECT_EQ(ends(), 1u);
    other->finish();
}

// The end of a try that was refused and the beginning of the next one may both look.
TEST_F(RuvoTSPlacesTest, StaysCalledUntilItComes) {
    const Task first = make();
    const Task other = make();
    refuse(first);
    ASSERT_TRUE(runs_.takePlace(*other));
    runs_.leavePlace(*other, true);
    EXPECT_TRUE(runs_.isCalled(*first));
    EXPECT_TRUE(runs_.isCalled(*first));
    first->retryRun();  // at once: no time passes
    EXPECT_TRUE(waitUntil([&] { return first->getLastRunTime() != 0; }));
    EXPECT_FALSE(runs_.isCalled(*first));
    EXPECT_TRUE(waitUntil([&] { return ends() == 1u; }));
    EXPECT_TRUE(waitUntil([&] { return runs_.count() == 0; }));
    first->finish();
    other->finish();
}

// By its own timer, nobody having called it: or it would be called when it has run.
TEST_F(RuvoTSPlacesTest, TakesATaskThatHasAPlaceOutOfLine) {
    const Task first = make();
    refuse(first);
    EXPECT_EQ(runs_.lineForTest(), 1u);
    ASSERT_TRUE(runs_.takePlace(*first));
    EXPECT_EQ(runs_.lineForTest(), 0u);
    runs_.leavePlace(*first, true);
    EXPECT_EQ(ends(), 1u);
    EXPECT_FALSE(runs_.isCalled(*first));
    first->finish();
}

// Somebody is always on the way, and all get what they need.
TEST_F(RuvoTSPlacesTest, EndsTheShortageThoughRunsOverlap) {
    const Task tasks[] = {make(), make()};
    refuse(tasks[0]);
    ASSERT_TRUE(runs_.takePlace(*tasks[0]));
    EXPECT_FALSE(runs_.takePlace(*tasks[1]));
    runs_.leavePlace(*tasks[0], true);
    ASSERT_TRUE(runs_.takePlace(*tasks[1]));
    int runs = 0;
    for (; runs_.isShort() && runs < 100; ++runs) {
        ASSERT_TRUE(runs_.takePlace(*tasks[runs % 2]));
        EXPECT_EQ(runs_.placesForTest(), 2);
        runs_.leavePlace(*tasks[(runs + 1) % 2], true);
    }
    EXPECT_GT(runs, 2) << "not by the first that was well";
    EXPECT_LT(runs, 20);
    EXPECT_EQ(runs_.placesForTest(), 1);
    EXPECT_EQ(ends(), 1u);
    for (const Task& task : tasks) {
        runs_.leavePlace(*task, true);
        task->finish();
    }
    EXPECT_EQ(ends(), 1u);
}

// Somebody waits: what they may need is not there yet for sure.
TEST_F(RuvoTSPlacesTest, GoesOnWhileSomebodyWaitsHoweverManyGetWhatTheyNeed) {
    const Task waiting = make();
    const Task other = make();
    refuse(waiting);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(runs_.takePlace(*other));
        runs_.leavePlace(*other, true);
    }
    EXPECT_TRUE(runs_.isShort());
    EXPECT_EQ(ends(), 0u);
    waiting->finish();
    EXPECT_EQ(ends(), 1u);
    other->finish();
}

// Thousands have run since the last refusal, but never so many at once.
TEST_F(RuvoTSPlacesTest, HoldsBackHalfOfThoseOnTheirWayHoweverManyRanBefore) {
    constexpr std::size_t kMany = 300;
    const Task waiting = make();
    refuse(waiting);
    const Task other = make();
    for (int i = 0; i < 20'000; ++i) {
        ASSERT_TRUE(runs_.takePlace(*other));
        runs_.leavePlace(*other, true);
    }
    std::vector<Task> tasks;
    for (std::size_t i = 0; i < kMany; ++i) {
        tasks.push_back(make());
        ASSERT_TRUE(runs_.takePlace(*tasks.back()));
    }
    std::vector<Task> begun = tasks;
    for (std::size_t expected = kMany / 2; expected > 0; expected /= 2) {
        for (const Task& task : begun) {
            runs_.noteShortage(*task, {});
            runs_.leavePlace(*task, false);
        }
        begun.clear();
        for (const Task& task : tasks) {
            if (runs_.takePlace(*task)) begun.push_back(task);
        }
        EXPECT_EQ(begun.size(), expected);
    }
    for (const Task& task : tasks) {
        runs_.leavePlace(*task, false);
        task->finish();
    }
    waiting->finish();
    other->finish();
}

// ---- commands --------------------------------------------------------------------

// Works on a thread of its own until it is told to end.
class Worker {
public:
    Worker(RuvoTSRuns& runs, const std::string& folder)
        : go_(folder + "/go"),
          task_(RuvoTSTask::make<RuvoTSExecTask>(
              "worker", kNoon + 10, RuvoTSTask::Daily,
              TestSupport::childCommand("until " + TestSupport::inQuotes(go_)), "", "", "")) {
        EXPECT_TRUE(runs.takePlace(*task_));
        thread_ = std::thread([this] {
            status_ = task_->runtaskonsystem().value_or(-12345);
            task_->leavePlace(true);
        });
    }
    ~Worker() {
        end();
        thread_.join();
        EXPECT_EQ(status_, 0);
        task_->finish();
    }
    void end() { TestSupport::writeFile(go_, ""); }

private:
    const std::string go_;
    const RuvoTSTaskSet::Task task_;
    std::atomic<std::int32_t> status_{-1};
    std::thread thread_;
};

class Moment {
public:
    explicit Moment(int ms) { RuvoTSExecTask::setMomentForTest(ms); }
    ~Moment() { RuvoTSExecTask::setMomentForTest(200); }
};

// It has begun, and needs processes of its own.
TEST_F(RuvoTSPlacesTest, KeepsTheNextWaitingWhileACommandIsYoung) {
    const Moment moment(60'000);
    const Task next = make();
    refuse(next);
    Worker worker(runs_, folder_.text());
    EXPECT_FALSE(waitUntil([&] { return runs_.isCalled(*next); }, kLong));
    worker.end();
    EXPECT_TRUE(waitUntil([&] { return runs_.isCalled(*next); }));
    next->finish();
}

TEST_F(RuvoTSPlacesTest, CallsTheNextWhenACommandHasLivedForAMoment) {
    const Task next = make();
    refuse(next);
    const Worker worker(runs_, folder_.text());
    EXPECT_TRUE(waitUntil([&] { return runs_.isCalled(*next); }));
    next->finish();
}

TEST_F(RuvoTSPlacesTest, KeepsNoPlaceForACommandWithoutAShortage) {
    const Moment moment(60'000);
    const Worker worker(runs_, folder_.text());
    EXPECT_TRUE(waitUntil([&] { return runs_.placesForTest() == 0; }));
}

}  // namespace
