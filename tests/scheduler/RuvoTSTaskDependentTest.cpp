#include "scheduler/RuvoTSTaskDependent.h"

#include "runtime/net/VornNetLimits.h"
#include "runtime/net/VornProxyDependentContainer.h"
#include "runtime/net/WireCodec.h"
#include "scheduler/RuvoTSBlobTask.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestListener.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

using namespace RuvoService;
using TestSupport::kNoon;
using TestSupport::LogCapture;
using VornNet::VornProxyDependentContainer;

namespace {

using Follower = VornSupport::VornSmartPointer<RuvoTSTaskDependent>;

// One delivery: the client's handle, the marker, the state, the task's handle.
std::string delivery(std::int32_t dependent, std::int32_t state, std::int32_t task) {
    std::string bytes;
    for (const std::int32_t value : {dependent, 12345, state, task}) {
        VornNet::appendInt(bytes, value);
    }
    return bytes;
}

class RuvoTSTaskDependentTest : public testing::Test {
protected:
    RuvoTSTaskDependentTest()
        : task_(RuvoTSTask::make<RuvoTSBlobTask>("task", kNoon + 10, RuvoTSTask::Daily, "")) {
        open_.set().insert(task_, false);
    }

    Follower follow(const std::string& remoteName, std::int32_t handle = 77) {
        auto follower =
            VornSupport::makeCounted<RuvoTSTaskDependent>(remoteName, handle, *task_);
        EXPECT_TRUE(task_->follow(follower));
        return follower;
    }
    std::string told(std::int32_t state, std::int32_t dependent = 77) const {
        return delivery(dependent, state, task_->getHandle());
    }
    static int registered() { return VornProxyDependentContainer::getInstance().size(); }

