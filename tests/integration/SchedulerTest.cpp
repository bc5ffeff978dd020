// The scheduler of a real daemon as its clients see it on the wire.

#include "tests/integration/SchedulerScene.h"
#include "tests/support/TestListener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace IntegrationTests {
namespace {

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
    const std::int32_t task = schedule("seven", "exit", "7", begin + 2, kDaily,
                                       '"' + foreignShellPath(log) + '"');
    ASSERT_GE(task, 0);
    EXPECT_EQ(state(task), 2);
    ASSERT_TRUE(waitUntil([&] { return exitCode(task) == 7; }));
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
