// What becomes of tasks that run when the service stops.

#include "runtime/support/VornThread.h"
#include "scheduler/RuvoTSRuns.h"
#include "scheduler/RuvoTSTaskThread.h"
#include "scheduler/RuvoTSTime.h"
#include "scheduler/RuvoTSTimeKeeper.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/ChildMain.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <vector>

using namespace RuvoService;
using TestSupport::exists;
using TestSupport::inQuotes;
using TestSupport::kNoon;
using TestSupport::OpenScheduler;
using TestSupport::waitUntil;

namespace {

class RuvoTSStopTest : public testing::Test {
protected:
    RuvoTSStopTest() { TestSupport::provideCommandInterpreter(); }

    std::string fileArgument(std::string_view name) const { return inQuotes(work_.file(name)); }
    static RuvoTSTaskSet::Task task(const std::string& name) {
        return RuvoTSTaskSet::getInstance().find(name);
    }
    // A command that says that it runs and waits for a word before it says that
    // it is done. Its two halves are children of this program.
    std::int32_t scheduleWaiting(std::uint32_t frequency) const {
        const std::string command = TestSupport::childCommand(
            "tell " + fileArgument("running") + " " + fileArgument("go") + " " +
            fileArgument("done"));
        return OpenScheduler::schedule("waits", command, "", kNoon + 10, frequency);
    }

    TestSupport::TemporaryDirectory work_;
    TestSupport::StoreFolder folder_;
    TestSupport::TestClock clock_;
    OpenScheduler scheduler_;
};

TEST_F(RuvoTSStopTest, LetsTheCommandRunOn) {
    scheduleWaiting(0);
    clock_.advance(10);
    ASSERT_TRUE(waitUntil([&] { return exists(work_.file("running")); }));
    EXPECT_EQ(task("waits")->getState(), RuvoTSTask::Running);

    const TestSupport::LogCapture log(3);
    scheduler_.stop();
    // Let go of, not waited for in vain and left behind.
    EXPECT_EQ(RuvoTSRuns::getInstance().count(), 0);
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 0u);
    EXPECT_TRUE(log.has(3, "RuvoTSExecTask::runtaskonsystem: the service stops, the command of "
                           "waits goes on"));
    // No thread of ours waits for it.
    EXPECT_TRUE(waitUntil([] { return VornSupport::VornThread::liveCount() == 1; }));

    EXPECT_FALSE(exists(work_.file("done")));
    TestSupport::writeFile(work_.file("go"), "");
    EXPECT_TRUE(waitUntil([&] { return exists(work_.file("done")); }));
}

// A cancel ends no command either. Its end still reaches the task, which is not
// armed any more, and its batch file goes.
TEST_F(RuvoTSStopTest, ACancelLetsTheCommandRunOn) {
    const auto batchFiles = [&] {
        int count = 0;
        for (const auto& entry :
             std::filesystem::directory_iterator(TestSupport::toPath(folder_.text()))) {
            if (entry.path().extension() == ".bat") ++count;
        }
        return count;
    };
    const std::int32_t handle = scheduleWaiting(0);
    const auto cancelled = task("waits");
    clock_.advance(10);
    ASSERT_TRUE(waitUntil([&] { return exists(work_.file("running")); }));
    EXPECT_EQ(batchFiles(), 1);
    EXPECT_EQ(OpenScheduler::ask("RUVO_TS_CANCEL", handle),
              std::vector<std::string>{"int " + std::to_string(handle)});
    EXPECT_EQ(folder_.lines().size(), 0u);
    EXPECT_EQ(OpenScheduler::ask("RUVO_TS_TASK_STATE", handle),
              std::vector<std::string>{"int -9"});
    EXPECT_TRUE(scheduler_.events().awaitStates(handle, {2, 0, -1}));
    EXPECT_EQ(RuvoTSRuns::getInstance().count(), 1);
    EXPECT_FALSE(exists(work_.file("done")));

    TestSupport::writeFile(work_.file("go"), "");
    EXPECT_TRUE(waitUntil([&] { return exists(work_.file("done")); }));
    EXPECT_TRUE(scheduler_.events().awaitStates(handle, {2, 0, -1, 1}));
    EXPECT_TRUE(waitUntil([] { return RuvoTSRuns::getInstance().count() == 0; }));
    EXPECT_EQ(cancelled->getStatus(), 0);
    EXPECT_EQ(cancelled->getLastRunTime(), kNoon + 10);
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 0u);
    EXPECT_EQ(batchFiles(), 0);
    EXPECT_EQ(scheduler_.events().statesOf(handle), (std::vector<int>{2, 0, -1, 1}));
}

// It is in the store still, so the next life runs it two minutes after its start.
TEST_F(RuvoTSStopTest, KeepsATaskWhoseRunDidNotEnd) {
    scheduleWaiting(RuvoTSTask::Once);
    clock_.advance(10);
    ASSERT_TRUE(waitUntil([&] { return exists(work_.file("running")); }));
    scheduler_.stop();
    EXPECT_EQ(folder_.lines().size(), 1u);
    TestSupport::writeFile(work_.file("go"), "");
    ASSERT_TRUE(waitUntil([&] { return exists(work_.file("done")); }));
    EXPECT_EQ(folder_.lines().size(), 1u);
    scheduler_.start();
    ASSERT_TRUE(task("waits"));
    EXPECT_EQ(task("waits")->getState(), RuvoTSTask::Waiting);
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 1u);
}

TEST_F(RuvoTSStopTest, DoesNotWaitForPauses) {
    const TestSupport::LogCapture log(9);
    for (int i = 0; i < 50; ++i) {
        OpenScheduler::schedule(std::to_string(i), "exit", "0", kNoon + 10, 0);
    }
    clock_.advance(10);
    ASSERT_TRUE(waitUntil([&] { return !log.beginning("RuvoTSExecTask::performTask").empty(); }));
    scheduler_.stop();
    EXPECT_EQ(RuvoTSRuns::getInstance().count(), 0);
    EXPECT_EQ(folder_.lines().size(), 50u);
    EXPECT_TRUE(waitUntil([] { return VornSupport::VornThread::liveCount() == 1; }));
}

// What a run does when it is about to begin.
std::atomic<bool> isAboutToRun{false};
std::atomic<bool> isHeld{false};

void untilTheServiceStops(RuvoTSTask&) {
    isAboutToRun = true;
    if (!isHeld) return;
    EXPECT_TRUE(waitUntil([] { return !RuvoTSRuns::getInstance().begin(); }));
}

// A daily task that ends while the service stops is not armed again: whether the
// stop comes when the task is due, when its run begins, or before its end.
TEST_F(RuvoTSStopTest, ArmsNothingAfterwards) {
    RuvoTSTaskThread::setBeforeRunForTest(untilTheServiceStops);
    for (int life = 0; life < 12; ++life) {
        isAboutToRun = false;
        isHeld = life % 3 == 2;
        OpenScheduler::scheduleBlob("daily" + std::to_string(life), "", currentTime() + 10, 0);
        clock_.advance(10);
        if (life % 3 != 0) {
            ASSERT_TRUE(waitUntil([] { return isAboutToRun.load(); })) << life;
        }
        scheduler_.stop();
        EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 0u);
        clock_.advance(86400);
        EXPECT_EQ(RuvoTSRuns::getInstance().count(), 0);
        scheduler_.start();
    }
    RuvoTSTaskThread::setBeforeRunForTest(nullptr);
}

}  // namespace