    TestSupport::StoreFolder folder_;
    TestSupport::TestClock clock_;
    TestSupport::OpenTaskSet open_;
    RuvoTSTaskSet::Task task_;
    TestSupport::TcpListener listener_;
};

TEST_F(RuvoTSTaskDependentTest, TellsTheClientEachState) {
    const Follower follower = follow(listener_.remoteName());
    clock_.advance(10);
    const auto client = listener_.accept();
    EXPECT_EQ(TestSupport::readBytes(client, 3 * 16), told(0) + told(1) + told(2));
}

TEST_F(RuvoTSTaskDependentTest, TellsTheEndAndThenNothing) {
    const Follower follower = follow(listener_.remoteName());
    EXPECT_EQ(registered(), 1);
    EXPECT_TRUE(task_->finish());
    task_->removeMyProxyDependents();
    EXPECT_EQ(registered(), 0);
    task_->setState(RuvoTSTask::Ended, 3);
    {
        const auto client = listener_.accept();
        EXPECT_EQ(TestSupport::readBytes(client, 16), told(-1));
    }
    EXPECT_FALSE(listener_.hasCaller());
    EXPECT_FALSE(task_->follow(follower));
    EXPECT_EQ(registered(), 0);
}

TEST_F(RuvoTSTaskDependentTest, IsToldTwiceWhenItFollowsTwice) {
    const Follower first = follow(listener_.remoteName());
    const Follower second = follow(listener_.remoteName());
    task_->setState(RuvoTSTask::Running, 0);
    const auto client = listener_.accept();
    EXPECT_EQ(TestSupport::readBytes(client, 32), told(0) + told(0));
    EXPECT_TRUE(task_->unfollow(listener_.remoteName(), 77));
    task_->setState(RuvoTSTask::Ended, 0);
    EXPECT_EQ(TestSupport::readBytes(client, 16), told(1));
    EXPECT_TRUE(task_->unfollow(listener_.remoteName(), 77));
    EXPECT_FALSE(task_->unfollow(listener_.remoteName(), 77));
    EXPECT_EQ(registered(), 0);
}

TEST_F(RuvoTSTaskDependentTest, IsFoundByNameAndHandle) {
    const Follower seven = follow(listener_.remoteName(), 7);
    const Follower eight = follow(listener_.remoteName(), 8);
    EXPECT_FALSE(task_->unfollow(listener_.remoteName(), 9));
    EXPECT_FALSE(task_->unfollow("tcp:127.0.0.1:1", 7));
    EXPECT_TRUE(task_->unfollow(listener_.remoteName(), 7));
    task_->setState(RuvoTSTask::Running, 0);
    const auto client = listener_.accept();
    EXPECT_EQ(TestSupport::readBytes(client, 16), told(0, 8));
    task_->removeMyProxyDependents();
}

// A client that mixes its handles up may take the follower back through the
// notifier; then it is told nothing more, and nothing dangles.
TEST_F(RuvoTSTaskDependentTest, IsSilentOnceItIsUnregistered) {
    follow(listener_.remoteName());
    VornProxyDependentContainer::getInstance().remove(listener_.remoteName(), 77);
    task_->setState(RuvoTSTask::Running, 0);
    EXPECT_FALSE(listener_.hasCaller());
    task_->removeMyProxyDependents();
}

// Of two registrations of one name and handle the one that was taken back is
// silent, and the other is not.
TEST_F(RuvoTSTaskDependentTest, LooksForItsOwnRegistration) {
    follow(listener_.remoteName());
    follow(listener_.remoteName());
    auto& container = VornProxyDependentContainer::getInstance();
    container.remove(listener_.remoteName(), 77);
    task_->setState(RuvoTSTask::Running, 0);
    const auto client = listener_.accept();
    EXPECT_EQ(TestSupport::readBytes(client, 16), told(0));
    task_->setState(RuvoTSTask::Ended, 0);
    EXPECT_EQ(TestSupport::readBytes(client, 16), told(1));

    const auto other = RuvoTSTask::make<RuvoTSBlobTask>("other", kNoon + 10, 0, "");
    const auto stranger = VornSupport::makeCounted<RuvoTSTaskDependent>(
        listener_.remoteName(), 77, *other);
    EXPECT_TRUE(other->follow(stranger));
    container.remove(listener_.remoteName(), 77);  // the task's own, the earlier one
    EXPECT_TRUE(container.contains(*stranger));
    task_->setState(RuvoTSTask::Running, 0);
    other->setState(RuvoTSTask::Ended, 0);
    EXPECT_EQ(TestSupport::readBytes(client, 16),
              delivery(77, 1, other->getHandle()));
    task_->removeMyProxyDependents();
    other->removeMyProxyDependents();
    EXPECT_EQ(registered(), 0);
    other->finish();
}

TEST_F(RuvoTSTaskDependentTest, SurvivesAClientThatIsNotThere) {
    const LogCapture log(3);
    const Follower gone = follow("tcp:127.0.0.1:1");
    const Follower unreadable = follow("no name at all");
    const Follower here = follow(listener_.remoteName());
    task_->setState(RuvoTSTask::Running, 0);
    const auto client = listener_.accept();
    EXPECT_EQ(TestSupport::readBytes(client, 16), told(0));
    EXPECT_EQ(log.beginning("RuvoTSTaskDependent::handleNotification: ").size(), 1u);
    EXPECT_EQ(log.beginning("VornDeliveryChannel::send: ").size(), 1u);
    task_->removeMyProxyDependents();
    EXPECT_EQ(registered(), 0);
}

// Followers that cannot be reached, each for the whole time that a delivery may
// take, hold up neither the run nor the cancel; and when they can be reached at
// last, they learn everything in its order, the end included.
TEST_F(RuvoTSTaskDependentTest, HoldsUpNobodyWhileItCannotBeReached) {
    auto& limits = VornNet::VornNetLimits::getInstance();
    limits.deliveryMs = 60'000;
    std::vector<TestSupport::BusyListener> busy(4);
    for (const auto& each : busy) follow(each.remoteName());
    follow(listener_.remoteName());
    const auto begin = std::chrono::steady_clock::now();
    clock_.advance(10);
    {
        const auto client = listener_.accept();
        EXPECT_EQ(TestSupport::readBytes(client, 3 * 16), told(0) + told(1) + told(2));
        EXPECT_TRUE(task_->finish());
        task_->removeMyProxyDependents();
        EXPECT_EQ(registered(), 0);
        task_->setState(RuvoTSTask::Ended, 0);
        EXPECT_EQ(TestSupport::readBytes(client, 100), told(-1));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
    EXPECT_EQ(TestSupport::readBytes(busy.front().serve(), 100),
              told(0) + told(1) + told(2) + told(-1));
    limits.deliveryMs = 2000;
}

// One that somebody has registered without the task's help is found all the same.
TEST_F(RuvoTSTaskDependentTest, IsFoundAlsoWhenItWasRegisteredByHand) {
    const int before = RuvoTSTaskDependent::madeByHand();
    const auto other = RuvoTSTask::make<RuvoTSBlobTask>("other", kNoon + 10, RuvoTSTask::Daily, "");
    {
        auto& container = VornProxyDependentContainer::getInstance();
        Follower mine = VornSupport::makeCounted<RuvoTSTaskDependent>(listener_.remoteName(), 7,
                                                                      *task_);
        const Follower others = VornSupport::makeCounted<RuvoTSTaskDependent>("tcp:127.0.0.1:1", 8,
                                                                              *other);
        EXPECT_EQ(RuvoTSTaskDependent::madeByHand(), before + 2);
        container.add(mine);
        container.add(others);
        task_->addDependent(*mine);
        mine = nullptr;
        follow(listener_.remoteName(), 9);
        EXPECT_EQ(registered(), 3);
        EXPECT_TRUE(task_->finish());
        task_->removeMyProxyDependents();
        EXPECT_EQ(registered(), 1);
        other->removeMyProxyDependents();
        EXPECT_EQ(registered(), 0);
    }
    EXPECT_EQ(RuvoTSTaskDependent::madeByHand(), before);
    other->retire();
    EXPECT_EQ(TestSupport::readBytes(listener_.accept(), 100), told(-1, 7) + told(-1, 9));
}

// Of two changes the later one may be told first by its thread; then the
// earlier one is not told any more.
TEST_F(RuvoTSTaskDependentTest, DropsAChangeThatComesAfterALaterOne) {
    const Follower follower = follow(listener_.remoteName());
    const auto tell = [&](std::int32_t state, std::uint32_t change) {
        follower->handleNotification(
            *task_, RuvoTSTaskNotification(task_->getHandle(), state, 0, change));
    };
    tell(0, 1000);
    tell(-1, 1002);
    tell(1, 1001);
    tell(1, 1002);
    tell(2, 1003);
    const auto client = listener_.accept();
    EXPECT_EQ(TestSupport::readBytes(client, 48), told(0) + told(-1) + told(2));
    task_->removeMyProxyDependents();
}

TEST_F(RuvoTSTaskDependentTest, TellsInOrderFromManyThreads) {
    follow(listener_.remoteName());  // not held: the connection ends with it
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) task_->setState(RuvoTSTask::Running, 0);
        });
    }
    threads.clear();
    EXPECT_TRUE(task_->finish());
    task_->removeMyProxyDependents();
    task_->setState(RuvoTSTask::Ended, 0);
    const auto client = listener_.accept();
    const std::string all = TestSupport::readBytes(client, 1 << 20);
    ASSERT_GE(all.size(), 16u);
    EXPECT_EQ(all.size() % 16, 0u);
    EXPECT_EQ(all.substr(all.size() - 16), told(-1));
    EXPECT_EQ(all.find(told(-1)), all.size() - 16);
}

