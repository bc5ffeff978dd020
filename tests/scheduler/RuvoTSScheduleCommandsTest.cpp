#include "runtime/net/VornNetLimits.h"
#include "runtime/net/VornProxyDependentContainer.h"
#include "runtime/support/VornEvent.h"
#include "runtime/support/VornException.h"
#include "scheduler/RuvoTSBlobTask.h"
#include "scheduler/RuvoTSScheduleCommands.h"
#include "scheduler/RuvoTSTaskSet.h"
#include "tests/runtime/support/AllocationCount.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using namespace RuvoService;
using TestSupport::FakeConnection;
using TestSupport::kNoon;
using TestSupport::LogCapture;
using TestSupport::OpenScheduler;
using VornSupport::VornException;

namespace {

using Texts = std::vector<std::string>;

// A request for a task with a command at 2024-06-15 13:02:03, every day.
void sendSchedule(FakeConnection& connection, const std::string& name) {
    connection.sendString("RUVO_TS_SCHEDULE").sendString(name).sendString("prog");
    connection.sendString("/work").sendString("-x").sendInt(0);
    connection.sendInt(6).sendInt(15).sendInt(2024).sendInt(13).sendInt(2).sendInt(3);
    connection.sendString("out.txt");
}

void sendBlob(FakeConnection& connection, const std::string& name, const std::string& bytes) {
    connection.sendString("RUVO_TS_SCHEDULE_BLOB").sendString(name);
    connection.sendInt(static_cast<int>(bytes.size())).sendBytes(bytes).sendUnsigned(3);
    connection.sendUnsigned(6).sendUnsigned(15).sendUnsigned(2024).sendUnsigned(13);
    connection.sendUnsigned(2).sendUnsigned(3);
}

class RuvoTSScheduleCommandsTest : public testing::Test {
protected:
    static std::size_t tasks() { return RuvoTSTaskSet::getInstance().size(); }

