#include "scheduler/RuvoTSQueryCommands.h"

#include "scheduler/RuvoTSTaskSet.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace RuvoService;
using TestSupport::FakeConnection;
using TestSupport::kNoon;
using TestSupport::LogCapture;
using TestSupport::OpenScheduler;

namespace {

using Texts = std::vector<std::string>;

class RuvoTSQueryCommandsTest : public testing::Test {
protected:
    std::int32_t exec(const std::string& name = "exec", std::int32_t time = kNoon + 60,
                      std::uint32_t frequency = 0) {
        return OpenScheduler::schedule(name, "p", "", time, frequency);
    }
    std::int32_t blob(const std::string& bytes, const std::string& name = "blob") {
        return OpenScheduler::scheduleBlob(name, bytes, kNoon + 60, 1);
    }
    static Texts ask(const std::string& command, std::int32_t handle) {
        return OpenScheduler::ask(command, handle);
    }
    static Texts list(const std::string& command) {
        FakeConnection connection;
        connection.sendString(command);
        return OpenScheduler::request(connection);
    }
    static Texts info(std::int32_t handle, std::int32_t size) {
        FakeConnection connection;
        connection.sendString("RUVO_TS_EXECUTION_INFO").sendInt(handle).sendInt(size);
        return OpenScheduler::request(connection);
    }
    static Texts readsOf(const std::string& command, int numbers) {
        FakeConnection connection;
        connection.sendString(command);
        for (int i = 0; i < numbers; ++i) connection.sendInt(-1);
        OpenScheduler::request(connection);
        EXPECT_EQ(connection.unread(), 0u);
        return connection.reads();
    }

