// The commands "ruvoctl task" against a daemon that follows a script.

#include "client/ruvoctl/TaskTimes.h"
#include "tests/client/RuvoctlRun.h"
#include "tests/client/ScriptedDaemon.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <string>
#include <vector>

using namespace ClientTest;
using Arguments = std::vector<std::string>;
using Exchange = std::pair<std::string, std::string>;

namespace {

constexpr std::int64_t kNext = 1'795'314'605;  // 2026-11-22T02:30:05Z
const std::string kNextAnswer = i32(0) + str("2026 11 22 02 30 05");

std::string task(std::string_view command, const std::string& arguments = "") {
    return engineRequest("Scheduler", command, arguments);
}

struct Result {
    int status = -1;
    std::string out;
    std::string err;
};

Result run(const Arguments& arguments) {
    RuvoctlRun ruvoctl;
    Result result;
    result.status = ruvoctl.run(arguments);
    result.out = ruvoctl.out.text();
    result.err = ruvoctl.err.text();
    return result;
}

Result runAgainst(const std::vector<Exchange>& exchanges, Arguments arguments) {
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        for (const auto& [request, answer] : exchanges) peer.serve(request, answer);
        peer.awaitClose();
    });
    arguments.insert(arguments.begin(), {"--port", std::to_string(daemon.port()), "task"});
    return run(arguments);
}

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

Exchange lookup(std::int32_t handle = 5) {
    return {task("RUVO_TS_SCHEDULED_TASK_LOOKUP", str("backup")), i32(handle)};
}

Exchange next(std::int32_t frequency) {
    return {task("RUVO_TS_GET_NEXT_TIME", i32(5)), kNextAnswer + i32(frequency)};
}

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
    expectFrequency("--soon", 4);
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
         {task("RUVO_TS_EXECUTION_INFO", i32(5) + i32(24)), str("") + i32(-9)}},
        {"show", "--handle", "5"});
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_TRUE(has(text.out, "kind         bytes\nstate        ended\nnext run")) << text.out;
    EXPECT_TRUE(has(text.out, "frequency 9, runs once"));
    EXPECT_FALSE(has(text.out, "name"));
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

// ---- following -------------------------------------------------------------------

namespace {

std::uint32_t number(std::string_view bytes) {
    std::uint32_t value = 0;
    for (const char c : bytes.substr(0, 4)) value = value << 8 | static_cast<unsigned char>(c);
    return value;
}

// The daemon as a follower sees it.
class FollowedDaemon {
public:
    explicit FollowedDaemon(ScriptedPeer& peer) : peer_(peer) {
        peer_.open();
        peer_.serve(lookup().first, lookup().second);
        peer_.expect(u16(1) + engineRequest("SchedulerFollow", "RUVO_TS_FOLLOW"));
        remoteName_ = peer_.read(number(peer_.read(4)));
        handle_ = static_cast<std::int32_t>(number(peer_.read(4)));
        peer_.expect(i32(5));
        peer_.send(i32(0));
    }

    void tell(std::int32_t state) {
        if (!socket_) connect();
        const std::string bytes = i32(handle_) + i32(12345) + i32(state) + i32(5);
        VornPlatform::send(socket_.handle(), bytes.data(), bytes.size());
    }
    void serve(std::string_view request, std::string_view answer) { peer_.serve(request, answer); }
    void serveState(std::int32_t state) { serve(task("RUVO_TS_TASK_STATE", i32(5)), i32(state)); }
    void serveStatus(std::int32_t status) {
        serve(engineRequest("SchedulerFollow", "RUVO_TS_LAST_STATUS", i32(5)),
              i32(0) + i32(status));
    }
    void takeUnfollowing() {
        serve(engineRequest("SchedulerFollow", "RUVO_TS_UNFOLLOW",
                            str(remoteName_) + i32(handle_) + i32(5)),
              i32(0));
    }

private:
    void connect() {
        const auto port =
            static_cast<std::uint16_t>(std::stoi(remoteName_.substr(remoteName_.rfind(':') + 1)));
        if (VornPlatform::connectTcp(*VornPlatform::SocketAddress::parse("127.0.0.1", port),
                                     socket_)) {
            throw std::runtime_error("cannot reach the follower");
        }
    }

    ScriptedPeer& peer_;
    std::string remoteName_;
    std::int32_t handle_ = 0;
    VornPlatform::Socket socket_;
};

template <typename Script>
Result follow(Script script, Arguments arguments) {
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        FollowedDaemon followed(peer);
        script(followed);
        peer.awaitClose();
    });
    arguments.insert(arguments.begin(), {"--port", std::to_string(daemon.port()), "task"});
    return run(arguments);
}

}  // namespace

TEST(RuvoctlTask, WaitsForTheEndOfARun) {
    const auto script = [](FollowedDaemon& daemon) {
        daemon.serveState(2);
        daemon.tell(0);
        daemon.tell(1);
        daemon.serveStatus(7);
        daemon.takeUnfollowing();
    };
    const Result text = follow(script, {"wait", "backup"});
    EXPECT_EQ(text.status, 7);
    EXPECT_EQ(text.out, "task backup ended with status 7\n");
    EXPECT_EQ(follow(script, {"wait", "backup", "--json"}).out,
              "{\"handle\":5,\"exitCode\":7}\n");
}

TEST(RuvoctlTask, DoesNotWaitForATaskThatHasHadItsOnlyRun) {
    const Result result = follow(
        [](FollowedDaemon& daemon) {
            daemon.serveState(1);
            daemon.serveStatus(256);
            daemon.takeUnfollowing();
        },
        {"wait", "backup"});
    EXPECT_EQ(result.status, 255);  // not 0, although the low byte is
}

