#include "client/RuvoTasks.h"
#include "tests/client/ScriptedDaemon.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace ClientTest;
using Ruvo::RuvoClient;
using Ruvo::RuvoClientError;
using Ruvo::RuvoFrequency;
using Ruvo::RuvoProblem;
using Ruvo::RuvoTaskPlan;
using Ruvo::RuvoTasks;

namespace {

std::string task(std::string_view command, const std::string& arguments = "") {
    return engineRequest("Scheduler", command, arguments);
}

std::string following(std::string_view command, const std::string& arguments) {
    return engineRequest("SchedulerFollow", command, arguments);
}

// Runs a test's calls against a daemon that expects `request` and answers.
template <typename Calls>
void against(const std::string& request, const std::string& answer, Calls calls) {
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        peer.serve(request, answer);
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    RuvoTasks tasks(client);
    calls(tasks);
}

template <typename Call>
void expectProblem(Call call, RuvoProblem problem, std::int32_t code = 0) {
    try {
        call();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const RuvoClientError& error) {
        EXPECT_EQ(error.problem(), problem) << error.what();
        EXPECT_EQ(error.code(), code) << error.what();
    }
}

template <typename Call>
void expectNoSuchTask(const std::string& request, const std::string& answer, Call call) {
    against(request, answer, [&](RuvoTasks& tasks) {
        expectProblem([&] { call(tasks); }, RuvoProblem::Declined, -9);
    });
}

const RuvoTaskPlan kPlan{.time = {.year = 2026, .month = 11, .day = 22, .hour = 2, .minute = 30,
                                  .second = 5},
                         .frequency = RuvoFrequency::Weekly};
// Frequency, month, day, year, hour, minute, second.
const std::string kPlanBytes =
    i32(1) + i32(11) + i32(22) + i32(2026) + i32(2) + i32(30) + i32(5);

}  // namespace

TEST(RuvoTasks, SchedulesWithItsFieldsInTheOrderOfTheWire) {
    const std::string request =
        task("RUVO_TS_SCHEDULE", str("name") + str("prog") + str("dir") + str("-x") + kPlanBytes +
                                     str("log"));
    const Ruvo::RuvoTaskCommand command{
        .program = "prog", .parameters = "-x", .directory = "dir", .logFile = "log"};
    against(request, i32(17), [&](RuvoTasks& tasks) {
        EXPECT_EQ(tasks.schedule("name", command, kPlan), 17);
    });
    against(request, i32(-11), [&](RuvoTasks& tasks) {
        expectProblem([&] { tasks.schedule("name", command, kPlan); }, RuvoProblem::Declined, -11);
    });
}

TEST(RuvoTasks, SchedulesBytesBehindTheirNumber) {
    const std::string bytes("a\0\xff", 3);
    against(task("RUVO_TS_SCHEDULE_BLOB", str("name") + i32(3) + bytes + kPlanBytes), i32(0),
            [&](RuvoTasks& tasks) { EXPECT_EQ(tasks.scheduleBlob("name", bytes, kPlan), 0); });
    against(task("RUVO_TS_SCHEDULE_BLOB", str("name") + i32(0) + kPlanBytes), i32(-11),
            [&](RuvoTasks& tasks) {
                expectProblem([&] { tasks.scheduleBlob("name", "", kPlan); },
                              RuvoProblem::Declined, -11);
            });
}

TEST(RuvoTasks, LooksUpAName) {
    const std::string request = task("RUVO_TS_SCHEDULED_TASK_LOOKUP", str("name"));
    against(request, i32(0), [](RuvoTasks& tasks) { EXPECT_EQ(tasks.lookup("name"), 0); });
    against(request, i32(-9), [](RuvoTasks& tasks) { EXPECT_FALSE(tasks.lookup("name")); });
}

