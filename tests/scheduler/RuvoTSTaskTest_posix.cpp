// Where the system can be asked for a thread that it does not have.

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
    EXPECT_EQ(log.beginning("VornThread::start: no thread for ").size(), 1u);
    clock.advance(1);
    EXPECT_TRUE(waitUntil([&] { return task->getLastRunTime() == kNoon + 11; }));
    EXPECT_TRUE(waitUntil([&] { return task->getState() == RuvoTSTask::Waiting; }));
    EXPECT_EQ(task->attempts, 2);
    EXPECT_EQ(task->getStatus(), 3);
    EXPECT_EQ(task->getNextTime(), kNoon + 10 + kDay);
    task->finish();
}