    TestSupport::StoreFolder folder_;
    TestSupport::TestClock clock_;
    OpenScheduler scheduler_;
};

TEST_F(RuvoTSScheduleCommandsTest, SchedulesACommand) {
    FakeConnection connection;
    sendSchedule(connection, "nightly");
    const auto answer = OpenScheduler::request(connection);
    ASSERT_EQ(answer.size(), 1u);
    const auto task = RuvoTSTaskSet::getInstance().find("nightly");
    ASSERT_TRUE(task);
    EXPECT_EQ(answer[0], "int " + std::to_string(task->getHandle()));
    EXPECT_EQ(connection.reads(),
              (Texts{"string", "string", "string", "string", "string", "int", "int", "int", "int",
                     "int", "int", "int", "string"}));
    EXPECT_EQ(connection.unread(), 0u);
    EXPECT_EQ(folder_.lines(),
              Texts{"78563412 exec nightly%00 2024 06 15 13 02 03 0 prog%00 %2Fwork%00 "
                    "%2Dx%00 out%2Etxt%00"});
    EXPECT_TRUE(scheduler_.events().awaitStates(task->getHandle(), {2}));
}

TEST_F(RuvoTSScheduleCommandsTest, SchedulesBytes) {
    FakeConnection connection;
    sendBlob(connection, "raw", std::string("\0\x01\xFF", 3));
    const auto answer = OpenScheduler::request(connection);
    const auto task = RuvoTSTaskSet::getInstance().find("raw");
    ASSERT_TRUE(task);
    EXPECT_EQ(answer, Texts{"int " + std::to_string(task->getHandle())});
    EXPECT_EQ(connection.reads(),
              (Texts{"string", "string", "int", "bytes", "unsigned", "unsigned", "unsigned",
                     "unsigned", "unsigned", "unsigned", "unsigned"}));
    EXPECT_EQ(task->getNextTime(), kNoon + 3723);
    EXPECT_EQ(task->getFrequency(), 3u);
    EXPECT_EQ(static_cast<const RuvoTSBlobTask&>(*task).getBlob(), std::string("\0\x01\xFF", 3));
    EXPECT_EQ(folder_.lines().size(), 1u);
    EXPECT_TRUE(folder_.lines()[0].ends_with(" 3 78563412 0001FF"));
}

TEST_F(RuvoTSScheduleCommandsTest, RefusesASecondTaskOfAName) {
    const std::int32_t handle = OpenScheduler::schedule("a", "prog", "", kNoon + 60, 0);
    EXPECT_GE(handle, 0);
    const LogCapture log(3);
    FakeConnection exec;
    sendSchedule(exec, "a");
    EXPECT_EQ(OpenScheduler::request(exec), Texts{"int -11"});
    EXPECT_EQ(exec.unread(), 0u);
    FakeConnection blob;
    sendBlob(blob, "a", "bytes");
    EXPECT_EQ(OpenScheduler::request(blob), Texts{"int -11"});
    EXPECT_EQ(blob.unread(), 0u);
    EXPECT_EQ(log.texts(3),
              (Texts{"RUVO_TS_SCHEDULE::handleClient: SCHEDULE EXEC ERROR name not unique NAME=a",
                     "RUVO_TS_SCHEDULE_BLOB::handleClient: SCHEDULE BLOB ERROR name not unique "
                     "NAME=a"}));
    EXPECT_EQ(tasks(), 1u);
    EXPECT_EQ(RuvoTSTaskSet::getInstance().find(handle)->getNextTime(), kNoon + 60);
    EXPECT_EQ(folder_.lines().size(), 1u);
}

TEST_F(RuvoTSScheduleCommandsTest, TakesNamesExactly) {
    for (const std::string name : {"a", "A", "a ", "", " ", "%", "a%00", "\xC3\xBC"}) {
        EXPECT_GE(OpenScheduler::schedule(name, "p", "", kNoon + 60, 0), 0) << name;
        EXPECT_EQ(OpenScheduler::schedule(name, "p", "", kNoon + 60, 0), -11) << name;
    }
    EXPECT_GE(OpenScheduler::schedule(std::string("a\0b", 3), "p", "", kNoon + 60, 0), 0);
    EXPECT_GE(OpenScheduler::schedule(std::string("a\0c", 3), "p", "", kNoon + 60, 0), 0);
}

TEST_F(RuvoTSScheduleCommandsTest, TakesWhateverValuesComeInADate) {
    int number = 0;
    for (const int value : {INT32_MIN, -1, 0, 1, 99, INT32_MAX}) {
        for (const bool blob : {false, true}) {
            FakeConnection connection;
            const std::string name = std::to_string(++number);
            if (blob) {
                connection.sendString("RUVO_TS_SCHEDULE_BLOB").sendString(name).sendInt(0);
            } else {
                connection.sendString("RUVO_TS_SCHEDULE").sendString(name).sendString("");
                connection.sendString("").sendString("");
            }
            for (int i = 0; i < 7; ++i) connection.sendInt(value);
            if (!blob) connection.sendString("");
            EXPECT_GE(TestSupport::numberOf(OpenScheduler::request(connection).at(0)), 0);
            const auto task = RuvoTSTaskSet::getInstance().find(name);
            EXPECT_EQ(task->getFrequency(), static_cast<std::uint32_t>(value));
            EXPECT_EQ(task->getNextTime(), makeTime(value, value, value, value, value, value));
        }
    }
    EXPECT_EQ(folder_.lines().size(), 12u);
}

TEST_F(RuvoTSScheduleCommandsTest, TakesNamesOfAMegabyte) {
    const std::string name(1 << 20, 'n');
    const std::int32_t handle =
        OpenScheduler::schedule(name, name, name, kNoon + 60, 0, name, name);
    EXPECT_GE(handle, 0);
    EXPECT_EQ(RuvoTSTaskSet::getInstance().find(name)->getHandle(), handle);
    EXPECT_GT(folder_.lines().at(0).size(), 5u << 20);
}

TEST_F(RuvoTSScheduleCommandsTest, RefusesBytesOfAnImpossibleLength) {
    const int limit = static_cast<int>(VornNet::VornNetLimits::getInstance().blockBytes);
    for (const int length : {-1, INT32_MIN, limit + 1, INT32_MAX}) {
        FakeConnection connection;
        connection.sendString("RUVO_TS_SCHEDULE_BLOB").sendString("raw").sendInt(length);
        connection.sendBytes(std::string(100, 'x'));
        EXPECT_THROW(OpenScheduler::request(connection), VornException) << length;
        EXPECT_EQ(connection.written(), Texts{});
        EXPECT_EQ(connection.unread(), 100u);
    }
    EXPECT_EQ(tasks(), 0u);
    EXPECT_FALSE(TestSupport::exists(folder_.store()));
}

// A length that was declared and does not come takes no memory.
TEST_F(RuvoTSScheduleCommandsTest, StoresNothingWhenTheBytesDoNotCome) {
    FakeConnection connection;
    connection.sendString("RUVO_TS_SCHEDULE_BLOB").sendString("raw").sendInt(60'000'000);
    connection.sendBytes("abc");
    const std::size_t before = AllocationCount::ofThisThread().bytes;
    EXPECT_THROW(OpenScheduler::request(connection), VornException);
    EXPECT_LT(AllocationCount::ofThisThread().bytes - before, 500'000u);
    EXPECT_EQ(connection.written(), Texts{});
    EXPECT_EQ(tasks(), 0u);

    // The bytes that do come are seen here.
    const std::size_t between = AllocationCount::ofThisThread().bytes;
    OpenScheduler::scheduleBlob("whole", std::string(1'000'000, 'x'), kNoon + 60, 0);
    EXPECT_GT(AllocationCount::ofThisThread().bytes - between, 1'000'000u);
}

TEST_F(RuvoTSScheduleCommandsTest, StoresNothingWhenTheRequestBreaksOff) {
    FakeConnection whole;
    sendSchedule(whole, "nightly");
    for (int operations = 1; operations < 13; ++operations) {
        FakeConnection connection;
        sendSchedule(connection, "nightly");
        connection.failAfter(operations);
        EXPECT_THROW(OpenScheduler::request(connection), VornException) << operations;
        EXPECT_EQ(connection.written(), Texts{});
    }
    EXPECT_EQ(tasks(), 0u);
}

TEST_F(RuvoTSScheduleCommandsTest, TakesBytesOfAllSizes) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{65536},
                                   std::size_t{10'000'000}}) {
        const std::string name = std::to_string(size);
        std::string bytes(size, '\0');
        for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7);
        EXPECT_GE(OpenScheduler::scheduleBlob(name, bytes, kNoon + 60, 0), 0);
        const auto task = RuvoTSTaskSet::getInstance().find(name);
        EXPECT_EQ(static_cast<const RuvoTSBlobTask&>(*task).getBlob(), bytes);
    }
}

