// Memory that runs out while a run begins, or is refused what it needs.

#include "runtime/support/VornLogging.h"
#include "runtime/support/VornThread.h"
#include "scheduler/RuvoTSBlobTask.h"
#include "scheduler/RuvoTSExecTask.h"
#include "scheduler/RuvoTSNotifications.h"
#include "scheduler/RuvoTSRuns.h"
#include "scheduler/RuvoTSTaskThread.h"
#include "scheduler/RuvoTSTimeKeeper.h"
#include "tests/runtime/platform/NativeProbe.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/FailingMemory.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>

using namespace RuvoService;
using TestSupport::kNoon;
using TestSupport::LogCapture;

namespace {

constexpr int kMostAllocations = 5000;
constexpr const char* kNoText =
    "RuvoTSRuns: the system is short of means to run tasks (error 12)";

std::size_t waiting() { return RuvoTSTimeKeeper::getInstance().waiting(); }

// Whose thread the system refuses.
class RefusedTask final : public RuvoTSTask {
public:
    RefusedTask() : RuvoTSTask("a task with a name that is long", kNoon + 10, Daily) {}
    std::string serialize() const override { return ""; }
    int performTask() override {
        const auto thread = VornSupport::makeCounted<RuvoTSTaskThread>();
        enlist(*thread);
        thread->setStackSize(NativeProbe::impossibleStack());
        launch(*thread);
        return 0;
    }
    std::optional<std::int32_t> runtaskonsystem() override { return 0; }
    std::string_view kind() const override { return "RefusedTask"; }
};

class RuvoTSRunShortageTest : public testing::Test {
protected:
    RuvoTSRunShortageTest() {
        EXPECT_TRUE(NativeProbe::replacesAllocationEverywhere());
        VORN_LOG(2, "begins");  // and opens its file
    }

    TestSupport::StoreFolder folder_;
    TestSupport::TestClock clock_;
    TestSupport::OpenTaskSet open_;
    const LogCapture log_{9};  // what is logged takes memory
};

// For want of memory too: the first thing that is then missing is the memory to say so.
TEST_F(RuvoTSRunShortageTest, PostponesARunThatIsRefusedMemory) {
    RuvoTSRuns& runs = RuvoTSRuns::getInstance();
    for (const int failures : {1, 2, 3, 4}) {
        for (int n = 0;; ++n) {
            ASSERT_LT(n, kMostAllocations);
            const auto task =
                RuvoTSTask::make<RuvoTSBlobTask>("blob", kNoon + 10, RuvoTSTask::Daily, "");
            ASSERT_TRUE(runs.takePlace(*task));
            FailingMemory::begin(n, failures);
            task->postponeRun(VornPlatform::OsError(ENOMEM));
            const bool failed = FailingMemory::end();
            EXPECT_EQ(waiting(), 1u) << n << ", " << failures;
            EXPECT_TRUE(task->finish());
            EXPECT_EQ(runs.lineForTest(), 0u) << n << ", " << failures;
            EXPECT_FALSE(runs.isShort()) << n << ", " << failures;
            if (!failed) break;
        }
    }
    EXPECT_GE(log_.beginning(kNoText).size(), 1u);
}

// It comes again by its timer alone. Else the log would tell of the end, and of the
// beginning, with each try.
TEST_F(RuvoTSRunShortageTest, GoesOnWhileOneComesAgainThatTheLineHadNoMemoryFor) {
    RuvoTSRuns& runs = RuvoTSRuns::getInstance();
    const auto make = [] {
        return RuvoTSTask::make<RuvoTSBlobTask>("blob", kNoon + 10, RuvoTSTask::Daily, "");
    };
    const auto task = make();
    const auto other = make();
    const auto refuse = [&](RuvoTSTask& each) {
        runs.noteShortage(each, VornPlatform::OsError(ENOMEM));
        runs.leavePlace(each, false);
    };
    const auto run = [&](RuvoTSTask& each) {
        EXPECT_TRUE(runs.takePlace(each));
        runs.leavePlace(each, true);
    };
    int missing = 0;
    for (int i = 0; i < 300; ++i) {
        ASSERT_TRUE(runs.takePlace(*task));
        FailingMemory::begin(0, FailingMemory::kAll);
        refuse(*task);
        FailingMemory::end();
        missing += runs.lineForTest() == 0 ? 1 : 0;
        EXPECT_TRUE(runs.isShort());
        run(*task);
        EXPECT_FALSE(runs.isShort());
        // The line needs memory when it has moved on far enough, which takes two.
        ASSERT_TRUE(runs.takePlace(*task));
        ASSERT_TRUE(runs.takePlace(*other));
        refuse(*task);
        refuse(*other);
        run(*task);
        run(*other);
        EXPECT_FALSE(runs.isShort());
    }
    EXPECT_GE(missing, 1);
    task->finish();
    other->finish();
}

TEST_F(RuvoTSRunShortageTest, LeavesNoRunBehindWhoseThreadIsRefused) {
    RuvoTSRuns& runs = RuvoTSRuns::getInstance();
    const int threads = VornSupport::VornThread::liveCount();
    for (const int failures : {1, 2, 3}) {
        for (int n = 0;; ++n) {
            ASSERT_LT(n, kMostAllocations);
            const auto task = RuvoTSTask::make<RefusedTask>();
            VornSupport::VornCollaborator source;
            const RuvoTSTimerNotification timeHasCome;
            FailingMemory::begin(n, failures);
            task->handleNotification(source, timeHasCome);
            const bool failed = FailingMemory::end();
            EXPECT_EQ(runs.count(), 0) << n << ", " << failures;
            EXPECT_EQ(VornSupport::VornThread::liveCount(), threads) << n << ", " << failures;
            EXPECT_EQ(waiting(), 1u) << n << ", " << failures;
            EXPECT_TRUE(task->finish());
            EXPECT_EQ(task->refCount(), 1u) << n << ", " << failures;
            EXPECT_FALSE(runs.isShort()) << n << ", " << failures;
            if (!failed) break;
        }
    }
}

// It begins, once, or the run is refused and will be tried again.
TEST_F(RuvoTSRunShortageTest, RunsACommandOnceOrNotAtAll) {
    TestSupport::provideCommandInterpreter();
    const std::string trace = folder_.file("trace");
    const auto task = RuvoTSTask::make<RuvoTSExecTask>(
        "command", kNoon + 10, RuvoTSTask::Daily, "echo", folder_.text(),
        "begun >> \"" + trace + '"', "");
    int refused = 0;
    for (int n = 0;; ++n) {
        ASSERT_LT(n, kMostAllocations);
        std::optional<std::int32_t> status;
        std::optional<VornPlatform::OsError> refusal;
        FailingMemory::begin(n);
        try {
            status = task->runtaskonsystem();
        } catch (const RuvoTSRefused& e) {
            refusal = e.error();
        }
        const bool failed = FailingMemory::end();
        EXPECT_NE(status.has_value(), refusal.has_value()) << n;
        EXPECT_EQ(TestSupport::readFile(trace), status ? "begun\n" : "") << n;
        EXPECT_EQ(status.value_or(0), 0) << n;
        EXPECT_EQ(refusal.value_or(VornPlatform::OsError(ENOMEM)).code(), ENOMEM) << n;
        refused += refusal ? 1 : 0;
        for (const auto& entry :
             std::filesystem::directory_iterator(TestSupport::toPath(folder_.text()))) {
            EXPECT_NE(entry.path().extension(), ".bat") << n;
        }
        TestSupport::writeFile(trace, "");
        if (!failed) break;
    }
    EXPECT_GT(refused, 5);
    task->retire();
}

}  // namespace