namespace {

// "task wait" of a task whose handle is known and that is gone: how the daemon
// answers the question for its status.
Result waitForGone(const std::string& answer, Arguments arguments) {
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(1) + engineRequest("SchedulerFollow", "RUVO_TS_FOLLOW"));
        peer.read(number(peer.read(4)));  // the remote name
        peer.read(4);
        peer.expect(i32(5));
        peer.send(i32(-9));
        peer.serve(engineRequest("SchedulerFollow", "RUVO_TS_LAST_STATUS", i32(5)), answer);
        peer.awaitClose();
    });
    arguments.insert(arguments.begin(), {"--port", std::to_string(daemon.port()), "task", "wait",
                                         "--handle", "5"});
    return run(arguments);
}

}  // namespace

TEST(RuvoctlTask, EndsWithTheStatusOfATaskThatIsGone) {
    const Result text = waitForGone(i32(0) + i32(9), {});
    EXPECT_EQ(text.status, 9) << text.err;
    EXPECT_EQ(text.out, "task 5 ended with status 9\n");
    const Result none = waitForGone(i32(0) + i32(0), {"--json"});
    EXPECT_EQ(none.status, 0) << none.err;
    EXPECT_EQ(none.out, "{\"handle\":5,\"exitCode\":0}\n");
}

TEST(RuvoctlTask, TellsWhereATaskThatIsGoneHasNoStatus) {
    const Result cancelled = waitForGone(i32(0) + i32(-999), {});
    EXPECT_EQ(cancelled.status, 1);
    EXPECT_TRUE(has(cancelled.err, "the task was cancelled before a run had ended"))
        << cancelled.err;
    const Result unknown = waitForGone(i32(-9) + i32(0), {});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_TRUE(has(unknown.err, "there is no task 5")) << unknown.err;
}

TEST(RuvoctlTask, TellsAWaitingOneOfTheCancel) {
    const Result result = follow(
        [](FollowedDaemon& daemon) {
            daemon.serveState(2);
            daemon.tell(-1);
        },
        {"wait", "backup"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");  // or it would be the status of a run
    EXPECT_TRUE(has(result.err, "the task was cancelled")) << result.err;
}

TEST(RuvoctlTask, HearsOfTheEndOfATaskThatIsGoneAlready) {
    const Result result = follow(
        [](FollowedDaemon& daemon) {
            daemon.serveState(-9);
            daemon.tell(1);
            daemon.serveStatus(0);
            daemon.takeUnfollowing();
        },
        {"wait", "backup"});
    EXPECT_EQ(result.status, 0) << result.err;
}

// What a status of 1 means is told by the line.
TEST(RuvoctlTask, SaysThatAStatusIsThatOfTheRun) {
    for (const bool json : {false, true}) {
        const Result result = follow(
            [](FollowedDaemon& daemon) {
                daemon.serveState(2);
                daemon.tell(1);
                daemon.serveStatus(1);
                daemon.takeUnfollowing();
            },
            json ? std::vector<std::string>{"wait", "backup", "--json"}
                 : std::vector<std::string>{"wait", "backup"});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, json ? "{\"handle\":5,\"exitCode\":1}\n"
                                   : "task backup ended with status 1\n");
    }
}

TEST(RuvoctlTask, WaitsNoLongerThanItIsTold) {
    const Result result = follow(
        [](FollowedDaemon& daemon) {
            daemon.serveState(2);
            daemon.takeUnfollowing();
        },
        {"wait", "backup", "--for", "0.05"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(has(result.err, "the time is over")) << result.err;
}

TEST(RuvoctlTask, WatchesATaskToItsEnd) {
    const Result text = follow(
        [](FollowedDaemon& daemon) {
            for (const std::int32_t state : {2, 0, 1, -1}) daemon.tell(state);
        },
        {"watch", "backup"});
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_EQ(text.out, "backup: waiting\nbackup: running\nbackup: ended\nbackup: finished\n");
    const Result counted = follow(
        [](FollowedDaemon& daemon) {
            for (const std::int32_t state : {0, 1, 2}) daemon.tell(state);
            daemon.takeUnfollowing();
        },
        {"watch", "backup", "--count", "2", "--json"});
    EXPECT_EQ(counted.status, 0) << counted.err;
    EXPECT_EQ(counted.out, "{\"task\":\"backup\",\"handle\":5,\"state\":\"running\",\"code\":0}\n"
                           "{\"task\":\"backup\",\"handle\":5,\"state\":\"ended\",\"code\":1}\n");
}

TEST(RuvoctlTask, NoticesThatTheDaemonHasGone) {
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        FollowedDaemon followed(peer);
        followed.tell(0);
        peer.close();
    });
    const Result result =
        run({"--port", std::to_string(daemon.port()), "task", "watch", "backup"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "backup: running\n");
    EXPECT_TRUE(has(result.err, "the daemon has gone")) << result.err;
}

TEST(RuvoctlTask, SaysWhatADaemonWithoutFollowersLacks) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.serve(lookup().first, lookup().second);
        peer.expect(u16(1) + engineRequest("SchedulerFollow", "RUVO_TS_FOLLOW"));
        peer.close();
    });
    const Result result = run({"--port", std::to_string(daemon.port()), "task", "wait", "backup"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(has(result.err, "SchedulerFollow")) << result.err;
}