TEST_F(RuvoTSScheduleCommandsTest, AnswersWithAHandleAlthoughTheStoreCannotBeWritten) {
    const TestSupport::Variable nowhere("TEMP", folder_.file("nowhere"));
    const std::int32_t handle = OpenScheduler::schedule("a", "p", "", kNoon + 60, 0);
    EXPECT_GE(handle, 0);
    EXPECT_EQ(OpenScheduler::ask("RUVO_TS_TASK_STATE", handle), Texts{"int 2"});
    EXPECT_EQ(OpenScheduler::ask("RUVO_TS_CANCEL", handle),
              Texts{"int " + std::to_string(handle)});
}

TEST_F(RuvoTSScheduleCommandsTest, RefusesTasksWhileTheEngineIsNotStarted) {
    OpenScheduler::schedule("kept", "p", "", kNoon + 60, 0);
    scheduler_.stop();
    EXPECT_THROW(OpenScheduler::schedule("a", "p", "", kNoon + 60, 0), VornException);
    EXPECT_EQ(OpenScheduler::ask("RUVO_TS_CANCEL", 5), Texts{"int -9"});
    EXPECT_EQ(folder_.lines().size(), 1u);
}

// ---- cancelling ------------------------------------------------------------------

TEST_F(RuvoTSScheduleCommandsTest, CancelsATask) {
    const std::int32_t handle = OpenScheduler::schedule("a", "p", "", kNoon + 60, 0);
    const std::int32_t other = OpenScheduler::scheduleBlob("b", "x", kNoon + 60, 0);
    const std::string number = std::to_string(handle);
    FakeConnection connection;
    connection.sendString("RUVO_TS_CANCEL").sendInt(handle);
    EXPECT_EQ(OpenScheduler::request(connection), Texts{"int " + number});
    EXPECT_EQ(connection.reads(), (Texts{"string", "unsigned"}));
    EXPECT_EQ(folder_.lines().size(), 1u);
    EXPECT_EQ(OpenScheduler::ask("RUVO_TS_TASK_STATE", handle), Texts{"int -9"});
    EXPECT_TRUE(scheduler_.events().awaitStates(handle, {2, -1}));
    // Once only.
    const LogCapture log(3);
    EXPECT_EQ(OpenScheduler::ask("RUVO_TS_CANCEL", handle), Texts{"int -9"});
    EXPECT_EQ(log.texts(3), Texts{"RUVO_TS_CANCEL::handleClient: CANCEL ERROR handle not found "
                                  "TASKHANDLE=" + number});
    EXPECT_EQ(OpenScheduler::ask("RUVO_TS_CANCEL", other),
              Texts{"int " + std::to_string(other)});
    EXPECT_EQ(folder_.lines().size(), 0u);
    // The name is free again.
    EXPECT_GE(OpenScheduler::schedule("a", "p", "", kNoon + 60, 0), 0);
    clock_.advance(86400);
}

