// Memory that runs out at each moment.

#include "runtime/net/VornProxyDependentContainer.h"
#include "runtime/support/VornException.h"
#include "scheduler/RuvoTSBlobTask.h"
#include "scheduler/RuvoTSNotifications.h"
#include "scheduler/RuvoTSRuns.h"
#include "scheduler/RuvoTSTaskDependent.h"
#include "scheduler/RuvoTSTaskThread.h"
#include "scheduler/RuvoTSTimeKeeper.h"
#include "tests/runtime/platform/NativeProbe.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/FailingMemory.h"
#include "tests/support/TestListener.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

using namespace RuvoService;
using TestSupport::kNoon;
using TestSupport::OpenScheduler;
using TestSupport::waitUntil;

namespace {

constexpr std::int32_t kDay = 86400;
constexpr int kMostAllocations = 5000;

std::size_t waiting() { return RuvoTSTimeKeeper::getInstance().waiting(); }

// Does something with its n-th allocation failing: true when that came to pass.
bool doWithFailure(int n, const std::function<void()>& something, bool* threw = nullptr) {
    bool caught = false;
    FailingMemory::begin(n);
    try {
        something();
    } catch (const std::exception&) {
        caught = true;
    }
    const bool failed = FailingMemory::end();
    if (threw != nullptr) *threw = caught;
    return failed;
}

class RuvoTSShortageTest : public testing::Test {
protected:
    RuvoTSShortageTest() {
        EXPECT_TRUE(NativeProbe::replacesAllocationEverywhere());
    }
    static RuvoTSTaskSet::Task make(std::uint32_t frequency = RuvoTSTask::Daily) {
        return RuvoTSTask::make<RuvoTSBlobTask>("a task with a name that is long enough",
                                                currentTime() + 10, frequency, "bytes");
    }