TEST(RuvoTasks, CancelsAndAsks) {
    against(task("RUVO_TS_CANCEL", i32(5)), i32(5), [](RuvoTasks& tasks) { tasks.cancel(5); });
    against(task("RUVO_TS_TASK_STATE", i32(5)), i32(2),
            [](RuvoTasks& tasks) { EXPECT_EQ(tasks.state(5), RuvoTasks::Waiting); });
    for (const std::int32_t status : {0, 7, -1, -999, -9999}) {
        against(task("RUVO_TS_EXIT_CODE", i32(5)), i32(status),
                [&](RuvoTasks& tasks) { EXPECT_EQ(tasks.exitCode(5), status); });
    }
    expectNoSuchTask(task("RUVO_TS_CANCEL", i32(5)), i32(-9), [](auto& t) { t.cancel(5); });
    expectNoSuchTask(task("RUVO_TS_TASK_STATE", i32(5)), i32(-9), [](auto& t) { t.state(5); });
    expectNoSuchTask(task("RUVO_TS_EXIT_CODE", i32(5)), i32(-9), [](auto& t) { t.exitCode(5); });
}

TEST(RuvoTasks, TellsTheLastRun) {
    const std::string request = task("RUVO_TS_EXECUTION_INFO", i32(5) + i32(24));
    against(request, str("2024-02-29 12:00:00 UTC") + i32(23), [](RuvoTasks& tasks) {
        EXPECT_EQ(tasks.lastRun(5), "2024-02-29 12:00:00 UTC");
    });
    expectNoSuchTask(request, str("") + i32(-9), [](auto& t) { t.lastRun(5); });
}

TEST(RuvoTasks, TellsTheNextRun) {
    const std::string request = task("RUVO_TS_GET_NEXT_TIME", i32(5));
    against(request, i32(0) + str("2026 11 22 02 30 05") + i32(1),
            [](RuvoTasks& tasks) { EXPECT_EQ(tasks.nextRun(5), kPlan); });
    // A time before 1970.
    against(request, i32(0) + str(std::string(19, ' ')) + i32(7), [](RuvoTasks& tasks) {
        EXPECT_EQ(tasks.nextRun(5), (RuvoTaskPlan{{}, static_cast<RuvoFrequency>(7)}));
    });
    expectNoSuchTask(request, i32(-9) + str("task_not_scheduled") + i32(0),
                     [](auto& t) { t.nextRun(5); });
}

TEST(RuvoTasks, RetrievesBytes) {
    const std::string request = task("RUVO_TS_RETRIEVE_BLOB", i32(5));
    const std::string bytes("a\0\xff", 3);
    against(request, i32(0) + i32(3) + bytes,
            [&](RuvoTasks& tasks) { EXPECT_EQ(tasks.retrieve(5), bytes); });
    against(request, i32(0) + i32(0),
            [](RuvoTasks& tasks) { EXPECT_EQ(tasks.retrieve(5), ""); });
    expectNoSuchTask(request, i32(-9) + i32(0), [](auto& t) { t.retrieve(5); });
    for (const std::int64_t size : {std::int64_t{-1}, std::int64_t{INT32_MIN}}) {
        against(request, i32(0) + i32(size), [](RuvoTasks& tasks) {
            expectProblem([&] { tasks.retrieve(5); }, RuvoProblem::Protocol);
            expectProblem([&] { tasks.state(5); }, RuvoProblem::Closed);
        });
    }
}

TEST(RuvoTasks, ListsNamesAsTheyWereGiven) {
    using Names = std::vector<std::string>;
    against(task("RUVO_TS_LIST_EXEC"), i32(0) + str("A B%20b  %25%00 "), [](RuvoTasks& tasks) {
        EXPECT_EQ(tasks.list(), (Names{"A", "B b", "", std::string("%\0", 2)}));
    });
    against(task("RUVO_TS_LIST_BLOB"), i32(0) + str(""),
            [](RuvoTasks& tasks) { EXPECT_EQ(tasks.listBlobs(), Names{}); });
    for (const std::string broken : {"%", "%2", "a%2 ", "%2g ", "%zz "}) {
        against(task("RUVO_TS_LIST_BLOB"), i32(0) + str(broken), [&](RuvoTasks& tasks) {
            expectProblem([&] { tasks.listBlobs(); }, RuvoProblem::Protocol);
        });
    }
}