TEST_F(RuvoTSTaskDependentTest, IgnoresNotificationsOfOtherKinds) {
    const Follower follower = follow(listener_.remoteName());
    follower->handleNotification(*task_, VornSupport::VornNotification());
    follower->handleNotification(*task_, RuvoTSTimerNotification());
    EXPECT_FALSE(listener_.hasCaller());
    task_->removeMyProxyDependents();
}

// The way to what only a delivery calls.
struct Content : VornNet::VornProxyDependent {
    static constexpr auto kAdd = &Content::addContent;
};

// Marker and state go as numbers of the second kind, the handle of the first.
TEST_F(RuvoTSTaskDependentTest, WritesEachNumberInItsKind) {
    const auto follower =
        VornSupport::makeCounted<RuvoTSTaskDependent>("nobody:1", 77, *task_);
    TestSupport::FakeConnection connection;
    (follower.get()->*Content::kAdd)(connection, RuvoTSTaskNotification(4711, 1, 42, 1));
    EXPECT_EQ(connection.written(),
              (std::vector<std::string>{"int2 12345", "int2 1", "int 4711"}));
    EXPECT_ANY_THROW(
        (follower.get()->*Content::kAdd)(connection, VornSupport::VornNotification()));
    EXPECT_EQ(connection.written().size(), 3u);
}

