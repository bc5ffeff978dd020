// Where the system can be asked for a thread that it does not have.

#include "scheduler/RuvoTSExecTask.h"
#include "scheduler/RuvoTSNotifications.h"
#include "scheduler/RuvoTSRuns.h"
#include "scheduler/RuvoTSTask.h"
#include "scheduler/RuvoTSTaskThread.h"
#include "scheduler/RuvoTSTimeKeeper.h"
#include "tests/runtime/platform/NativeProbe.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

using namespace RuvoService;
using TestSupport::kNoon;
using TestSupport::LogCapture;
using TestSupport::waitUntil;

namespace {

constexpr std::int32_t kDay = 86400;

// A task whose first thread the system refuses.
class RefusedTask final : public RuvoTSTask {
public:
    RefusedTask() : RuvoTSTask("refused", kNoon + 10, Daily) {}
    std::string serialize() const override { return ""; }
    int performTask() override {
        const auto thread = VornSupport::makeCounted<RuvoTSTaskThread>();
        enlist(*thread);
        if (++attempts == 1) thread->setStackSize(NativeProbe::impossibleStack());
        launch(*thread);
        return 0;
    }
    std::optional<std::int32_t> runtaskonsystem() override { return 3; }
    std::string_view kind() const override { return "RefusedTask"; }
    std::atomic<int> attempts{0};
};

constexpr int kThreads = 3;
std::atomic<int> threadsInUse{0};

// Of these no more than kThreads find a thread at once.
class CrowdTask final : public RuvoTSTask {
public:
    CrowdTask() : RuvoTSTask("crowd", kNoon + 10, 7) {}
    std::string serialize() const override { return ""; }
    int performTask() override {
        const auto thread = VornSupport::makeCounted<RuvoTSTaskThread>();
        enlist(*thread);
        if (++threadsInUse > kThreads) {
            thread->setStackSize(NativeProbe::impossibleStack());
            --threadsInUse;
        }
        launch(*thread);
        return 0;
    }
    std::optional<std::int32_t> runtaskonsystem() override {
        --threadsInUse;
        return ++runs;
    }
    std::string_view kind() const override { return "CrowdTask"; }
    std::atomic<int> runs{0};
};

}  // namespace

TEST(RuvoTSTaskPosix, TriesAgainWhenThereIsNoThread) {
    const TestSupport::StoreFolder folder;
    TestSupport::TestClock clock;
    TestSupport::OpenTaskSet open;
    const LogCapture log(2);
    const auto task = RuvoTSTask::make<RefusedTask>();
    clock.advance(10);
    EXPECT_TRUE(waitUntil([&] {
        return task->attempts == 1 && RuvoTSTimeKeeper::getInstance().waiting() == 1;
    }));
    EXPECT_TRUE(waitUntil([] { return RuvoTSRuns::getInstance().count() == 0; }));
    EXPECT_EQ(task->getState(), RuvoTSTask::Waiting);
    EXPECT_EQ(task->getStatus(), -999);
    EXPECT_EQ(log.beginning("RuvoTSRuns: the system is short of means to run tasks").size(), 1u);
    clock.advance(1);
    EXPECT_TRUE(waitUntil([&] { return task->getLastRunTime() == kNoon + 11; }));
    EXPECT_TRUE(waitUntil([&] { return task->getState() == RuvoTSTask::Waiting; }));
    EXPECT_EQ(task->attempts, 2);
    EXPECT_EQ(task->getStatus(), 3);
    EXPECT_EQ(task->getNextTime(), kNoon + 10 + kDay);
    task->finish();
}