TEST(RuvoTasks, ListsMoreThanATextOfOtherAnswersMayHold) {
    std::string text;
    std::vector<std::string> names;
    while (text.size() < std::size_t{2} << 20) {
        names.push_back("task " + std::to_string(names.size()));
        text += "task%20" + names.back().substr(5) + ' ';
    }
    const std::string one(std::size_t{3} << 20, 'x');
    against(task("RUVO_TS_LIST_EXEC"), i32(0) + str(text),
            [&](RuvoTasks& tasks) { EXPECT_TRUE(tasks.list() == names); });
    against(task("RUVO_TS_LIST_BLOB"), i32(0) + str(one + ' '), [&](RuvoTasks& tasks) {
        EXPECT_TRUE(tasks.listBlobs() == std::vector<std::string>{one});
    });
}

TEST(RuvoTasks, RetrievesMoreThanABlockOfOtherAnswersMayHold) {
    const std::string bytes((std::size_t{65} << 20) + 1, '\x80');
    ASSERT_GT(bytes.size(), Ruvo::RuvoClientOptions().maxBlockBytes);
    against(task("RUVO_TS_RETRIEVE_BLOB", i32(5)),
            i32(0) + i32(static_cast<std::int64_t>(bytes.size())) + bytes,
            [&](RuvoTasks& tasks) { EXPECT_TRUE(tasks.retrieve(5) == bytes); });
}

TEST(RuvoTasks, TakesLongAnswersUpToTheirOwnLimit) {
    const std::string names = i32(0) + str("abcdefghi ");
    const std::string block = i32(0) + i32(10) + "abcdefghij";
    for (const std::uint32_t limit : {9U, 10U}) {
        ScriptedDaemon daemon([&](ScriptedPeer& peer) {
            peer.open();
            peer.serve(task("RUVO_TS_LIST_EXEC"), names);
            if (limit == 10) peer.serve(task("RUVO_TS_RETRIEVE_BLOB", i32(5)), block);
            peer.awaitClose();
        });
        auto options = daemon.options();
        options.maxLongBytes = limit;
        RuvoClient client(options);
        RuvoTasks tasks(client);
        if (limit == 10) {
            EXPECT_EQ(tasks.list(), std::vector<std::string>{"abcdefghi"});
            EXPECT_EQ(tasks.retrieve(5), "abcdefghij");
        } else {
            expectProblem([&] { tasks.list(); }, RuvoProblem::Protocol);
        }
        EXPECT_EQ(client.isOpen(), limit == 10);
    }
}

TEST(RuvoTasks, FollowsATask) {
    const std::string arguments = str("tcp:h:1") + i32(3) + i32(5);
    against(following("RUVO_TS_FOLLOW", arguments), i32(0),
            [](RuvoTasks& tasks) { tasks.follow("tcp:h:1", 3, 5); });
    against(following("RUVO_TS_UNFOLLOW", arguments), i32(0),
            [](RuvoTasks& tasks) { tasks.unfollow("tcp:h:1", 3, 5); });
    expectNoSuchTask(following("RUVO_TS_FOLLOW", arguments), i32(-9),
                     [](auto& t) { t.follow("tcp:h:1", 3, 5); });
    expectNoSuchTask(following("RUVO_TS_UNFOLLOW", arguments), i32(-9),
                     [](auto& t) { t.unfollow("tcp:h:1", 3, 5); });
}

TEST(RuvoTasks, TellsTheLastStatusApartFromNoTask) {
    const std::string request = following("RUVO_TS_LAST_STATUS", i32(5));
    against(request, i32(0) + i32(-9),
            [](RuvoTasks& tasks) { EXPECT_EQ(tasks.lastStatus(5), -9); });
    expectNoSuchTask(request, i32(-9) + i32(0), [](auto& t) { t.lastStatus(5); });
}
