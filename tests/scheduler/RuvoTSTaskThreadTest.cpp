#include "scheduler/RuvoTSTaskThread.h"

#include "scheduler/RuvoTSNotifications.h"
#include "scheduler/RuvoTSTask.h"
#include "tests/scheduler/SchedulerTestTools.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace RuvoService;
using TestSupport::kNoon;

namespace {

constexpr int kPatienceMs = 20'000;

// A task whose work is what the test says.
class WorkTask final : public RuvoTSTask {
public:
    using Work = std::function<std::optional<std::int32_t>()>;

    explicit WorkTask(Work work) : RuvoTSTask("work", kNoon + 10, Daily), work_(std::move(work)) {}

    std::string serialize() const override { return ""; }
    int performTask() override { return 0; }
    std::optional<std::int32_t> runtaskonsystem() override { return work_(); }
    void rescheduleTask() override { ++rescheduled; }
    std::string_view kind() const override { return "WorkTask"; }

    std::atomic<int> rescheduled{0};

private:
    const Work work_;
};

using Thread = VornSupport::VornSmartPointer<RuvoTSTaskThread>;
using Task = VornSupport::VornSmartPointer<WorkTask>;

class States : public VornSupport::VornDependent {
public:
    void handleNotification(VornSupport::VornCollaborator&,
                            const VornSupport::VornNotification& notification) override {
        const auto& told = dynamic_cast<const RuvoTSTaskNotification&>(notification);
        const std::lock_guard lock(mutex_);
        seen_.push_back(told.getState() * 1000 + told.getStatus());
        inOrder_.emplace(told.getChange(), seen_.back());
    }
    std::vector<int> seen() const {
        const std::lock_guard lock(mutex_);
        return seen_;
    }
    // As the changes were made. Two threads may tell theirs the other way round.
    std::vector<int> inOrder() const {
        const std::lock_guard lock(mutex_);
        std::vector<int> states;
        for (const auto& [change, state] : inOrder_) states.push_back(state);
        return states;
    }

private:
    mutable std::mutex mutex_;
    std::vector<int> seen_;
    std::multimap<std::uint64_t, int> inOrder_;
};

class RuvoTSTaskThreadTest : public testing::Test {
protected:
    ~RuvoTSTaskThreadTest() override {
        if (task_) {
            task_->retire();
            task_->removeDependent(states_);
        }
    }

    // Runs the work on a thread as performTask does, to the thread's end.
    int run(WorkTask::Work work, Thread thread = VornSupport::makeCounted<RuvoTSTaskThread>()) {
        prepare(std::move(work));
        return start(thread);
    }
    void prepare(WorkTask::Work work) {
        task_ = RuvoTSTask::make<WorkTask>(std::move(work));
        task_->addDependent(states_);
    }
    int start(const Thread& thread) {
        thread->setTask(task_);
        thread->addDependent(*task_);
        EXPECT_TRUE(thread->start());
        EXPECT_TRUE(thread->wait(kPatienceMs));
        EXPECT_EQ(RuvoTSRuns::getInstance().count(), 0);
        return thread->getExitCode();
    }