// No time passes: who was refused goes on when another one has ended.
TEST(RuvoTSTaskPosix, TakesTurnsWhileThreadsAreShort) {
    const TestSupport::StoreFolder folder;
    TestSupport::TestClock clock;
    TestSupport::OpenTaskSet open;
    const LogCapture log(2);
    std::vector<VornSupport::VornSmartPointer<CrowdTask>> tasks;
    for (int i = 0; i < 20; ++i) tasks.push_back(RuvoTSTask::make<CrowdTask>());
    clock.advance(10);
    for (const auto& task : tasks) {
        EXPECT_TRUE(waitUntil([&] { return task->getState() == RuvoTSTask::Ended; }));
    }
    EXPECT_TRUE(waitUntil([] { return RuvoTSRuns::getInstance().count() == 0; }));
    for (const auto& task : tasks) EXPECT_EQ(task->runs, 1);
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 0u);
    const auto begun =
        log.beginning("RuvoTSRuns: the system is short of means to run tasks").size();
    EXPECT_GE(begun, 1u);
    EXPECT_EQ(log.beginning("RuvoTSRuns: tasks run again").size(), begun);
    for (const auto& task : tasks) task->finish();
}

// Commands that work for hours have what they need.
TEST(RuvoTSTaskPosix, LetsOthersBeginWhileCommandsWork) {
    const TestSupport::StoreFolder folder;
    const TestSupport::TemporaryDirectory directory;
    TestSupport::TestClock clock;
    TestSupport::OpenTaskSet open;
    const std::string goOn = directory.file("go on");
    const auto command = [&](const std::string& name, std::int32_t due,
                             const std::string& script) {
        return RuvoTSTask::make<RuvoTSExecTask>(name, kNoon + due, RuvoTSTask::Daily, "sh", "",
                                                "-c '" + script + "'", directory.file(name));
    };
    std::vector<VornSupport::VornSmartPointer<RuvoTSExecTask>> long_;
    for (int i = 0; i < 3; ++i) {
        long_.push_back(command("long" + std::to_string(i), 10,
                                "echo begun; until test -e \"" + goOn +
                                    "\"; do sleep 0.05; done"));
    }
    clock.advance(10);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(waitUntil([&] {
            return TestSupport::readFile(directory.file("long" + std::to_string(i))) == "begun\n";
        }));
    }
    RuvoTSRuns& runs = RuvoTSRuns::getInstance();
    const auto refused = command("refused", 100'000, "true");
    ASSERT_TRUE(runs.takePlace(*refused));
    runs.noteShortage(*refused, {});
    runs.leavePlace(*refused, false);
    const auto next = command("next", 20, "true");
    clock.advance(10);
    EXPECT_TRUE(waitUntil([&] { return next->getLastRunTime() != 0; }))
        << "while " << runs.count() << " work";
    EXPECT_EQ(next->getStatus(), 0);
    TestSupport::writeFile(goOn, "");
    for (const auto& task : long_) {
        EXPECT_TRUE(waitUntil([&] { return task->getLastRunTime() != 0; }));
        task->finish();
    }
    EXPECT_TRUE(waitUntil([&] { return runs.count() == 0; }));
    refused->finish();
    next->finish();
}

TEST(RuvoTSTaskPosix, EndsTheShortageWhenThoseInLineAreCancelled) {
    const TestSupport::StoreFolder folder;
    TestSupport::TestClock clock;
    TestSupport::OpenTaskSet open;
    const LogCapture log(2);
    RuvoTSRuns& runs = RuvoTSRuns::getInstance();
    std::vector<VornSupport::VornSmartPointer<CrowdTask>> tasks;
    for (int i = 0; i < 3; ++i) tasks.push_back(RuvoTSTask::make<CrowdTask>());
    ASSERT_TRUE(runs.takePlace(*tasks[0]));
    runs.noteShortage(*tasks[0], {});
    runs.leavePlace(*tasks[0], false);
    ASSERT_TRUE(runs.takePlace(*tasks[1]));
    EXPECT_FALSE(runs.takePlace(*tasks[2]));
    EXPECT_FALSE(runs.takePlace(*tasks[2])) << "in line once, however often it tries";
    EXPECT_EQ(runs.lineForTest(), 2u);
    runs.leavePlace(*tasks[1], false);
    for (const auto& task : tasks) task->finish();
    EXPECT_EQ(runs.lineForTest(), 0u);
    EXPECT_EQ(log.beginning("RuvoTSRuns: tasks run again").size(), 1u);
}