TEST_F(RuvoTSScheduleCommandsTest, LogsItsSteps) {
    const LogCapture log(9);
    const std::int32_t handle = OpenScheduler::schedule("a", "p", "-x", kNoon + 60, 3, "/w", "l");
    const auto texts = log.beginning("RUVO_TS_SCHEDULE");
    EXPECT_EQ(texts,
              (Texts{"RUVO_TS_SCHEDULE::handleClient: enter",
                     "RUVO_TS_SCHEDULE::handleClient:  TASKNAME=a APPNAME=p PATH=/w PARAMS=-x "
                     "FREQ=3 MONTH=6 DAY=15 YR=2024 HR=12 MIN=1 SEC=0 LOGFILE=l",
                     "RUVO_TS_SCHEDULE::handleClient: SCHEDULE DONE handle returned HANDLE=" +
                         std::to_string(handle),
                     "RUVO_TS_SCHEDULE::handleClient: exit"}));
    const std::int32_t blob = OpenScheduler::scheduleBlob("b", "12345", kNoon + 60, 3);
    EXPECT_EQ(log.beginning("RUVO_TS_SCHEDULE_BLOB"),
              (Texts{"RUVO_TS_SCHEDULE_BLOB::handleClient: enter",
                     "RUVO_TS_SCHEDULE_BLOB::handleClient:  TASKNAME=b FREQ=3 MONTH=6 DAY=15 "
                     "YR=2024 HR=12 MIN=1 SEC=0",
                     "RUVO_TS_SCHEDULE_BLOB::handleClient: ScheduleBlob2 NLENBLOB=5 NLENRECVD=5 "
                     "ERRORCODE=0",
                     "RUVO_TS_SCHEDULE_BLOB::handleClient: SCHEDULE DONE handle returned HANDLE=" +
                         std::to_string(blob),
                     "RUVO_TS_SCHEDULE_BLOB::handleClient: exit"}));
    OpenScheduler::ask("RUVO_TS_CANCEL", blob);
    EXPECT_EQ(log.beginning("RUVO_TS_CANCEL"),
              (Texts{"RUVO_TS_CANCEL::handleClient: enter",
                     "RUVO_TS_CANCEL::handleClient: TASKHANDLE=" + std::to_string(blob),
                     "RUVO_TS_CANCEL::handleClient: SCHEDULE DONE handle returned HANDLE=" +
                         std::to_string(blob),
                     "RUVO_TS_CANCEL::handleClient: exit"}));
}

// ---- room for events -------------------------------------------------------------

// Holds the notifier's queue until it is told to go on.
class Holder : public VornNet::VornProxyDependent {
public:
    Holder() : VornProxyDependent("test:holder", 0) {}
    bool checkEvent(const VornSupport::VornNotification&) override {
        holds.set();
        go.wait();
        return false;
    }
    VornSupport::VornEvent holds{true};
    VornSupport::VornEvent go{true};

protected:
    void addContent(VornNet::VornConnection&, const VornSupport::VornNotification&) override {}
};

// What announces a change waits while more events wait than may, before it reads
// anything but its name.
TEST(RuvoTSCommands, WaitForRoomBeforeTheyChangeAnything) {
    const TestSupport::StoreFolder folder;
    const TestSupport::TestClock clock;
    OpenScheduler scheduler;
    auto& limit = VornNet::VornNetLimits::getInstance().eventQueueBytes;
    auto& container = VornNet::VornProxyDependentContainer::getInstance();
    for (const std::string command : {"RUVO_TS_SCHEDULE", "RUVO_TS_SCHEDULE_BLOB",
                                      "RUVO_TS_CANCEL"}) {
        const auto holder = VornSupport::makeCounted<Holder>();
        container.add(holder);
        const std::int32_t raised = OpenScheduler::scheduleBlob(command, "", kNoon + 60, 0);
        holder->holds.wait();
        FakeConnection connection;
        if (command == "RUVO_TS_SCHEDULE") sendSchedule(connection, "new");
        if (command == "RUVO_TS_SCHEDULE_BLOB") sendBlob(connection, "too", "bytes");
        if (command == "RUVO_TS_CANCEL") connection.sendString(command).sendInt(raised);
        const auto before = limit.exchange(0);
        const std::size_t tasks = RuvoTSTaskSet::getInstance().size();
        std::jthread client([&] { OpenScheduler::request(connection); });
        EXPECT_TRUE(TestSupport::waitUntil([&] { return connection.flushes() == 1; })) << command;
        EXPECT_EQ(connection.reads(), Texts{"string"}) << command;
        EXPECT_EQ(RuvoTSTaskSet::getInstance().size(), tasks);
        limit = before;
        holder->go.set();
        client.join();
        EXPECT_EQ(connection.unread(), 0u) << command;
        EXPECT_EQ(RuvoTSTaskSet::getInstance().size(),
                  command == "RUVO_TS_CANCEL" ? tasks - 1 : tasks + 1);
        container.remove(*holder);
    }
}

}  // namespace
