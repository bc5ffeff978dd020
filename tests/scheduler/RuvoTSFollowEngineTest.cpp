#include "scheduler/RuvoTSFollowEngine.h"

#include "runtime/monitor/VornEventMonitorManager.h"
#include "runtime/net/VornProxyDependentContainer.h"
#include "runtime/net/WireCodec.h"
#include "runtime/support/VornException.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestListener.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace RuvoService;
using TestSupport::FakeConnection;
using TestSupport::kNoon;
using TestSupport::OpenScheduler;

namespace {

using Texts = std::vector<std::string>;

constexpr std::int32_t kDependent = 77;

class RuvoTSFollowEngineTest : public testing::Test {
protected:
    RuvoTSFollowEngineTest() {
        VornMonitor::VornEventMonitorManager::getInstance().loadMonitor("SchedulerFollow", nullptr);
    }

    Texts send(const std::string& command, std::int32_t task,
               std::int32_t dependent = kDependent) const {
        FakeConnection connection;
        connection.sendString(command).sendString(listener_.remoteName());
        connection.sendInt(dependent).sendInt(task);
        const auto answer = OpenScheduler::request(connection, "SchedulerFollow");
        EXPECT_EQ(connection.reads(), (Texts{"string", "string", "int", "int"}));
        EXPECT_EQ(connection.unread(), 0u);
        return answer;
    }
    static std::string told(std::int32_t state, std::int32_t task) {
        std::string bytes;
        for (const std::int32_t value : {kDependent, 12345, state, task}) {
            VornNet::appendInt(bytes, value);
        }
        return bytes;
    }
    static Texts lastStatus(std::int32_t task) {
        FakeConnection connection;
        connection.sendString("RUVO_TS_LAST_STATUS").sendInt(task);
        const auto answer = OpenScheduler::request(connection, "SchedulerFollow");
        EXPECT_EQ(connection.reads(), (Texts{"string", "int"}));
        return answer;
    }
    // The consumer of all events aside.
    static int followers() {
        return VornNet::VornProxyDependentContainer::getInstance().size() - 1;
    }