    TestSupport::TestClock clock_;
    TestSupport::OpenTaskSet open_;
    States states_;
    Task task_;
};

TEST_F(RuvoTSTaskThreadTest, PassesThroughTheStates) {
    EXPECT_EQ(run([] { return 42; }), 42);
    EXPECT_EQ(states_.seen(), (std::vector<int>{0, 1042}));
    EXPECT_EQ(task_->rescheduled, 1);
    EXPECT_EQ(task_->getStatus(), 42);
}

class Ends : public VornSupport::VornDependent {
public:
    void handleNotification(VornSupport::VornCollaborator&,
                            const VornSupport::VornNotification& notification) override {
        const auto& done = dynamic_cast<const RuvoTSThreadDone&>(notification);
        tasks.push_back(&done.getTask());
        statuses.push_back(done.getExitStatus());
    }
    std::vector<const RuvoTSTask*> tasks;
    std::vector<std::int32_t> statuses;
};

TEST_F(RuvoTSTaskThreadTest, TellsWhoseRunIsOverAndHow) {
    Ends ends;
    const auto thread = VornSupport::makeCounted<RuvoTSTaskThread>();
    thread->addDependent(ends);
    EXPECT_EQ(run([] { return 42; }, thread), 42);
    thread->removeDependent(ends);
    EXPECT_EQ(ends.tasks, std::vector<const RuvoTSTask*>{task_.get()});
    EXPECT_EQ(ends.statuses, std::vector<std::int32_t>{42});
}

TEST_F(RuvoTSTaskThreadTest, IsNamedAfterTheTask) {
    EXPECT_EQ(RuvoTSTaskThread().getName(), "RuvoTSTaskThread");
    EXPECT_EQ(RuvoTSTaskThread("nightly").getName(), "nightly");
    const std::string longName(1 << 20, 'n');
    EXPECT_EQ(run([] { return 0; }, VornSupport::makeCounted<RuvoTSTaskThread>(longName)), 0);
    const std::string withZero("a\0b", 3);
    EXPECT_EQ(run([] { return 0; }, VornSupport::makeCounted<RuvoTSTaskThread>(withZero)), 0);
}

TEST_F(RuvoTSTaskThreadTest, DoesNotRunATaskThatIsFinished) {
    bool worked = false;
    prepare([&] {
        worked = true;
        return 0;
    });
    task_->finish();
    EXPECT_EQ(start(VornSupport::makeCounted<RuvoTSTaskThread>()), -999);
    EXPECT_FALSE(worked);
    EXPECT_EQ(states_.seen(), std::vector<int>{-1000});
    EXPECT_EQ(task_->rescheduled, 0);
    EXPECT_EQ(task_->getLastRunTime(), 0);
}

// A cancel that is answered after the run's last pause: there is no run.
TEST_F(RuvoTSTaskThreadTest, DoesNotRunATaskThatIsFinishedAtTheLastMoment) {
    RuvoTSTaskThread::setBeforeRunForTest([](RuvoTSTask& task) { EXPECT_TRUE(task.finish()); });
    bool worked = false;
    EXPECT_EQ(run([&] {
                  worked = true;
                  return 0;
              }),
              -999);
    RuvoTSTaskThread::setBeforeRunForTest(nullptr);
    EXPECT_FALSE(worked);
    EXPECT_EQ(states_.seen(), std::vector<int>{-1000});
    EXPECT_EQ(task_->rescheduled, 0);
}

// Whenever a cancel comes: the command runs if, and only if, that was told.
TEST_F(RuvoTSTaskThreadTest, RunsWhatItSaysItRuns) {
    struct One {
        Task task;
        Thread thread;
        States states;
        std::atomic<bool> worked{false};
    };
    std::vector<std::unique_ptr<One>> all;
    for (int i = 0; i < 60; ++i) {
        auto one = std::make_unique<One>();
        one->task = RuvoTSTask::make<WorkTask>([&worked = one->worked] {
            worked = true;
            return 0;
        });
        one->task->addDependent(one->states);
        one->thread = VornSupport::makeCounted<RuvoTSTaskThread>();
        one->thread->setTask(one->task);
        one->thread->addDependent(*one->task);
        all.push_back(std::move(one));
    }
    for (const auto& one : all) EXPECT_TRUE(one->thread->start());
    EXPECT_TRUE(RuvoTSRuns::getInstance().pause(99));
    for (const auto& one : all) EXPECT_TRUE(one->task->finish());
    for (const auto& one : all) {
        EXPECT_TRUE(one->thread->wait(kPatienceMs));
        const std::vector<int> didNotRun{-1000};
        const std::vector<int> ran{0, -1000};
        const std::vector<int> ranBefore{0, 1000, -1000};
        const auto told = one->states.inOrder();
        EXPECT_EQ(one->worked, told != didNotRun) << testing::PrintToString(told);
        EXPECT_TRUE(told == didNotRun || told == ran || told == ranBefore)
            << testing::PrintToString(told);
        one->task->removeDependent(one->states);
    }
}

// The command goes on, its end still reaches the task, and nobody is told.
TEST_F(RuvoTSTaskThreadTest, EndsARunWhoseTaskWasCancelledMeanwhile) {
    EXPECT_EQ(run([&] {
                  EXPECT_TRUE(task_->finish());
                  return 5;
              }),
              5);
    EXPECT_EQ(states_.seen(), (std::vector<int>{0, -1000}));
    EXPECT_EQ(task_->getStatus(), 5);
    EXPECT_EQ(task_->rescheduled, 1);
}

TEST_F(RuvoTSTaskThreadTest, LetsGoWhenTheServiceStops) {
    EXPECT_EQ(run([] { return std::optional<std::int32_t>(); },
                  VornSupport::makeCounted<RuvoTSTaskThread>("exec")),
              -9999);
    EXPECT_EQ(states_.seen(), std::vector<int>{0});
    EXPECT_EQ(task_->rescheduled, 0);
}

TEST_F(RuvoTSTaskThreadTest, DoesNotBeginWhenTheServiceStops) {
    prepare([] { return 0; });
    EXPECT_TRUE(RuvoTSRuns::getInstance().stop(0));
    EXPECT_EQ(start(VornSupport::makeCounted<RuvoTSTaskThread>()), -999);
    EXPECT_EQ(states_.seen(), std::vector<int>{});
    EXPECT_EQ(task_->rescheduled, 0);
}

TEST_F(RuvoTSTaskThreadTest, GivesTheTaskItsNextTurnAfterAnException) {
    EXPECT_EQ(run([]() -> std::optional<std::int32_t> { throw std::runtime_error("no memory"); },
                  VornSupport::makeCounted<RuvoTSTaskThread>("exec")),
              -9999);
    EXPECT_EQ(states_.seen(), (std::vector<int>{0, 1000 - 9999}));
    EXPECT_EQ(task_->rescheduled, 1);
}

TEST_F(RuvoTSTaskThreadTest, HoldsTheTaskWhileItRuns) {
    auto task = RuvoTSTask::make<WorkTask>([] { return 0; });
    task->retire();  // its timer lets go of it
    WorkTask* const raw = task.get();
    auto thread = VornSupport::makeCounted<RuvoTSTaskThread>();
    thread->setTask(task);
    EXPECT_EQ(RuvoTSRuns::getInstance().count(), 1);
    thread->setTask(nullptr);
    EXPECT_EQ(RuvoTSRuns::getInstance().count(), 0);
    EXPECT_EQ(raw->refCount(), 1u);
    thread->setTask(task);
    EXPECT_EQ(raw->refCount(), 2u);
    thread = nullptr;
    EXPECT_EQ(raw->refCount(), 1u);
    EXPECT_EQ(RuvoTSRuns::getInstance().count(), 0);
}

// ---- runs under way --------------------------------------------------------------

TEST(RuvoTSRuns, CountsWhatIsUnderWay) {
    RuvoTSRuns& runs = RuvoTSRuns::getInstance();
    runs.open();
    EXPECT_EQ(runs.count(), 0);
    {
        RuvoTSRuns::Token first = runs.begin();
        EXPECT_TRUE(first);
        RuvoTSRuns::Token second = std::move(first);
        EXPECT_TRUE(second);
        EXPECT_EQ(runs.count(), 1);
        second = runs.begin();
        EXPECT_EQ(runs.count(), 1);  // the old one has gone with the temporary
    }
    EXPECT_EQ(runs.count(), 0);
}

TEST(RuvoTSRuns, StopsPausesAndBeginnings) {
    RuvoTSRuns& runs = RuvoTSRuns::getInstance();
    runs.open();
    EXPECT_TRUE(runs.pause(1));
    {
        const auto token = runs.begin();
        EXPECT_FALSE(runs.stop(1));
    }
    EXPECT_TRUE(runs.stop(0));
    EXPECT_FALSE(runs.pause(kPatienceMs));
    EXPECT_FALSE(runs.begin());
    EXPECT_EQ(runs.count(), 0);
    runs.open();
    EXPECT_TRUE(runs.begin());
    EXPECT_TRUE(runs.pause(0));
}

TEST(RuvoTSRuns, StopsAPauseThatIsUnderWay) {
    RuvoTSRuns& runs = RuvoTSRuns::getInstance();
    runs.open();
    std::atomic<bool> begun{false};
    std::thread run([&] {
        const auto token = runs.begin();
        begun = true;
        EXPECT_FALSE(runs.pause(30 * kPatienceMs));
    });
    EXPECT_TRUE(TestSupport::waitUntil([&] { return begun.load(); }));
    EXPECT_TRUE(runs.stop(kPatienceMs));
    run.join();
    runs.open();
}

}  // namespace