    TestSupport::StoreFolder folder_;
    TestSupport::TestClock clock_;
};

TEST_F(RuvoTSShortageTest, SchedulesATaskOrLeavesNothingBehind) {
    const TestSupport::OpenTaskSet open;
    int failures = 0;
    int thrown = 0;
    for (int n = 0;; ++n) {
        ASSERT_LT(n, kMostAllocations);
        RuvoTSTaskSet::Task task;
        bool threw = false;
        const bool failed = doWithFailure(
            n, [&] { task = open.set().schedule("name", [] { return make(); }); }, &threw);
        EXPECT_EQ(task != nullptr, !threw) << n;
        EXPECT_EQ(waiting(), threw ? 0u : 1u) << n;
        EXPECT_EQ(open.set().size(), threw ? 0u : 1u) << n;
        failures += failed ? 1 : 0;
        thrown += threw ? 1 : 0;
        if (!threw) {
            EXPECT_TRUE(open.set().find(task->getName()));
            EXPECT_TRUE(task->finish());
            open.set().remove(task->getHandle());
        }
        EXPECT_FALSE(TestSupport::exists(folder_.fresh())) << n;
        if (!failed) break;
    }
    EXPECT_GT(thrown, 5);
    EXPECT_GT(failures, thrown);  // also while the store is written, which is no reason
}

TEST_F(RuvoTSShortageTest, ArmsATaskAgainAfterItsRun) {
    const TestSupport::OpenTaskSet open;
    for (int n = 0;; ++n) {
        ASSERT_LT(n, kMostAllocations);
        const auto task = make();
        const std::int32_t first = task->getNextTime();
        open.set().insert(task, false);
        clock_.advance(1);
        task->setState(RuvoTSTask::Ended, 0);
        VornSupport::VornCollaborator source;
        const RuvoTSThreadDone done(task, 0);
        const bool failed = doWithFailure(n, [&] { task->handleNotification(source, done); });
        EXPECT_EQ(task->getNextTime(), first + kDay) << n;
        EXPECT_EQ(task->getState(), RuvoTSTask::Waiting) << n;
        EXPECT_EQ(waiting(), 1u) << n;
        EXPECT_TRUE(task->finish());
        open.set().remove(task->getHandle());
        EXPECT_EQ(waiting(), 0u) << n;
        if (!failed) break;
    }
}

TEST_F(RuvoTSShortageTest, RemovesATaskAfterItsOnlyRun) {
    const TestSupport::OpenTaskSet open;
    for (int n = 0;; ++n) {
        ASSERT_LT(n, kMostAllocations);
        const auto task = make(RuvoTSTask::Once);
        open.set().insert(task, true);
        VornSupport::VornCollaborator source;
        const RuvoTSThreadDone done(task, 0);
        const bool failed = doWithFailure(n, [&] { task->handleNotification(source, done); });
        EXPECT_EQ(task->getState(), RuvoTSTask::Finished) << n;
        EXPECT_EQ(open.set().size(), 0u) << n;
        EXPECT_EQ(waiting(), 0u) << n;
        if (!failed) break;
    }
}

// Whatever was missing when its time came: it runs, a second later perhaps, and
// once.
TEST_F(RuvoTSShortageTest, RunsATaskThatCouldNotBegin) {
    const TestSupport::OpenTaskSet open;
    int retried = 0;
    for (int n = 0;; ++n) {
        ASSERT_LT(n, kMostAllocations);
        const auto task = make(7);
        open.set().insert(task, false);
        VornSupport::VornCollaborator source;
        const RuvoTSTimerNotification notification;
        const bool failed =
            doWithFailure(n, [&] { task->handleNotification(source, notification); });
        EXPECT_TRUE(waitUntil([&] {
            // Of its own time, ten seconds away, it need not be reminded.
            if (RuvoTSRuns::getInstance().count() > 0) return false;
            if (task->getState() == RuvoTSTask::Ended) return task->getLastRunTime() != 0;
            ++retried;
            clock_.advance(1);
            return false;
        })) << n;
        EXPECT_EQ(task->getStatus(), 0);
        task->finish();
        open.set().remove(task->getHandle());
        EXPECT_TRUE(waitUntil([] { return RuvoTSRuns::getInstance().count() == 0; }));
        if (!failed) break;
    }
    EXPECT_GT(retried, 0);
}

TEST_F(RuvoTSShortageTest, FiresLaterWhatItCannotFireNow) {
    const TestSupport::OpenTaskSet open;
    int late = 0;
    for (int n = 0;; ++n) {
        ASSERT_LT(n, kMostAllocations);
        const auto task = make();
        const std::int32_t due = task->getNextTime();
        bool looked = true;
        const bool failed = doWithFailure(n, [&] {
            clock_.advance(10);
            looked = false;
        });
        EXPECT_FALSE(looked) << "nothing is thrown at who looks";
        if (waiting() == 1) ++late;
        EXPECT_TRUE(waitUntil([&] {
            RuvoTSTimeKeeper::getInstance().look();
            return task->getNextTime() == due + kDay;
        })) << n;
        EXPECT_TRUE(waitUntil([&] { return waiting() == 1; })) << n;
        EXPECT_TRUE(task->finish());
        if (!failed) break;
    }
    EXPECT_GT(late, 0);
}

TEST_F(RuvoTSShortageTest, CancelsATaskWhole) {
    OpenScheduler scheduler;
    for (int n = 0;; ++n) {
        ASSERT_LT(n, kMostAllocations);
        const std::int32_t handle = OpenScheduler::scheduleBlob("a", "", currentTime() + 10, 0);
        const auto task = RuvoTSTaskSet::getInstance().find(handle);
        ASSERT_TRUE(task);
        const bool failed = doWithFailure(n, [&] {
            if (!task->finish()) return;
            task->removeMyProxyDependents();
            RuvoTSTaskSet::getInstance().remove(handle);
        });
        EXPECT_EQ(task->getState(), RuvoTSTask::Finished) << n;
        EXPECT_EQ(RuvoTSTaskSet::getInstance().size(), 0u) << n;
        EXPECT_EQ(waiting(), 0u) << n;
        if (!failed) break;
    }
}

// Of those who follow a task.
class RuvoTSFollowerShortageTest : public RuvoTSShortageTest {
protected:
    using Follower = VornSupport::VornSmartPointer<RuvoTSTaskDependent>;

    Follower follower(std::int32_t handle) const {
        return VornSupport::makeCounted<RuvoTSTaskDependent>(listener_.remoteName(), handle,
                                                             *task_);
    }
    static int registered() {
        return VornNet::VornProxyDependentContainer::getInstance().size();
    }
    // Reads deliveries until one of this state, and returns whose it was.
    static std::int32_t nextOf(const VornPlatform::Socket& client, std::int32_t state) {
        for (;;) {
            const std::string bytes = TestSupport::readBytes(client, 16);
            if (bytes.size() < 16) return -1;
            std::uint32_t numbers[4] = {};
            for (std::size_t i = 0; i < bytes.size(); ++i) {
                numbers[i / 4] = numbers[i / 4] << 8 | static_cast<unsigned char>(bytes[i]);
            }
            if (static_cast<std::int32_t>(numbers[2]) == state) {
                return static_cast<std::int32_t>(numbers[0]);
            }
        }
    }