    TestSupport::StoreFolder folder_;
    TestSupport::TestClock clock_;
    OpenScheduler scheduler_;
    TestSupport::TcpListener listener_;
};

TEST_F(RuvoTSFollowEngineTest, FollowsATaskToItsEnd) {
    const std::int32_t task = OpenScheduler::scheduleBlob("a", "", kNoon + 10, 0);
    const std::int32_t other = OpenScheduler::scheduleBlob("b", "", kNoon + 10, 0);
    EXPECT_EQ(send("RUVO_TS_FOLLOW", task), Texts{"int 0"});
    clock_.advance(10);
    const auto client = listener_.accept();
    EXPECT_EQ(TestSupport::readBytes(client, 48), told(0, task) + told(1, task) + told(2, task));
    EXPECT_TRUE(scheduler_.events().awaitStates(other, {2, 0, 1, 2}));
    EXPECT_EQ(OpenScheduler::ask("RUVO_TS_CANCEL", task), Texts{"int " + std::to_string(task)});
    EXPECT_EQ(followers(), 0);
    // The connection ends with its last registration.
    EXPECT_EQ(TestSupport::readBytes(client, 1000), told(-1, task));
}

TEST_F(RuvoTSFollowEngineTest, EndsWithTheOnlyRun) {
    const std::int32_t task = OpenScheduler::scheduleBlob("a", "", kNoon + 10, 3);
    EXPECT_EQ(send("RUVO_TS_FOLLOW", task), Texts{"int 0"});
    clock_.advance(10);
    const auto client = listener_.accept();
    EXPECT_EQ(TestSupport::readBytes(client, 1000),
              told(0, task) + told(1, task) + told(-1, task));
    EXPECT_TRUE(TestSupport::waitUntil([] { return followers() == 0; }));
}

TEST_F(RuvoTSFollowEngineTest, StopsFollowing) {
    const std::int32_t task = OpenScheduler::scheduleBlob("a", "", kNoon + 10, 0);
    EXPECT_EQ(send("RUVO_TS_FOLLOW", task), Texts{"int 0"});
    EXPECT_EQ(followers(), 1);
    EXPECT_EQ(send("RUVO_TS_UNFOLLOW", task, 78), Texts{"int 0"});
    EXPECT_EQ(followers(), 1);
    EXPECT_EQ(send("RUVO_TS_UNFOLLOW", task), Texts{"int 0"});
    EXPECT_EQ(followers(), 0);
    EXPECT_EQ(send("RUVO_TS_UNFOLLOW", task), Texts{"int 0"});
    clock_.advance(10);
    EXPECT_TRUE(scheduler_.events().awaitStates(task, {2, 0, 1, 2}));
    EXPECT_FALSE(listener_.hasCaller());
}

TEST_F(RuvoTSFollowEngineTest, KnowsNoTaskThatIsGone) {
    const std::int32_t task = OpenScheduler::scheduleBlob("a", "", kNoon + 10, 0);
    OpenScheduler::ask("RUVO_TS_CANCEL", task);
    for (const std::int32_t unknown : {task, -1, 0}) {
        EXPECT_EQ(send("RUVO_TS_FOLLOW", unknown), Texts{"int -9"});
        EXPECT_EQ(send("RUVO_TS_UNFOLLOW", unknown), Texts{"int -9"});
    }
    EXPECT_EQ(followers(), 0);
}

TEST_F(RuvoTSFollowEngineTest, RegistersNothingWhenTheRequestBreaksOff) {
    const std::int32_t task = OpenScheduler::scheduleBlob("a", "", kNoon + 10, 0);
    for (int operations = 1; operations < 4; ++operations) {
        FakeConnection connection;
        connection.sendString("RUVO_TS_FOLLOW").sendString(listener_.remoteName());
        connection.sendInt(kDependent).sendInt(task).failAfter(operations);
        EXPECT_THROW(OpenScheduler::request(connection, "SchedulerFollow"),
                     VornSupport::VornException);
    }
    EXPECT_EQ(followers(), 0);
}

TEST_F(RuvoTSFollowEngineTest, LetsGoOfFollowersWhenTheSchedulerStops) {
    const std::int32_t task = OpenScheduler::scheduleBlob("a", "", kNoon + 10, 0);
    EXPECT_EQ(send("RUVO_TS_FOLLOW", task), Texts{"int 0"});
    scheduler_.stop();
    EXPECT_EQ(followers(), 0);
    EXPECT_EQ(send("RUVO_TS_FOLLOW", task), Texts{"int -9"});
    scheduler_.start();
    EXPECT_EQ(send("RUVO_TS_FOLLOW", task), Texts{"int -9"});  // it has another handle
    EXPECT_FALSE(listener_.hasCaller());
}

TEST_F(RuvoTSFollowEngineTest, TellsTheStatusOfATaskThatIsGone) {
    const std::int32_t task = OpenScheduler::scheduleBlob("a", "", kNoon + 10, 3);
    EXPECT_EQ(lastStatus(task), (Texts{"int 0", "int -999"}));
    clock_.advance(10);
    EXPECT_TRUE(scheduler_.events().awaitStates(task, {2, 0, 1, -1}));
    EXPECT_TRUE(TestSupport::waitUntil(
        [&] { return OpenScheduler::ask("RUVO_TS_TASK_STATE", task) == Texts{"int -9"}; }));
    EXPECT_EQ(lastStatus(task), (Texts{"int 0", "int 0"}));
    for (const std::int32_t unknown : {task + 1, -1}) {
        EXPECT_EQ(lastStatus(unknown), (Texts{"int -9", "int 0"}));
    }
    // It ends with the life of the service, as handles do.
    scheduler_.stop();
    scheduler_.start();
    EXPECT_EQ(lastStatus(task), (Texts{"int -9", "int 0"}));
}

TEST_F(RuvoTSFollowEngineTest, KnowsNoOtherCommand) {
    for (const std::string command : {"RUVO_TS_CANCEL", "RUVO_TS_TASK_STATE", ""}) {
        FakeConnection connection;
        connection.sendString(command);
        EXPECT_EQ(OpenScheduler::request(connection, "SchedulerFollow"), Texts{"int -999"});
    }
}

TEST_F(RuvoTSFollowEngineTest, LogsItsSteps) {
    const TestSupport::LogCapture log(9);
    send("RUVO_TS_FOLLOW", 5);
    send("RUVO_TS_UNFOLLOW", 5);
    EXPECT_EQ(log.beginning("RUVO_TS_FOLLOW"),
              (Texts{"RUVO_TS_FOLLOW::handleClient: enter",
                     "RUVO_TS_FOLLOW::handleClient: |" + listener_.remoteName() +
                         ":77| TASKHANDLE=5",
                     "RUVO_TS_FOLLOW::handleClient: exit"}));
    EXPECT_EQ(log.beginning("RUVO_TS_UNFOLLOW").size(), 3u);
}

}  // namespace
