// The scheduler of a real daemon as its clients see it on the wire.

#include "runtime/platform/Environment.h"
#include "runtime/platform/LocalTime.h"
#include "tests/support/DaemonLauncher.h"
#include "tests/support/TestListener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace IntegrationTests {
namespace {

using namespace TestSupport;

constexpr std::int32_t kOnce = 3;
constexpr std::int32_t kDaily = 0;
constexpr std::int64_t kIn2033 = 2'000'000'000;

std::int64_t now() {
    return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
}

WireText ask(std::string_view command) {
    return WireText().shortNumber(1).request("Scheduler", command);
}

WireText ask(std::string_view command, std::int32_t task) { return ask(command).number(task); }

WireText& addTime(WireText& text, std::int32_t frequency, std::int64_t time) {
    const auto at = VornPlatform::toUtc(time);
    text.number(frequency).number(at.month).number(at.day).number(at.year);
    return text.number(at.hour).number(at.minute).number(at.second);
}

// The daemon keeps its tasks and batch files in a folder of the test's.
class Scheduler : public ::testing::Test {
protected:
    Scheduler() : temp_(VornPlatform::getEnv("TEMP")) {
        VornPlatform::setEnv("TEMP", folder_.text());
        start();
    }
    ~Scheduler() override {
        daemon_.reset();
        VornPlatform::setEnv("TEMP", temp_);
    }

    void start() {
        daemon_.emplace(Daemon::Options{
            .properties = "ruvod.load-monitors=SchedulerFollow\n", .udp = true});
        client_.emplace(daemon_->client());
    }
    void stop() {
        client_.reset();
        EXPECT_EQ(daemon_->stop(), 0);
        daemon_.reset();
    }
    WireClient& client() { return *client_; }
    Daemon& daemon() { return *daemon_; }

