// The commands "ruvoctl task" against a daemon that follows a script.

#include "client/ruvoctl/TaskTimes.h"
#include "tests/client/RuvoctlTaskRun.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <string>
#include <vector>

using namespace ClientTest;

namespace {

// Schedules with these options and returns the frequency that was sent.
void expectFrequency(const std::string& option, std::int32_t frequency) {
    const std::string plan =
        i32(frequency) + i32(11) + i32(22) + i32(2026) + i32(2) + i32(30) + i32(5);
    Arguments arguments = {"schedule", "backup", "--at", "2026-11-22T02:30:05Z",
                           "--",       "prog",   "-x"};
    if (!option.empty()) arguments.insert(arguments.begin() + 2, option);
    const Result result = runAgainst(
        {{task("RUVO_TS_SCHEDULE", str("backup") + str("prog") + str("") + str("-x") + plan +
                                       str("")),
          i32(5)},
         next(frequency)},
        arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(has(result.out, "task backup has handle 5 and runs ")) << result.out;
    EXPECT_TRUE(has(result.out, "(2026-11-22T02:30:05Z)")) << result.out;
}

}  // namespace

TEST(RuvoctlTask, SchedulesByEachFrequency) {
    expectFrequency("--daily", 0);
    expectFrequency("--weekly", 1);
    expectFrequency("--monthly", 2);
    expectFrequency("--once", 3);
    expectFrequency("", 3);
}

// Whatever time is sent with it, the daemon takes 121 seconds from then.
TEST(RuvoctlTask, SchedulesSoonWithoutATime) {
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(1) + task("RUVO_TS_SCHEDULE", str("backup") + str("p") + str("") + str("") +
                                                          i32(4)));
        peer.read(24);
        peer.expect(str(""));
        peer.send(i32(5));
        peer.serve(next(4).first, next(4).second);
        peer.awaitClose();
    });
    const Result result = run({"--port", std::to_string(daemon.port()), "task", "schedule",
                               "backup", "--soon", "--", "p"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(has(result.out, "task backup has handle 5 and runs once, soon, ")) << result.out;
}

TEST(RuvoctlTask, TellsWhatItScheduledWhenTheRunIsOverAlready) {
    const std::string plan = i32(0) + i32(11) + i32(22) + i32(2026) + i32(2) + i32(30) + i32(5);
    const std::vector<Exchange> exchanges = {
        {task("RUVO_TS_SCHEDULE", str("backup") + str("p") + str("") + str("") + plan + str("")),
         i32(5)},
        {task("RUVO_TS_GET_NEXT_TIME", i32(5)), i32(-9) + str("") + i32(0)}};
    const Arguments arguments = {"schedule", "backup",  "--at", "2026-11-22T02:30:05Z",
                                 "--daily",  "--",      "p"};
    const Result text = runAgainst(exchanges, arguments);
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_EQ(text.out, "task backup has handle 5 and runs daily, " + Ruvoctl::bothTexts(kNext) +
                            '\n');
    Arguments withJson = arguments;
    withJson.insert(withJson.begin() + 1, "--json");
    const auto json = nlohmann::json::parse(runAgainst(exchanges, withJson).out);
    EXPECT_EQ(json["handle"], 5);
    EXPECT_EQ(json["frequency"], "daily");
    EXPECT_EQ(json["nextRun"]["utc"], "2026-11-22T02:30:05Z");
}

TEST(RuvoctlTask, TellsThatANameIsTaken) {
    const std::string plan = i32(3) + i32(11) + i32(22) + i32(2026) + i32(2) + i32(30) + i32(5);
    const Result result = runAgainst(
        {{task("RUVO_TS_SCHEDULE",
               str("backup") + str("prog") + str("") + str("") + plan + str("")),
          i32(-11)}},
        {"schedule", "backup", "--at", "2026-11-22T02:30:05Z", "--", "prog"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(has(result.err, "\"backup\" already")) << result.err;
}

TEST(RuvoctlTask, SendsTheWordsBehindTheMarkAsTheyWereTyped) {
    const std::string plan = i32(3) + i32(11) + i32(22) + i32(2026) + i32(2) + i32(30) + i32(5);
    const Result result = runAgainst(
        {{task("RUVO_TS_SCHEDULE", str("backup") + str("prog") + str("") +
                                       str("[a,b] [] --json --") + plan + str("")),
          i32(5)},
         next(3)},
        {"schedule", "backup", "--shell", "--at", "2026-11-22T02:30:05Z", "--", "prog", "[a,b]",
         "[]", "--json", "--"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(has(result.out, "task backup has handle 5")) << result.out;
}

TEST(RuvoctlTask, TellsWhenATimeIsPast) {
    const std::string plan = i32(3) + i32(2) + i32(29) + i32(2024) + i32(12) + i32(0) + i32(0);
    const Result result = runAgainst(
        {{task("RUVO_TS_SCHEDULE", str("backup") + str("p") + str("") + str("") + plan + str("")),
          i32(5)},
         {task("RUVO_TS_GET_NEXT_TIME", i32(5)), i32(0) + str("2024 02 29 12 00 00") + i32(3)}},
        {"schedule", "backup", "--at", "2024-02-29T12:00Z", "--", "p"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(has(result.err, "that time is past")) << result.err;
}

TEST(RuvoctlTask, RefusesToScheduleNonsenseBeforeConnecting) {
    const TestSupport::TemporaryDirectory folder;
    TestSupport::writeFile(folder.file("order"), "bytes");
    for (const Arguments& arguments :
         {Arguments{"task", "schedule", "x", "--at", "tomorrow", "--", "p"},
          {"task", "schedule", "x", "--", "p"},
          {"task", "schedule", "x", "--at", "+1h"},
          {"task", "schedule", "x", "--at", "2038-01-19T03:14:08Z", "--", "p"},
          {"task", "schedule", "x", "--at", "1969-12-31T23:59:59Z", "--", "p"},
          {"task", "schedule", "x", "--at", "+1h", "p"},
          {"task", "schedule", "x", "--at", "+1h", "--"},
          {"task", "schedule", "x", "--at", "+1h", "--", ""},
          {"task", "schedule", "--at", "+1h", "--", "x", "p"},
          {"task", "schedule", "x", "--daily", "--weekly", "--at", "+1h", "--", "p"},
          {"task", "schedule", "x", "--at", "+1h", "--", "p", "two\nlines"},
          {"task", "schedule", "x", "--soon", "--at", "+1h", "--", "p"},
          {"task", "schedule-blob", "x", folder.file("order"), "--soon", "--at", "+1h"},
          {"task", "schedule-blob", "x", "/no/such/file", "--at", "+1h"},
          {"task", "state", "x", "--handle"},
          {"task", "wait", "x", "--for", "0"},
          {"task", "wait", "x", "--for", "0x1p3"},
          {"task", "watch", "x", "--count", "-1"},
          {"task", "watch", "x", "--count", "1e3"},
          {"task", "state"},
          {"task"}}) {
        Arguments all = {"--port", std::to_string(unusedPort())};
        all.insert(all.end(), arguments.begin(), arguments.end());
        EXPECT_EQ(run(all).status, 2) << ::testing::PrintToString(arguments);
    }
}

TEST(RuvoctlTask, SchedulesTheBytesOfAFile) {
    const TestSupport::TemporaryDirectory folder;
    const std::string bytes("a\0\xff\n", 4);
    TestSupport::writeFile(folder.file("order"), bytes);
    const std::string plan = i32(0) + i32(11) + i32(22) + i32(2026) + i32(2) + i32(30) + i32(5);
    const Result result = runAgainst(
        {{task("RUVO_TS_SCHEDULE_BLOB", str("backup") + i32(4) + bytes + plan), i32(5)}, next(0)},
        {"--json", "schedule-blob", "backup", folder.file("order"), "--daily", "--at",
         "2026-11-22T02:30:05Z"});
    EXPECT_EQ(result.status, 0) << result.err;
    const auto json = nlohmann::json::parse(result.out);
    EXPECT_EQ(json["handle"], 5);
    EXPECT_EQ(json["name"], "backup");
    EXPECT_EQ(json["frequency"], "daily");
    EXPECT_EQ(json["nextRun"]["utc"], "2026-11-22T02:30:05Z");
    EXPECT_EQ(json["nextRun"]["local"], Ruvoctl::localText(kNext));
}

TEST(RuvoctlTask, Lists) {
    Result result = runAgainst({{task("RUVO_TS_LIST_EXEC"), i32(0) + str("a B%20b %1B ")}},
                               {"list"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "a\nB b\n\\x1b\n");
    result = runAgainst({{task("RUVO_TS_LIST_BLOB"), i32(0) + str("")}}, {"list-blobs"});
    EXPECT_EQ(result.out, "");
    result = runAgainst({{task("RUVO_TS_LIST_BLOB"), i32(0) + str("x ")}},
                        {"list-blobs", "--json"});
    EXPECT_EQ(result.out, "{\"names\":[\"x\"]}\n");
}

TEST(RuvoctlTask, ShowsATaskWithACommand) {
    const std::vector<Exchange> exchanges = {
        lookup(),
        {task("RUVO_TS_TASK_STATE", i32(5)), i32(2)},
        next(0),
        {task("RUVO_TS_EXECUTION_INFO", i32(5) + i32(24)),
         str("2026-11-21 02:30:07 UTC") + i32(23)},
        {task("RUVO_TS_EXIT_CODE", i32(5)), i32(7)}};
    const Result text = runAgainst(exchanges, {"show", "backup"});
    EXPECT_EQ(text.status, 0) << text.err;
    for (const std::string line :
         {"name         backup\n", "handle       5\n", "kind         command\n",
          "state        waiting\n", "exit status  7\n", "frequency    daily\n",
          "(2026-11-21T02:30:07Z)\n", "(2026-11-22T02:30:05Z)\n"}) {
        EXPECT_TRUE(has(text.out, line)) << line << "\n" << text.out;
    }
    const auto json =
        nlohmann::json::parse(runAgainst(exchanges, {"show", "backup", "--json"}).out);
    EXPECT_EQ(json["name"], "backup");
    EXPECT_EQ(json["state"], "waiting");
    EXPECT_EQ(json["exitCode"], 7);
    EXPECT_EQ(json["lastRun"]["utc"], "2026-11-21T02:30:07Z");
}

TEST(RuvoctlTask, ShowsATaskThatHasNotRun) {
    const std::vector<Exchange> exchanges = {
        lookup(),
        {task("RUVO_TS_TASK_STATE", i32(5)), i32(2)},
        next(3),
        {task("RUVO_TS_EXECUTION_INFO", i32(5) + i32(24)),
         str("1970-01-01 00:00:00 UTC") + i32(23)},
        {task("RUVO_TS_EXIT_CODE", i32(5)), i32(-999)}};
    const Result text = runAgainst(exchanges, {"show", "backup"});
    EXPECT_TRUE(has(text.out, "last run     none yet\nexit status  none yet\n")) << text.out;
    const auto json =
        nlohmann::json::parse(runAgainst(exchanges, {"show", "backup", "--json"}).out);
    EXPECT_TRUE(json["lastRun"].is_null());
    EXPECT_TRUE(json["exitCode"].is_null());
}

TEST(RuvoctlTask, ShowsATaskWhoseTimeTheDaemonDoesNotTell) {
    const std::vector<Exchange> exchanges = {
        lookup(),
        {task("RUVO_TS_GET_NEXT_TIME", i32(5)), i32(0) + str(std::string(19, ' ')) + i32(3)}};
    EXPECT_EQ(runAgainst(exchanges, {"next", "backup"}).out, "a time before 1970, once\n");
    const auto json =
        nlohmann::json::parse(runAgainst(exchanges, {"next", "backup", "--json"}).out);
    EXPECT_TRUE(json["nextRun"].is_null());
}

TEST(RuvoctlTask, ShowsATaskThatKeepsBytes) {
    const Result text = runAgainst(
        {{task("RUVO_TS_TASK_STATE", i32(5)), i32(1)},
         next(9),
         {task("RUVO_TS_EXECUTION_INFO", i32(5) + i32(24)), str("") + i32(-9)},
         {task("RUVO_TS_TASK_STATE", i32(5)), i32(1)}},
        {"show", "--handle", "5"});
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_TRUE(has(text.out, "kind         bytes\nstate        ended\nnext run")) << text.out;
    EXPECT_TRUE(has(text.out, "frequency 9, runs once"));
    EXPECT_FALSE(has(text.out, "name"));
}

// It goes after one question or the other.
TEST(RuvoctlTask, ShowsNothingOfATaskThatGoesMeanwhile) {
    const Exchange info = {task("RUVO_TS_EXECUTION_INFO", i32(5) + i32(24)),
                           str("2026-11-21 02:30:07 UTC") + i32(23)};
    const Exchange noInfo = {info.first, str("") + i32(-9)};
    const Exchange noStatus = {task("RUVO_TS_EXIT_CODE", i32(5)), i32(-9)};
    for (const auto& last :
         {std::vector<Exchange>{noInfo}, std::vector<Exchange>{info, noStatus}}) {
        std::vector<Exchange> exchanges = {
            lookup(), {task("RUVO_TS_TASK_STATE", i32(5)), i32(0)}, next(3)};
        exchanges.insert(exchanges.end(), last.begin(), last.end());
        exchanges.emplace_back(task("RUVO_TS_TASK_STATE", i32(5)), i32(-9));
        const Result gone = runAgainst(exchanges, {"show", "backup"});
        EXPECT_EQ(gone.status, 1);
        EXPECT_EQ(gone.out, "");
        EXPECT_TRUE(has(gone.err, "there is no task 5")) << gone.err;
    }
    // One that stays has a command whose status that is.
    const Result stays = runAgainst({lookup(),
                                     {task("RUVO_TS_TASK_STATE", i32(5)), i32(2)},
                                     next(0),
                                     info,
                                     noStatus,
                                     {task("RUVO_TS_TASK_STATE", i32(5)), i32(2)}},
                                    {"show", "backup"});
    EXPECT_EQ(stays.status, 0) << stays.err;
    EXPECT_TRUE(has(stays.out, "kind         command\n")) << stays.out;
    EXPECT_TRUE(has(stays.out, "exit status  -9\n")) << stays.out;
}

TEST(RuvoctlTask, AnswersShortQuestions) {
    EXPECT_EQ(runAgainst({lookup(), {task("RUVO_TS_TASK_STATE", i32(5)), i32(0)}},
                         {"state", "backup"}).out,
              "running\n");
    EXPECT_EQ(runAgainst({lookup(), {task("RUVO_TS_TASK_STATE", i32(5)), i32(1)}},
                         {"state", "backup", "--json"}).out,
              "{\"handle\":5,\"state\":\"ended\",\"code\":1}\n");
    EXPECT_EQ(runAgainst({lookup(), {task("RUVO_TS_EXIT_CODE", i32(5)), i32(3)}},
                         {"exit-code", "backup"}).out,
              "3\n");
    EXPECT_EQ(runAgainst({lookup(), {task("RUVO_TS_EXIT_CODE", i32(5)), i32(-999)}},
                         {"exit-code", "backup", "--json"}).out,
              "{\"handle\":5,\"exitCode\":null}\n");
    EXPECT_EQ(runAgainst({lookup(), next(1)}, {"next", "backup"}).out,
              Ruvoctl::bothTexts(kNext) + ", weekly\n");
    EXPECT_EQ(runAgainst({lookup(), {task("RUVO_TS_CANCEL", i32(5)), i32(5)}},
                         {"cancel", "backup"}).out,
              "task 5: cancelled\n");
}

TEST(RuvoctlTask, TellsThatThereIsNoSuchTask) {
    for (const std::string command : {"show", "next", "state", "exit-code", "cancel", "retrieve",
                                      "wait", "watch"}) {
        const Result result = runAgainst({lookup(-9)}, {command, "backup"});
        EXPECT_EQ(result.status, 1) << command;
        EXPECT_TRUE(has(result.err, "there is no task named \"backup\"")) << result.err;
    }
}

TEST(RuvoctlTask, RetrievesBytes) {
    const std::string bytes("a\0\xff\n", 4);
    const std::vector<Exchange> exchanges = {
        lookup(), {task("RUVO_TS_RETRIEVE_BLOB", i32(5)), i32(0) + i32(4) + bytes}};
    EXPECT_EQ(runAgainst(exchanges, {"retrieve", "backup"}).out, bytes);
    EXPECT_EQ(runAgainst(exchanges, {"retrieve", "backup", "--json"}).out,
              "{\"handle\":5,\"size\":4,\"data\":\"6100ff0a\"}\n");
    const TestSupport::TemporaryDirectory folder;
    const Result kept =
        runAgainst(exchanges, {"retrieve", "backup", "--output", folder.file("out")});
    EXPECT_EQ(kept.status, 0);
    EXPECT_EQ(kept.out, "");
    EXPECT_EQ(TestSupport::readFile(folder.file("out")), bytes);
    const Result lost =
        runAgainst(exchanges, {"retrieve", "backup", "--output", folder.file("no/out")});
    EXPECT_EQ(lost.status, 4);
}