    const TestSupport::OpenTaskSet open_;
    const RuvoTSTaskSet::Task task_ = make();
    const TestSupport::TcpListener listener_;
};

TEST_F(RuvoTSFollowerShortageTest, FollowsOrLeavesNoRegistration) {
    int refused = 0;
    for (int n = 0;; ++n) {
        ASSERT_LT(n, kMostAllocations);
        const Follower one = follower(n);
        bool threw = false;
        const bool failed = doWithFailure(n, [&] { EXPECT_TRUE(task_->follow(one)); }, &threw);
        EXPECT_EQ(registered(), threw ? 0 : 1) << n;
        EXPECT_EQ(task_->unfollow(listener_.remoteName(), n), !threw) << n;
        EXPECT_EQ(registered(), 0) << n;
        // What was there before is found as it was, by its name too.
        EXPECT_FALSE(VornNet::VornProxyDependentContainer::getInstance().lookup(
            listener_.remoteName(), n));
        refused += threw ? 1 : 0;
        if (!failed) break;
    }
    EXPECT_GT(refused, 3);
}

// A change may be lost; those after it are not, nor what others are told.
TEST_F(RuvoTSFollowerShortageTest, GoesOnBeingToldAfterAShortage) {
    ASSERT_TRUE(task_->follow(follower(1)));
    ASSERT_TRUE(task_->follow(follower(2)));
    task_->setState(RuvoTSTask::Running, 0);
    const auto client = listener_.accept();
    EXPECT_EQ(nextOf(client, RuvoTSTask::Running), 1);
    EXPECT_EQ(nextOf(client, RuvoTSTask::Running), 2);
    for (int n = 0;; ++n) {
        ASSERT_LT(n, kMostAllocations);
        const bool failed =
            doWithFailure(n, [&] { task_->setState(RuvoTSTask::Running, 0); });
        task_->setState(RuvoTSTask::Ended, n);
        EXPECT_EQ(nextOf(client, RuvoTSTask::Ended), 1) << n;
        EXPECT_EQ(nextOf(client, RuvoTSTask::Ended), 2) << n;
        if (!failed) break;
    }
    task_->removeMyProxyDependents();
    EXPECT_EQ(registered(), 0);
}

TEST_F(RuvoTSFollowerShortageTest, IsTakenBackWhole) {
    for (int n = 0;; ++n) {
        ASSERT_LT(n, kMostAllocations);
        ASSERT_TRUE(task_->follow(follower(1)));
        const Follower byHand = follower(2);
        VornNet::VornProxyDependentContainer::getInstance().add(byHand);
        task_->addDependent(*byHand);
        bool threw = false;
        const bool failed =
            doWithFailure(n, [&] { task_->removeMyProxyDependents(); }, &threw);
        EXPECT_FALSE(threw) << n;
        EXPECT_EQ(registered(), 0) << n;
        task_->setState(RuvoTSTask::Running, 0);
        EXPECT_EQ(byHand->refCount(), 1) << n;
        if (!failed) break;
    }
    EXPECT_FALSE(listener_.hasCaller());
}

// It starts whole or not at all, and then no task is left to run.
TEST_F(RuvoTSShortageTest, StartsWholeOrNotAtAll) {
    OpenScheduler scheduler;
    OpenScheduler::scheduleBlob("a", "bytes", kNoon + 60, 0);
    OpenScheduler::schedule("b", "p", "", kNoon + 60, 0);
    scheduler.stop();
    int refused = 0;
    for (int n = 0;; ++n) {
        ASSERT_LT(n, kMostAllocations);
        bool threw = false;
        const bool failed = doWithFailure(n, [&] { scheduler.start(); }, &threw);
        EXPECT_FALSE(threw) << n;
        const std::size_t tasks = scheduler.engine().isStarted() ? 2 : 0;
        if (tasks == 0) ++refused;
        EXPECT_EQ(RuvoTSTaskSet::getInstance().size(), tasks) << n;
        EXPECT_EQ(waiting(), tasks) << n;
        scheduler.stop();
        EXPECT_EQ(folder_.lines().size(), 2u) << n;
        if (!failed) break;
    }
    EXPECT_GT(refused, 5);
}

}  // namespace