    TestSupport::StoreFolder folder_;
    TestSupport::TestClock clock_;
    OpenScheduler scheduler_;
};

TEST_F(RuvoTSQueryCommandsTest, FindsATaskByItsName) {
    const auto lookUp = [](const std::string& name) {
        FakeConnection connection;
        connection.sendString("RUVO_TS_SCHEDULED_TASK_LOOKUP").sendString(name);
        return OpenScheduler::request(connection);
    };
    const std::int32_t a = exec("a b");
    const std::int32_t b = blob("", "raw");
    EXPECT_EQ(lookUp("a b"), Texts{"int " + std::to_string(a)});
    EXPECT_EQ(lookUp("raw"), Texts{"int " + std::to_string(b)});
    const LogCapture log(9);
    EXPECT_EQ(lookUp("a b"), Texts{"int " + std::to_string(a)});
    EXPECT_EQ(log.beginning("RUVO_TS_SCHEDULED_TASK_LOOKUP"),
              (Texts{"RUVO_TS_SCHEDULED_TASK_LOOKUP::handleClient: enter",
                     "RUVO_TS_SCHEDULED_TASK_LOOKUP::handleClient: NAME=a b",
                     "RUVO_TS_SCHEDULED_TASK_LOOKUP::handleClient: SCHEDULE DONE handle returned "
                     "HANDLE=" + std::to_string(a),
                     "RUVO_TS_SCHEDULED_TASK_LOOKUP::handleClient: exit"}));
    EXPECT_EQ(lookUp("A b"), Texts{"int -9"});
    EXPECT_EQ(lookUp("a%20b"), Texts{"int -9"});
    EXPECT_EQ(lookUp(""), Texts{"int -9"});
    EXPECT_TRUE(log.has(3, "RUVO_TS_SCHEDULED_TASK_LOOKUP::handleClient: SCHEDULE ERROR name not "
                           "found NAME=A b"));
}

TEST_F(RuvoTSQueryCommandsTest, TellsTheState) {
    const std::int32_t a = exec();
    EXPECT_EQ(ask("RUVO_TS_TASK_STATE", a), Texts{"int 2"});
    const auto task = RuvoTSTaskSet::getInstance().find(a);
    task->setState(RuvoTSTask::Running, 0);
    EXPECT_EQ(ask("RUVO_TS_TASK_STATE", a), Texts{"int 0"});
    task->setState(RuvoTSTask::Ended, 4);
    EXPECT_EQ(ask("RUVO_TS_TASK_STATE", a), Texts{"int 1"});
    EXPECT_EQ(ask("RUVO_TS_TASK_STATE", blob("")), Texts{"int 2"});
    EXPECT_EQ(ask("RUVO_TS_TASK_STATE", -1), Texts{"int -9"});
    EXPECT_EQ(readsOf("RUVO_TS_TASK_STATE", 1), (Texts{"string", "unsigned"}));
}

TEST_F(RuvoTSQueryCommandsTest, TellsTheExitStatusOfTasksWithACommand) {
    const std::int32_t a = exec();
    EXPECT_EQ(ask("RUVO_TS_EXIT_CODE", a), Texts{"int -999"});
    const auto task = RuvoTSTaskSet::getInstance().find(a);
    task->setState(RuvoTSTask::Ended, 42);
    EXPECT_EQ(ask("RUVO_TS_EXIT_CODE", a), Texts{"int 42"});
    task->setState(RuvoTSTask::Waiting, 0);
    EXPECT_EQ(ask("RUVO_TS_EXIT_CODE", a), Texts{"int 42"});
    EXPECT_EQ(ask("RUVO_TS_EXIT_CODE", blob("")), Texts{"int -9"});
    EXPECT_EQ(ask("RUVO_TS_EXIT_CODE", -1), Texts{"int -9"});
    EXPECT_EQ(readsOf("RUVO_TS_EXIT_CODE", 1), (Texts{"string", "unsigned"}));
}

TEST_F(RuvoTSQueryCommandsTest, TellsWhenTheLastRunEnded) {
    const std::int32_t a = exec();
    EXPECT_EQ(info(a, 24), (Texts{"string 1970-01-01 00:00:00 UTC", "int 23"}));
    EXPECT_EQ(info(a, 1000), (Texts{"string 1970-01-01 00:00:00 UTC", "int 23"}));
    const auto task = RuvoTSTaskSet::getInstance().find(a);
    clock_.advance(30);
    task->rescheduleTask();
    EXPECT_EQ(info(a, 24), (Texts{"string 2024-06-15 12:00:30 UTC", "int 23"}));
    for (const std::int32_t little : {INT32_MIN, -1, 0, 1, 23}) {
        EXPECT_EQ(info(a, little), (Texts{"string ", "int 24"})) << little;
    }
    EXPECT_EQ(info(blob(""), 24), (Texts{"string ", "int -9"}));
    EXPECT_EQ(info(-1, 24), (Texts{"string ", "int -9"}));
    EXPECT_EQ(readsOf("RUVO_TS_EXECUTION_INFO", 2), (Texts{"string", "int", "int"}));
}

// Of a clock before 1970 only the length says that the blanks are no time.
TEST_F(RuvoTSQueryCommandsTest, TellsATimeThatIsNoneAsBlanks) {
    const std::int32_t a = exec();
    clock_.jump(-kNoon - 100);
    RuvoTSTaskSet::getInstance().find(a)->rescheduleTask();
    EXPECT_EQ(info(a, 24), (Texts{"string " + std::string(23, ' '), "int 24"}));
    EXPECT_EQ(info(a, 0), (Texts{"string " + std::string(23, ' '), "int 24"}));
}

TEST_F(RuvoTSQueryCommandsTest, ReturnsTheBytesAgainAndAgain) {
    const std::string bytes("a\0\xFF", 3);
    const std::int32_t b = blob(bytes);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(ask("RUVO_TS_RETRIEVE_BLOB", b), (Texts{"int 0", "int 3", "bytes " + bytes}));
    }
    EXPECT_EQ(ask("RUVO_TS_RETRIEVE_BLOB", blob("", "empty")),
              (Texts{"int 0", "int 0", "bytes "}));
    const Texts none{"int -9", "int 0", "bytes "};
    EXPECT_EQ(ask("RUVO_TS_RETRIEVE_BLOB", exec()), none);
    EXPECT_EQ(ask("RUVO_TS_RETRIEVE_BLOB", -1), none);
    EXPECT_EQ(readsOf("RUVO_TS_RETRIEVE_BLOB", 1), (Texts{"string", "int"}));
}

TEST_F(RuvoTSQueryCommandsTest, ListsTheNamesOfEachKind) {
    EXPECT_EQ(list("RUVO_TS_LIST_EXEC"), (Texts{"int 0", "string "}));
    EXPECT_EQ(list("RUVO_TS_LIST_BLOB"), (Texts{"int 0", "string "}));
    exec("A");
    blob("", "raw");
    exec("B b");
    EXPECT_EQ(list("RUVO_TS_LIST_EXEC"), (Texts{"int 0", "string A B%20b "}));
    EXPECT_EQ(list("RUVO_TS_LIST_BLOB"), (Texts{"int 0", "string raw "}));
}