    std::int32_t schedule(const std::string& name, const std::string& program,
                          const std::string& params, std::int64_t time, std::int32_t frequency,
                          const std::string& log = "") {
        WireText request = ask("RUVO_TS_SCHEDULE").string(name).string(program).string("").string(
            params);
        addTime(request, frequency, time).string(log);
        client().send(request);
        return client().readNumber();
    }
    std::int32_t scheduleBlob(const std::string& name, const std::string& bytes, std::int64_t time,
                              std::int32_t frequency) {
        WireText request = ask("RUVO_TS_SCHEDULE_BLOB").string(name).number(
            static_cast<std::int64_t>(bytes.size()));
        request.bytes(bytes);
        client().send(addTime(request, frequency, time));
        return client().readNumber();
    }
    std::int32_t number(const WireText& request) {
        client().send(request);
        return client().readNumber();
    }
    std::int32_t lookup(const std::string& name) {
        return number(ask("RUVO_TS_SCHEDULED_TASK_LOOKUP").string(name));
    }
    std::int32_t state(std::int32_t task) { return number(ask("RUVO_TS_TASK_STATE", task)); }
    std::int32_t exitCode(std::int32_t task) { return number(ask("RUVO_TS_EXIT_CODE", task)); }
    std::string list() {
        EXPECT_EQ(number(ask("RUVO_TS_LIST_EXEC")), 0);
        return client().readString();
    }
    std::string lastRun(std::int32_t task) {
        client().send(ask("RUVO_TS_EXECUTION_INFO", task).number(24));
        std::string text = client().readString();
        EXPECT_EQ(client().readNumber(), static_cast<std::int32_t>(text.size()));
        return text;
    }
    std::string nextTime(std::int32_t task, std::int32_t frequency) {
        EXPECT_EQ(number(ask("RUVO_TS_GET_NEXT_TIME", task)), 0);
        std::string text = client().readString();
        EXPECT_EQ(client().readNumber(), frequency);
        return text;
    }
    std::string file(std::string_view name) const { return folder_.file(name); }

private:
    const TemporaryDirectory folder_;
    const std::optional<std::string> temp_;
    std::optional<Daemon> daemon_;
    std::optional<WireClient> client_;
};

TEST_F(Scheduler, AnswersEachCommand) {
    const std::int32_t task = schedule("a b", "true", "", kIn2033, kDaily);
    ASSERT_GE(task, 0);
    EXPECT_EQ(schedule("a b", "false", "", kIn2033, kOnce), -11);
    const std::string bytes("a\0\xff", 3);
    const std::int32_t blob = scheduleBlob("blob", bytes, kIn2033, kOnce);
    ASSERT_GE(blob, 0);
    EXPECT_EQ(lookup("a b"), task);
    EXPECT_EQ(lookup("a"), -9);
    EXPECT_EQ(state(task), 2);
    EXPECT_EQ(exitCode(task), -999);
    EXPECT_EQ(exitCode(blob), -9);
    EXPECT_EQ(lastRun(task), "1970-01-01 00:00:00 UTC");
    EXPECT_EQ(nextTime(task, kDaily), "2033 05 18 03 33 20");
    EXPECT_EQ(list(), "a%20b ");
    EXPECT_EQ(number(ask("RUVO_TS_LIST_BLOB")), 0);
    EXPECT_EQ(client().readString(), "blob ");
    EXPECT_EQ(number(ask("RUVO_TS_RETRIEVE_BLOB", blob)), 0);
    EXPECT_EQ(client().readNumber(), 3);
    EXPECT_EQ(client().read(3), bytes);
    EXPECT_EQ(number(ask("RUVO_TS_CANCEL", task)), task);
    EXPECT_EQ(number(ask("RUVO_TS_CANCEL", task)), -9);
    EXPECT_EQ(number(ask("RUVO_TS_GET_NEXT_TIME", task)), -9);
    EXPECT_EQ(client().readString(), "task_not_scheduled");
    EXPECT_EQ(client().readNumber(), 0);
    EXPECT_EQ(number(ask("RUVO_TS_RETRIEVE_BLOB", task)), -9);
    EXPECT_EQ(client().readNumber(), 0);
    EXPECT_EQ(state(blob), 2);  // nothing is left over of the answers
    EXPECT_EQ(number(ask("RUVO_TS_NO_COMMAND")), -999);
}

TEST_F(Scheduler, IsReachedOverDatagrams) {
    auto udp = WireClient::udp(daemon().udpPort());
    udp.send("RUVO\n");
    EXPECT_EQ(udp.readDatagram(), "+\r\n");
    WireText request = ask("RUVO_TS_SCHEDULE").string("udp").string("true").string("").string("");
    udp.send(addTime(request, kOnce, kIn2033).string(""));
    const std::string handle = udp.readDatagram();
    EXPECT_EQ(handle, WireText().number(lookup("udp")).text());
    udp.send(ask("RUVO_TS_CANCEL").bytes(handle));
    EXPECT_EQ(udp.readDatagram(), handle);
    EXPECT_EQ(lookup("udp"), -9);
}

TEST_F(Scheduler, RunsACommandAtItsTime) {
    const std::string log = file("out put.txt");
    const std::int64_t begin = now();
    const std::int32_t task =
        schedule("echo", "echo hello;", "exit 7", begin + 2, kDaily, '"' + log + '"');
    ASSERT_GE(task, 0);
    EXPECT_EQ(state(task), 2);
    ASSERT_TRUE(waitUntil([&] { return exitCode(task) == 7; }));
    EXPECT_GE(now(), begin + 2);
    EXPECT_EQ(readFile(log), "");  // the redirection is that of "exit" alone
    ASSERT_TRUE(waitUntil([&] { return state(task) == 2; }));
    EXPECT_EQ(exitCode(task), 7);
    EXPECT_EQ(lastRun(task).substr(0, 2), "20");
    const auto next = VornPlatform::toUtc(begin + 2 + 86400);
    char text[64];
    std::snprintf(text, sizeof text, "%04d %02d %02d %02d %02d %02d", next.year, next.month,
                  next.day, next.hour, next.minute, next.second);
    EXPECT_EQ(nextTime(task, kDaily), text);
    // Nothing is left of the batch file.
    int left = 0;
    for (const auto& entry : std::filesystem::directory_iterator(toPath(file("")))) {
        left += entry.path().extension() == ".bat";
    }
    EXPECT_EQ(left, 0);
}

TEST_F(Scheduler, RaisesEventsAndTellsFollowers) {
    const TcpListener events;
    const TcpListener follower;
    const std::int32_t task = scheduleBlob("blob", "", now() + 2, kOnce);
    const std::string name = "VornTSEvent:" + std::to_string(task);
    client().send(WireText()
                      .shortNumber(1)
                      .request("Notifier", "RUVO_NN_REGISTER")
                      .string('^' + name + '$')
                      .string(events.remoteName())
                      .number(31));
    EXPECT_EQ(client().readNumber(), 0);
    client().send(WireText()
                      .shortNumber(1)
                      .request("SchedulerFollow", "RUVO_TS_FOLLOW")
                      .string(follower.remoteName())
                      .number(32)
                      .number(task));
    EXPECT_EQ(client().readNumber(), 0);
    std::string raised;
    std::string told;
    for (const std::int32_t state : {0, 1, -1}) {
        raised += WireText()
                      .number(31)
                      .string("udp:127.0.0.1")
                      .string(name)
                      .string(std::to_string(task))
                      .number(4)
                      .bytes(std::string(reinterpret_cast<const char*>(&state), 4))
                      .text();
        told += WireText().number(32).number(12345).number(state).number(task).text();
    }
    const auto delivered = events.accept();
    const auto followed = follower.accept();
    EXPECT_EQ(readBytes(delivered, raised.size()), raised);
    EXPECT_EQ(readBytes(followed, told.size()), told);
    ASSERT_TRUE(waitUntil([&] { return state(task) == -9; }));
    client().send(WireText()
                      .shortNumber(1)
                      .request("SchedulerFollow", "RUVO_TS_LAST_STATUS")
                      .number(task));
    EXPECT_EQ(client().readNumber(), 0);
    EXPECT_EQ(client().readNumber(), 0);
}

TEST_F(Scheduler, KeepsItsTasksOverARestart) {
    const std::string odd("na me%\xC3\xBC\n", 9);
    const std::int32_t task = schedule(odd, "prog", "-x", kIn2033, kDaily);
    const std::int32_t blob = scheduleBlob("blob", std::string("\0\x01", 2), kIn2033, 9);
    const std::int32_t gone = schedule("gone", "prog", "", kIn2033, kOnce);
    EXPECT_EQ(number(ask("RUVO_TS_CANCEL", gone)), gone);
    stop();
    const std::string store = readFile(file("RuvoTSEngineExecTasks.dat"));
    EXPECT_THAT(store, ::testing::StartsWith("78563412 exec na%20me%25%C3%BC%0A%00 2033 05 18 "
                                             "03 33 20 0 prog%00 %00 %2Dx%00 %00\n"));
    start();
    EXPECT_EQ(readFile(file("RuvoTSEngineExecTasks.dat")), store);
    const std::int32_t again = lookup(odd);
    EXPECT_GE(again, 0);
    EXPECT_NE(again, task);
    EXPECT_EQ(state(task), -9);
    EXPECT_EQ(state(blob), -9);
    EXPECT_EQ(nextTime(again, kDaily), "2033 05 18 03 33 20");
    EXPECT_EQ(number(ask("RUVO_TS_RETRIEVE_BLOB", lookup("blob"))), 0);
    EXPECT_EQ(client().readNumber(), 2);
    EXPECT_EQ(client().read(2), std::string("\0\x01", 2));
    EXPECT_EQ(lookup("gone"), -9);
}

TEST_F(Scheduler, LosesNothingToAHardEnd) {
    for (int life = 0; life < 5; ++life) {
        ASSERT_GE(schedule("task" + std::to_string(life), "prog", "", kIn2033, kDaily), 0);
        client().close();
        daemon().kill();
        start();
        for (int each = 0; each <= life; ++each) {
            EXPECT_GE(lookup("task" + std::to_string(each)), 0) << life << ' ' << each;
        }
    }
}

TEST_F(Scheduler, EndsAConversationOverImpossibleBytes) {
    for (const std::int64_t length : {-1LL, -2147483648LL, 67108865LL, 2147483647LL}) {
        auto client = daemon().client();
        client.send(ask("RUVO_TS_SCHEDULE_BLOB").string("bad").number(length).bytes("xxx"));
        EXPECT_EQ(client.readRest(), "") << length;
    }
    {
        auto client = daemon().client();
        client.send(ask("RUVO_TS_SCHEDULE_BLOB").string("bad").number(1000).bytes("xxx"));
        client.finishSending();
        EXPECT_EQ(client.readRest(), "");
    }
    EXPECT_EQ(lookup("bad"), -9);
    EXPECT_FALSE(exists(file("RuvoTSEngineExecTasks.dat")));
}

TEST_F(Scheduler, LetsACommandRunOnWhenItStops) {
    const std::string go = file("go");
    const std::string done = file("done");
    const std::int32_t task = schedule(
        "long", "while [ ! -e '" + go + "' ]; do sleep 0.05; done; echo x >'" + done + "'", "",
        now() + 1, kOnce);
    ASSERT_GE(task, 0);
    ASSERT_TRUE(waitUntil([&] { return state(task) == 0; }));
    stop();
    EXPECT_FALSE(exists(done));
    writeFile(go, "");
    EXPECT_TRUE(waitUntil([&] { return exists(done); }));
    start();  // it did not see the end, so it runs it again two minutes from now
    EXPECT_GE(lookup("long"), 0);
}

}  // namespace
}  // namespace IntegrationTests
