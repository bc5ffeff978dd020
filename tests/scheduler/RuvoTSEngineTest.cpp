#include "scheduler/RuvoTSEngine.h"

#include "runtime/monitor/VornEventMonitorManager.h"
#include "scheduler/RuvoTSBlobTask.h"
#include "scheduler/RuvoTSExecTask.h"
#include "scheduler/RuvoTSNotifier.h"
#include "scheduler/RuvoTSStore.h"
#include "scheduler/RuvoTSTime.h"
#include "scheduler/RuvoTSTimeKeeper.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace RuvoService;
using TestSupport::FakeConnection;
using TestSupport::kNoon;
using TestSupport::LogCapture;
using TestSupport::OpenScheduler;
using TestSupport::waitUntil;

namespace {

using Texts = std::vector<std::string>;

class RuvoTSEngineTest : public testing::Test {
protected:
    static RuvoTSTaskSet& set() { return RuvoTSTaskSet::getInstance(); }
    static std::size_t waiting() { return RuvoTSTimeKeeper::getInstance().waiting(); }

    TestSupport::StoreFolder folder_;
    TestSupport::TestClock clock_;
};

TEST_F(RuvoTSEngineTest, KnowsElevenCommands) {
    OpenScheduler scheduler;
    for (const std::string command :
         {"RUVO_TS_SCHEDULE", "RUVO_TS_SCHEDULED_TASK_LOOKUP", "RUVO_TS_CANCEL",
          "RUVO_TS_TASK_STATE", "RUVO_TS_EXIT_CODE", "RUVO_TS_EXECUTION_INFO",
          "RUVO_TS_SCHEDULE_BLOB", "RUVO_TS_RETRIEVE_BLOB", "RUVO_TS_LIST_EXEC",
          "RUVO_TS_LIST_BLOB", "RUVO_TS_GET_NEXT_TIME"}) {
        FakeConnection connection;
        connection.sendString(command);
        for (int i = 0; i < 20; ++i) connection.sendInt(0);
        EXPECT_NE(OpenScheduler::request(connection).at(0), "int -999") << command;
    }
    for (const std::string command : {"RUVO_TS_FOLLOW", "RUVO_TS_UNFOLLOW", "ruvo_ts_cancel", ""}) {
        EXPECT_EQ(OpenScheduler::ask(command, 0), Texts{"int -999"}) << command;
    }
}

TEST_F(RuvoTSEngineTest, LogsItsLife) {
    const LogCapture log(9);
    { OpenScheduler scheduler; }
    Texts own;
    for (const std::string& text : log.beginning("RuvoTSEngine::")) own.push_back(text);
    ASSERT_EQ(own.size(), 6u);
    EXPECT_TRUE(own[0].starts_with("RuvoTSEngine::construct THIS=0x"));
    EXPECT_EQ(own[1], "RuvoTSEngine::initialize enter");
    EXPECT_TRUE(own[2].starts_with("RuvoTSEngine::recover task from file "));
    EXPECT_TRUE(own[2].ends_with("RuvoTSEngineExecTasks.dat"));
    EXPECT_EQ(own[3], "RuvoTSEngine::initialize exit ");
    EXPECT_EQ(own[4], "RuvoTSEngine::cleanup");
    EXPECT_EQ(own[5], "RuvoTSEngine::destruct ");
}

TEST_F(RuvoTSEngineTest, MeasuresTheZone) {
    setUtcOffset(4711);
    OpenScheduler scheduler;
    EXPECT_EQ(utcOffsetForTest(), utcOffsetMinutes());
    // Once: a stop and a start do not measure it again.
    setUtcOffset(4711);
    scheduler.stop();
    scheduler.start();
    EXPECT_EQ(utcOffsetForTest(), 4711);
    setUtcOffset(utcOffsetMinutes());
}

TEST_F(RuvoTSEngineTest, RaisesNoEventsWhileItIsStopped) {
    OpenScheduler scheduler;
    scheduler.stop();
    RuvoTSNotifier::getInstance().raise(77, 2);
    scheduler.start();
    RuvoTSNotifier::getInstance().raise(77, 1);
    EXPECT_TRUE(scheduler.events().awaitStates(77, {1}));
}

// ---- restarts --------------------------------------------------------------------

TEST_F(RuvoTSEngineTest, ReadsItsTasksBack) {
    std::int32_t exec = 0;
    const std::string bytes("a\0\xFF\n", 4);
    const std::string odd = "na me%\xC3\xBC";
    {
        OpenScheduler scheduler;
        exec = OpenScheduler::schedule(odd, "prog x", "-y \"z\"", kNoon + 60, 1, "C:\\w", "l>");
        OpenScheduler::scheduleBlob("raw", bytes, kNoon + 90, 4'000'000'000u);
    }
    EXPECT_EQ(set().size(), 0u);
    EXPECT_EQ(waiting(), 0u);
    const Texts before = folder_.lines();
    ASSERT_EQ(before.size(), 2u);

    OpenScheduler scheduler;
    EXPECT_EQ(folder_.lines(), before);  // reading back does not write
    EXPECT_EQ(waiting(), 2u);
    const auto task = set().find(odd);
    ASSERT_TRUE(task);
    EXPECT_NE(task->getHandle(), exec);
    EXPECT_EQ(OpenScheduler::ask("RUVO_TS_TASK_STATE", exec), Texts{"int -9"});
    EXPECT_EQ(task->getState(), RuvoTSTask::Waiting);
    EXPECT_EQ(task->getStatus(), -999);
    EXPECT_EQ(task->getNextTime(), kNoon + 60);
    EXPECT_EQ(task->getFrequency(), 1u);
    EXPECT_EQ(task->serialize(), before[0].substr(9));
    const auto raw = set().find("raw");
    ASSERT_TRUE(raw);
    EXPECT_EQ(raw->getFrequency(), 4'000'000'000u);
    EXPECT_EQ(OpenScheduler::ask("RUVO_TS_RETRIEVE_BLOB", raw->getHandle()),
              (Texts{"int 0", "int 4", "bytes " + bytes}));
    EXPECT_TRUE(scheduler.events().awaitStates(task->getHandle(), {2}));
}

TEST_F(RuvoTSEngineTest, ReadsBytesOfEverySizeBack) {
    std::mt19937 random(5);
    std::string many(10'000'000, '\0');
    for (char& c : many) c = static_cast<char>(random());
    const std::string all[] = {"", std::string(1, '\0'), "\xFF", many};
    {
        OpenScheduler scheduler;
        for (std::size_t i = 0; i < std::size(all); ++i) {
            EXPECT_GE(OpenScheduler::scheduleBlob(std::to_string(i), all[i], kNoon + 60, 0), 0);
        }
    }
    OpenScheduler scheduler;
    EXPECT_EQ(set().size(), std::size(all));
    for (std::size_t i = 0; i < std::size(all); ++i) {
        const auto task = set().find(std::to_string(i));
        ASSERT_TRUE(task) << i;
        const auto answer = OpenScheduler::ask("RUVO_TS_RETRIEVE_BLOB", task->getHandle());
        ASSERT_EQ(answer.size(), 3u) << i;
        EXPECT_EQ(answer[1], "int " + std::to_string(all[i].size()));
        EXPECT_TRUE(answer[2] == "bytes " + all[i]) << i;
    }
}

TEST_F(RuvoTSEngineTest, ReadsItsTasksBackAfterEachStart) {
    OpenScheduler scheduler;
    OpenScheduler::schedule("a", "p", "", kNoon + 60, 0);
    std::set<std::int32_t> handles;
    for (int life = 0; life < 5; ++life) {
        const auto task = set().find("a");
        ASSERT_TRUE(task) << life;
        EXPECT_TRUE(handles.insert(task->getHandle()).second);
        EXPECT_TRUE(scheduler.events().awaitStates(task->getHandle(), {2}));
        scheduler.stop();
        EXPECT_EQ(set().size(), 0u);
        EXPECT_EQ(waiting(), 0u);
        scheduler.start();
    }
}

// The store has one form for all times before 1970, and what lies after 2038 is
// before 1970 in 32 bits. All else of such a task comes back as it was.
TEST_F(RuvoTSEngineTest, ReadsTasksBackWhoseTimeIsNegative) {
    // As makeTime() narrows it.
    const std::int32_t late = makeTime(2040, 1, 1, 0, 0, 0);
    ASSERT_LT(late, 0);
    const std::string bytes("\0\xFF ", 3);
    for (const std::int32_t time : {-1, INT32_MIN, late}) {
        Texts before;
        {
            OpenScheduler scheduler;
            const auto exec = RuvoTSTask::make<RuvoTSExecTask>("e", time, 3, "prog", "/w w", "-x",
                                                               "out");
            const auto blob = RuvoTSTask::make<RuvoTSBlobTask>("b", time, 1, bytes);
            set().insert(exec, true);
            set().insert(blob, true);
            before = folder_.lines();
            EXPECT_EQ(before.at(0), "78563412 exec e%00 " + std::string(19, ' ') +
                                        " 3 prog%00 %2Fw%20w%00 %2Dx%00 out%00");
        }
        OpenScheduler scheduler;
        ASSERT_EQ(set().size(), 2u);
        const auto exec = set().find("e");
        EXPECT_EQ(exec->getNextTime(), -1);
        EXPECT_EQ(exec->getFrequency(), 3u);
        EXPECT_EQ(exec->serialize(), before.at(0).substr(9));
        const auto blob = set().find("b");
        EXPECT_EQ(blob->getNextTime(), -1);
        EXPECT_EQ(blob->getFrequency(), 1u);
        EXPECT_EQ(static_cast<const RuvoTSBlobTask&>(*blob).getBlob(), bytes);
        EXPECT_EQ(waiting(), 2u);
        clock_.advance(120);
        EXPECT_EQ(waiting(), 2u);
        for (const auto& task : {exec, blob}) {
            OpenScheduler::ask("RUVO_TS_CANCEL", task->getHandle());
        }
    }
}

TEST_F(RuvoTSEngineTest, RunsTwoMinutesAfterTheStartWhatShouldHaveRunMeanwhile) {
    {
        OpenScheduler scheduler;
        OpenScheduler::scheduleBlob("daily", "", kNoon + 60, 0);
    }
    clock_.advance(3600);
    OpenScheduler scheduler;
    const auto task = set().find("daily");
    clock_.advance(120);
    EXPECT_EQ(waiting(), 1u);
    clock_.advance(1);
    EXPECT_TRUE(waitUntil([&] { return task->getNextTime() == kNoon + 60 + 86400; }));
}

// The store keeps the time of the last writing; the steps are counted from it.
TEST_F(RuvoTSEngineTest, DoesNotWriteWhenATaskMovesToItsNextTime) {
    {
        OpenScheduler scheduler;
        OpenScheduler::scheduleBlob("daily", "", kNoon + 60, 0);
        const auto task = set().find("daily");
        clock_.advance(60);
        EXPECT_TRUE(waitUntil([&] { return task->getNextTime() == kNoon + 60 + 86400; }));
        EXPECT_NE(folder_.lines().at(0).find(" 2024 06 15 12 01 00 "), std::string::npos);
    }
    OpenScheduler scheduler;
    EXPECT_EQ(set().find("daily")->getNextTime(), kNoon + 60);
}

TEST_F(RuvoTSEngineTest, ReadsOnlyTheStoreItself) {
    const std::string line =
        "78563412 exec a%00 2024 06 15 13 00 00 3 prog%00 %00 %00 %00\n";
    TestSupport::writeFile(folder_.fresh(), line);
    TestSupport::writeFile(folder_.previous(), line);
    OpenScheduler scheduler;
    EXPECT_EQ(set().size(), 0u);
    scheduler.stop();
    TestSupport::writeFile(folder_.store(), line);
    scheduler.start();
    EXPECT_EQ(set().size(), 1u);
}

TEST_F(RuvoTSEngineTest, KeepsTheGoodLinesOfABadStore) {
    const auto line = [](const std::string& name) {
        return "exec " + name + "%00 2024 06 15 13 00 00 3 prog%00 %00 %00 %00";
    };
    TestSupport::writeFile(folder_.store(),
                           "78563412 " + line("first") + "\r\n" +  // as Windows writes it
                               "12345678 " + line("wrong") + "\n" + "\n" + "rubbish\n" +
                               "78563412 task x\n" + "78563412 " + line("second") + "\n" +
                               std::string("\0\xFF\n", 3) + "78563412 exec short%00\n" +
                               "78563412 " + line("last"));
    OpenScheduler scheduler;
    FakeConnection connection;
    connection.sendString("RUVO_TS_LIST_EXEC");
    EXPECT_EQ(OpenScheduler::request(connection),
              (Texts{"int 0", "string first second short last "}));
    EXPECT_EQ(waiting(), 4u);
}

TEST_F(RuvoTSEngineTest, TakesAnyFileForAStore) {
    std::mt19937 random(11);
    for (int round = 0; round < 30; ++round) {
        std::string bytes;
        const std::size_t size = random() % 20'000;
        while (bytes.size() < size) {
            switch (random() % 5) {
                case 0: bytes += "78563412 exec "; break;
                case 1: bytes += "78563412 blob x%00 1 2 3 4 5 6 7 f.blb 99 78563412 0102"; break;
                case 2: bytes += '\n'; break;
                case 3: bytes += "%00 -99999999999 "; break;
                default: bytes += static_cast<char>(random()); break;
            }
        }
        TestSupport::writeFile(folder_.store(), bytes);
        OpenScheduler scheduler;
        const std::size_t tasks = set().size();
        OpenScheduler::schedule("one more", "p", "", kNoon + 60, 0);
        scheduler.stop();
        // What was written of it comes back as often.
        EXPECT_EQ(folder_.lines().size(), tasks + 1);
        scheduler.start();
        EXPECT_EQ(set().size(), tasks + 1);
        EXPECT_TRUE(set().find("one more"));
    }
}

TEST_F(RuvoTSEngineTest, ReadsAHundredThousandLines) {
    std::string bytes;
    for (int i = 0; i < 100'000; ++i) {
        bytes += "78563412 exec task" + std::to_string(i) +
                 "%00 2024 06 15 13 00 00 3 prog%00 %00 %00 %00\n";
    }
    TestSupport::writeFile(folder_.store(), bytes);
    OpenScheduler scheduler;
    EXPECT_EQ(set().size(), 100'000u);
    EXPECT_EQ(waiting(), 100'000u);
    EXPECT_TRUE(set().find("task99999"));
}

// The listeners may serve clients while the store is still being read.
TEST_F(RuvoTSEngineTest, AnswersFromTheWholeStoreWhileItStarts) {
    std::string bytes;
    for (int i = 0; i < 30'000; ++i) {
        bytes += "78563412 exec task" + std::to_string(i) +
                 "%00 2024 06 15 13 00 00 3 prog%00 %00 %00 %00\n";
    }
    OpenScheduler scheduler;
    scheduler.stop();
    TestSupport::writeFile(folder_.store(), bytes);
    std::jthread start([&] { scheduler.start(); });
    EXPECT_TRUE(waitUntil([&] { return set().find("task0") != nullptr; }));
    FakeConnection connection;
    connection.sendString("RUVO_TS_SCHEDULED_TASK_LOOKUP").sendString("task29999");
    const auto handle = TestSupport::numberOf(OpenScheduler::request(connection).at(0));
    EXPECT_GE(handle, 0);
    EXPECT_EQ(OpenScheduler::ask("RUVO_TS_CANCEL", handle), Texts{"int " + std::to_string(handle)});
    EXPECT_GE(OpenScheduler::schedule("new", "p", "", kNoon + 60, 0), 0);
    start.join();
    const Texts lines = folder_.lines();
    ASSERT_EQ(lines.size(), 30'000u);
    EXPECT_NE(lines.back().find(" exec new%00 "), std::string::npos);
}

// What cannot be read must not be replaced by what is known without it.
TEST_F(RuvoTSEngineTest, LeavesAStoreAloneThatItCannotRead) {
    std::filesystem::create_directory(TestSupport::toPath(folder_.store()));
    const LogCapture log(2);
    OpenScheduler scheduler;
    EXPECT_EQ(log.texts(2).size(), 1u);
    EXPECT_TRUE(log.texts(2).at(0).starts_with("RuvoTSEngine::recover: "));
    EXPECT_GE(OpenScheduler::schedule("a", "p", "", kNoon + 60, 0), 0);
    EXPECT_TRUE(std::filesystem::is_directory(TestSupport::toPath(folder_.store())));
    EXPECT_FALSE(TestSupport::exists(folder_.fresh()));
    EXPECT_EQ(log.texts(2).size(), 1u);
    // With the next start it may be readable.
    scheduler.stop();
    std::filesystem::remove(TestSupport::toPath(folder_.store()));
    scheduler.start();
    OpenScheduler::schedule("b", "p", "", kNoon + 60, 0);
    EXPECT_EQ(folder_.lines().size(), 1u);
}

TEST_F(RuvoTSEngineTest, LeavesAStoreAloneOfWhichItLeftOutALine) {
    const auto line = [](const std::string& name) {
        return "78563412 exec " + name + "%00 2024 06 15 13 00 00 3 prog%00 %00 %00 %00\n";
    };
    const auto path = TestSupport::toPath(folder_.store());
    TestSupport::writeFile(folder_.store(), line("first") + "78563412 exec long");
    std::filesystem::resize_file(path, std::filesystem::file_size(path) +
                                           RuvoTSStore::longestLine());
    std::ofstream(path, std::ios::binary | std::ios::app) << '\n' << line("last");
    const auto size = std::filesystem::file_size(path);
    const LogCapture log(2);
    {
        OpenScheduler scheduler;
        EXPECT_EQ(set().size(), 2u);  // the others run
        EXPECT_TRUE(set().find("last"));
        EXPECT_GE(OpenScheduler::schedule("new", "p", "", kNoon + 60, 0), 0);
    }
    EXPECT_EQ(std::filesystem::file_size(path), size);
    EXPECT_FALSE(TestSupport::exists(folder_.previous()));
    EXPECT_FALSE(TestSupport::exists(folder_.fresh()));
    ASSERT_EQ(log.texts(2).size(), 1u);
    EXPECT_TRUE(log.texts(2)[0].starts_with("RuvoTSEngine::recover: "));
    EXPECT_NE(log.texts(2)[0].find(": a line is longer than "), std::string::npos);
}

// ---- the other monitor -----------------------------------------------------------

TEST_F(RuvoTSEngineTest, AnnouncesTheMonitorOfFollowers) {
    auto& manager = VornMonitor::VornEventMonitorManager::getInstance();
    {
        OpenScheduler scheduler;
        EXPECT_FALSE(manager.isKnown("SchedulerFollow"));
        manager.loadMonitor("SchedulerFollow", nullptr);
        EXPECT_TRUE(manager.isKnown("SchedulerFollow"));
        manager.unloadMonitor("SchedulerFollow");
        EXPECT_FALSE(manager.isKnown("SchedulerFollow"));
        manager.loadMonitor("SchedulerFollow", nullptr);
    }
    EXPECT_FALSE(manager.isKnown("SchedulerFollow"));
    EXPECT_ANY_THROW(manager.loadMonitor("SchedulerFollow", nullptr));
}

}  // namespace