TEST_F(RuvoTSQueryCommandsTest, TellsTheNextTime) {
    const std::int32_t a = exec("a", kNoon + 61, 7);
    EXPECT_EQ(ask("RUVO_TS_GET_NEXT_TIME", a),
              (Texts{"int 0", "string 2024 06 15 12 01 01", "int3 7"}));
    EXPECT_EQ(ask("RUVO_TS_GET_NEXT_TIME", blob("")),
              (Texts{"int 0", "string 2024 06 15 12 01 00", "int3 1"}));
    EXPECT_EQ(ask("RUVO_TS_GET_NEXT_TIME", exec("never", kNoon, 4'294'967'295u))[2], "int3 -1");
    EXPECT_EQ(ask("RUVO_TS_GET_NEXT_TIME", exec("before", -5, 0)),
              (Texts{"int 0", "string " + std::string(19, ' '), "int3 0"}));
    EXPECT_EQ(ask("RUVO_TS_GET_NEXT_TIME", -1),
              (Texts{"int -9", "string task_not_scheduled", "int3 0"}));
    EXPECT_EQ(readsOf("RUVO_TS_GET_NEXT_TIME", 1), (Texts{"string", "int"}));
}

TEST_F(RuvoTSQueryCommandsTest, LogsWhatItDoesNotFind) {
    const LogCapture log(3);
    ask("RUVO_TS_TASK_STATE", -1);
    ask("RUVO_TS_EXIT_CODE", -2);
    info(-3, 24);
    ask("RUVO_TS_RETRIEVE_BLOB", -4);
    ask("RUVO_TS_GET_NEXT_TIME", -5);
    EXPECT_EQ(
        log.texts(3),
        (Texts{"RUVO_TS_TASK_STATE::handleClient: GETSTATE ERROR handle not found TASKHANDLE=-1",
               "RUVO_TS_EXIT_CODE::handleClient: GETEXITCODE ERROR handle not found TASKHANDLE=-2",
               "RUVO_TS_EXECUTION_INFO::handleClient: GETEXECINFO ERROR handle not found "
               "TASKHANDLE=-3",
               "RUVO_TS_RETRIEVE_BLOB::handleClient: RETRIEVE ERROR handle not found "
               "TASKHANDLE=-4",
               "RUVO_TS_GET_NEXT_TIME::handleClient: GETNEXTTIME ERROR handle not found "
               "TASKHANDLE=-5"}));
}

TEST_F(RuvoTSQueryCommandsTest, LogsWhatItFinds) {
    const std::int32_t a = exec("A");
    const std::int32_t b = blob("123");
    const LogCapture log(9);
    list("RUVO_TS_LIST_EXEC");
    list("RUVO_TS_LIST_BLOB");
    ask("RUVO_TS_RETRIEVE_BLOB", b);
    ask("RUVO_TS_GET_NEXT_TIME", a);
    for (const std::string text :
         {"RUVO_TS_LIST_EXEC::handleClient: LISTEXEC SUCCESS NLISTLEN=2 LIST=|A |",
          "RUVO_TS_LIST_BLOB::handleClient: LISTBLOB SUCCESS NLISTLEN=5 LIST=|blob |",
          "RUVO_TS_RETRIEVE_BLOB::handleClient: RETRIEVE SUCCESS NBLOBLEN=3",
          "RUVO_TS_GET_NEXT_TIME::handleClient: GETNEXTTIME SUCCESS NLISTLEN=19 TIME=2024 06 15 "
          "12 01 00"}) {
        EXPECT_TRUE(log.has(9, text)) << text;
    }
}

TEST_F(RuvoTSQueryCommandsTest, LogsTheWayInAndOut) {
    const LogCapture log(9);
    for (const std::string command :
         {"RUVO_TS_SCHEDULED_TASK_LOOKUP", "RUVO_TS_TASK_STATE", "RUVO_TS_EXIT_CODE",
          "RUVO_TS_EXECUTION_INFO", "RUVO_TS_RETRIEVE_BLOB", "RUVO_TS_LIST_EXEC",
          "RUVO_TS_LIST_BLOB", "RUVO_TS_GET_NEXT_TIME"}) {
        FakeConnection connection;
        connection.sendString(command).sendInt(0).sendInt(0);  // or an empty name
        OpenScheduler::request(connection);
        EXPECT_EQ(log.count(9, command + "::handleClient: enter"), 1u) << command;
        EXPECT_EQ(log.count(9, command + "::handleClient: exit"), 1u) << command;
    }
}

}  // namespace