TEST_F(RuvoTSTaskDependentTest, LogsWhatItDoes) {
    const LogCapture log(9);
    const Follower follower = follow(listener_.remoteName());
    const std::string reference = TestSupport::addressText(follower.get());
    task_->setState(RuvoTSTask::Ended, 7);
    task_->removeMyProxyDependents();
    const std::string handle = std::to_string(task_->getHandle());
    EXPECT_EQ(log.beginning("RuvoTSTaskDependent::handleNotification enter REFSOURCE=0x").size(),
              1u);
    EXPECT_TRUE(log.has(9, "RuvoTSTaskDependent::handleNotification status2 STATE=1 STATUS=7"));
    const VornSupport::VornNotification other;
    VornSupport::VornCollaborator& source = *task_;
    follower->handleNotification(source, other);
    EXPECT_TRUE(log.has(9, "RuvoTSTaskDependent::handleNotification enter REFSOURCE=" +
                               TestSupport::addressText(&source) +
                               " REFNOTIF=" + TestSupport::addressText(&other)));
    EXPECT_TRUE(
        log.has(9, "RuvoTSTaskDependent::addContent sent  HANDLE=" + handle + " STATE=1"));
    EXPECT_TRUE(log.has(4, "RuvoTSTask::removeMy... remove dependent TASK HANDLE=" + handle +
                               " REFDEPENDENT=" + reference));
}

// The work of each is the same, however many others there are.
TEST_F(RuvoTSTaskDependentTest, LetsGoOfThousandsOneByOneAndAllAtOnce) {
    constexpr std::int32_t kMany = 4000;
    const auto steps = [] {
        return VornSupport::VornCollaborator::stepsForTest() +
               VornProxyDependentContainer::getInstance().stepsForTest();
    };
    for (std::int32_t i = 0; i < kMany; ++i) follow("nobody:" + std::to_string(i % 7), i);
    EXPECT_EQ(registered(), kMany);
    auto before = steps();
    for (std::int32_t i = 0; i < kMany; i += 2) {
        const std::int32_t handle = (i * 1237) % kMany;  // every even one, mixed
        EXPECT_TRUE(task_->unfollow("nobody:" + std::to_string(handle % 7), handle));
    }
    EXPECT_LT(steps() - before, 6u * kMany);
    EXPECT_EQ(registered(), kMany / 2);
    before = steps();
    EXPECT_TRUE(task_->finish());
    task_->removeMyProxyDependents();
    EXPECT_LT(steps() - before, 6u * kMany);
    EXPECT_EQ(registered(), 0);
}

}  // namespace
