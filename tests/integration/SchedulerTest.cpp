// The scheduler of a real daemon as its clients see it on the wire.

#include "tests/integration/SchedulerScene.h"
#include "tests/support/TestListener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace IntegrationTests {
namespace {

// All eleven, with what they answer when they cannot do it.
class SchedulerCommands : public Scheduler {
protected:
    void makeTasks() {
        EXPECT_EQ(list(), "");
        EXPECT_EQ(listBlobs(), "");
        task_ = schedule("a b", "true", "", kIn2033, kDaily);
        ASSERT_GE(task_, 0);
        EXPECT_EQ(schedule("a b", "false", "", kIn2033, kOnce), -11);
        blob_ = scheduleBlob("blob", bytes_, kIn2033, kOnce);
        ASSERT_GE(blob_, 0);
        EXPECT_EQ(scheduleBlob("blob", "", kIn2033, kOnce), -11);
        EXPECT_GE(schedule(longName_, "true", "", kIn2033 + 1, kOnce), 0);
    }
    void askEverything() {
        EXPECT_EQ(lookup("a b"), task_);
        EXPECT_EQ(lookup("a"), -9);
        EXPECT_EQ(state(task_), 2);
        EXPECT_EQ(exitCode(task_), -999);
        EXPECT_EQ(exitCode(blob_), -9);
        EXPECT_EQ(lastRun(task_), "1970-01-01 00:00:00 UTC");
        EXPECT_EQ(noLastRun(task_, 23), 24);
        EXPECT_EQ(noLastRun(blob_, 24), -9);
        EXPECT_EQ(nextTime(task_, kDaily), "2033 05 18 03 33 20");
        EXPECT_EQ(nextTime(blob_, kOnce), "2033 05 18 03 33 20");
        EXPECT_EQ(list(), "a%20b " + longName_ + ' ');
        EXPECT_EQ(listBlobs(), "blob ");
        EXPECT_EQ(retrieve(blob_), bytes_);
    }
    void cancelOne() {
        EXPECT_EQ(number(ask("RUVO_TS_CANCEL", task_)), task_);
        EXPECT_EQ(number(ask("RUVO_TS_CANCEL", task_)), -9);
        EXPECT_EQ(lookup("a b"), -9);
        EXPECT_EQ(state(task_), -9);
        EXPECT_EQ(exitCode(task_), -9);
        EXPECT_EQ(noLastRun(task_, 24), -9);
        EXPECT_EQ(number(ask("RUVO_TS_GET_NEXT_TIME", task_)), -9);
        EXPECT_EQ(client().readString(), "task_not_scheduled");
        EXPECT_EQ(client().readNumber(), 0);
        EXPECT_EQ(number(ask("RUVO_TS_RETRIEVE_BLOB", task_)), -9);
        EXPECT_EQ(client().readNumber(), 0);
        EXPECT_EQ(state(blob_), 2);  // nothing is left over of the answers
        EXPECT_EQ(number(ask("RUVO_TS_NO_COMMAND")), -999);
    }

private:
    // In more than one datagram each, there and back.
    const std::string bytes_ = std::string("a\0\xff", 3) + std::string(2000, '\x80');
    const std::string longName_ = std::string(1500, 'x');
    std::int32_t task_ = -1;
    std::int32_t blob_ = -1;
};

TEST_F(SchedulerCommands, AreAnswered) {
    makeTasks();
    askEverything();
    cancelOne();
}

TEST_F(SchedulerCommands, AreAnsweredOverDatagrams) {
    useDatagrams();
    makeTasks();
    askEverything();
    cancelOne();
}

TEST_F(Scheduler, RunsACommandAtItsTime) {
    const std::string log = file("out put.txt");
    const std::int64_t begin = now();
    const std::int32_t task = schedule("seven", "exit", "7", begin + 2, kDaily,
                                       '"' + foreignShellPath(log) + '"');
    ASSERT_GE(task, 0);
    const std::int32_t before = state(task);
    EXPECT_TRUE(before == 2 || now() >= begin + 2) << before;
    ASSERT_TRUE(waitUntil([&] { return exitCode(task) == 7; }, kRunPatience));
    EXPECT_GE(now(), begin + 2);
    EXPECT_TRUE(exists(log));
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

// The events and changes of a run, to listeners that are there in time.
class SchedulerEvents : public Scheduler {
protected:
    // Whether the listeners were registered before the run was due.
    bool begin(std::int64_t ahead) {
        listener_.emplace();
        EXPECT_EQ(number(WireText()
                             .shortNumber(1)
                             .request("Notifier", "RUVO_NN_REGISTER")
                             .string("^VornTSEvent:")
                             .string(listener_->remoteName())
                             .number(31)),
                  0);
        const std::int64_t due = now() + ahead;
        task_ = scheduleBlob("blob", "", due, kOnce);
        follower_.emplace();
        const std::int32_t answer = number(WireText()
                                               .shortNumber(1)
                                               .request("SchedulerFollow", "RUVO_TS_FOLLOW")
                                               .string(follower_->remoteName())
                                               .number(32)
                                               .number(task_));
        if (now() >= due) return false;
        EXPECT_EQ(answer, 0);
        return true;
    }
    std::string event(std::int32_t state) const {
        const std::string number = std::to_string(task_);
        return WireText()
            .number(31)
            .string("udp:127.0.0.1")
            .string("VornTSEvent:" + number)
            .string(number)
            .number(4)
            .bytes(std::string(reinterpret_cast<const char*>(&state), 4))
            .text();
    }
    std::string change(std::int32_t state) const {
        return WireText().number(32).number(12345).number(state).number(task_).text();
    }

    std::optional<TcpListener> listener_;
    std::optional<TcpListener> follower_;
    std::int32_t task_ = -1;
};

TEST_F(SchedulerEvents, AreRaisedAndFollowersAreTold) {
    for (std::int64_t ahead = 2; !begin(ahead); ahead *= 2) {
        ASSERT_LT(ahead, 30);
        number(ask("RUVO_TS_CANCEL", task_));
        stop();  // with what it has raised
        start();
    }
    const std::string raised = event(2) + event(0) + event(1) + event(-1);
    const std::string told = change(0) + change(1) + change(-1);
    const auto delivered = listener_->accept();
    EXPECT_EQ(readBytes(delivered, raised.size()), raised);
    const auto followed = follower_->accept();
    EXPECT_EQ(readBytes(followed, told.size()), told);
    ASSERT_TRUE(waitUntil([&] { return state(task_) == -9; }));
    EXPECT_EQ(number(WireText()
                         .shortNumber(1)
                         .request("SchedulerFollow", "RUVO_TS_LAST_STATUS")
                         .number(task_)),
              0);
    EXPECT_EQ(client().readNumber(), 0);
}

TEST_F(Scheduler, KeepsItsTasksOverARestart) {
    const std::string odd("na me%\xC3\xBC\n", 9);
    const std::int32_t task = schedule(odd, "prog", "-x", kIn2033, kDaily);
    const std::int32_t blob = scheduleBlob("blob", std::string("\0\x01", 2), kIn2033, 9);
    const std::int32_t gone = schedule("gone", "prog", "", kIn2033, kOnce);
    EXPECT_EQ(number(ask("RUVO_TS_CANCEL", gone)), gone);
    stop();
    const std::string store = writtenText(file("RuvoTSEngineExecTasks.dat"));
    EXPECT_THAT(store, ::testing::StartsWith("78563412 exec na%20me%25%C3%BC%0A%00 2033 05 18 "
                                             "03 33 20 0 prog%00 %00 %2Dx%00 %00\n"));
    start();
    EXPECT_EQ(writtenText(file("RuvoTSEngineExecTasks.dat")), store);
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

}  // namespace
}  // namespace IntegrationTests