// One that waits in line and is cancelled leaves the others their turns.
TEST(RuvoTSTaskPosix, PassesOverThoseThatAreCancelledInLine) {
    const TestSupport::StoreFolder folder;
    TestSupport::TestClock clock;
    TestSupport::OpenTaskSet open;
    RuvoTSRuns& runs = RuvoTSRuns::getInstance();
    std::vector<VornSupport::VornSmartPointer<CrowdTask>> tasks;
    for (int i = 0; i < 4; ++i) tasks.push_back(RuvoTSTask::make<CrowdTask>());
    ASSERT_TRUE(runs.takePlace(*tasks[0]));
    runs.noteShortage(*tasks[0], {});
    EXPECT_FALSE(runs.isCrowded());
    for (int i = 1; i < 4; ++i) EXPECT_FALSE(runs.takePlace(*tasks[static_cast<size_t>(i)]));
    for (const auto& task : tasks) task->retryRun();
    runs.leavePlace(*tasks[0], false);
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 4u);
    tasks[1]->finish();
    clock.advance(1);
    for (const std::size_t i : {0u, 2u, 3u}) {
        EXPECT_TRUE(waitUntil([&] { return tasks[i]->getState() == RuvoTSTask::Ended; })) << i;
        EXPECT_EQ(tasks[i]->runs, 1);
    }
    EXPECT_EQ(tasks[1]->runs, 0);
    EXPECT_TRUE(waitUntil([&] { return runs.count() == 0; }));
    for (const auto& task : tasks) task->finish();
}

// The same run, so that nobody is told of it twice.
TEST(RuvoTSTaskPosix, TellsOfARunThatIsPostponedOnce) {
    const TestSupport::StoreFolder folder;
    TestSupport::TestClock clock;
    TestSupport::OpenTaskSet open;
    class Refused final : public RuvoTSTask {
    public:
        Refused() : RuvoTSTask("refused", kNoon + 10, 7) {}
        std::string serialize() const override { return ""; }
        int performTask() override {
            const auto thread = VornSupport::makeCounted<RuvoTSTaskThread>();
            enlist(*thread);
            launch(*thread);
            return 0;
        }
        std::optional<std::int32_t> runtaskonsystem() override {
            if (++tries < 3) throw RuvoTSRefused(VornPlatform::OsError::timedOut());
            return 5;
        }
        std::string_view kind() const override { return "Refused"; }
        std::atomic<int> tries{0};
    };
    class States final : public VornSupport::VornDependent {
    public:
        void handleNotification(VornSupport::VornCollaborator&,
                                const VornSupport::VornNotification& notification) override {
            const auto& told = dynamic_cast<const RuvoTSTaskNotification&>(notification);
            all = all * 10 + 5 + told.getState();
        }
        std::atomic<int> all{0};
    };
    const auto task = RuvoTSTask::make<Refused>();
    States states;
    task->addDependent(states);
    clock.advance(10);
    for (int tries = 1; tries < 3; ++tries) {
        EXPECT_TRUE(waitUntil([&] {
            return task->tries == tries && RuvoTSTimeKeeper::getInstance().waiting() == 1;
        }));
        EXPECT_EQ(task->getState(), RuvoTSTask::Running);
        clock.advance(1);
    }
    EXPECT_TRUE(waitUntil([&] { return task->getState() == RuvoTSTask::Ended; }));
    EXPECT_EQ(task->getStatus(), 5);
    EXPECT_EQ(states.all, 56);  // running, ended
    EXPECT_TRUE(waitUntil([] { return RuvoTSRuns::getInstance().count() == 0; }));
    task->finish();
    task->removeDependent(states);
}
