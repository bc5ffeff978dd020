// Everything at once, for the thread sanitizer above all.

#include "runtime/monitor/VornEventMonitorManager.h"
#include "runtime/net/VornProxyDependentContainer.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornMutex.h"
#include "scheduler/RuvoTSRuns.h"
#include "scheduler/RuvoTSTimeKeeper.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/TestListener.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace RuvoService;
using TestSupport::FakeConnection;
using TestSupport::kNoon;
using TestSupport::OpenScheduler;
using TestSupport::waitUntil;

namespace {

constexpr int kNames = 8;

std::string nameOf(unsigned number) { return "task" + std::to_string(number % kNames); }

std::int32_t lookUp(const std::string& name) {
    FakeConnection connection;
    connection.sendString("RUVO_TS_SCHEDULED_TASK_LOOKUP").sendString(name);
    return TestSupport::numberOf(OpenScheduler::request(connection).at(0));
}

void followSomehow(const char* command, std::int32_t dependent, std::int32_t task) {
    FakeConnection connection;
    // Nobody listens there, and is asked seldom because of the back-off.
    connection.sendString(command).sendString("tcp:127.0.0.1:1").sendInt(dependent).sendInt(task);
    OpenScheduler::request(connection, "SchedulerFollow");
}

void askPlain(const char* command) {
    FakeConnection connection;
    connection.sendString(command);
    EXPECT_EQ(OpenScheduler::request(connection).at(0), "int 0");
}

void askForRunTime(std::int32_t task) {
    FakeConnection connection;
    connection.sendString("RUVO_TS_EXECUTION_INFO").sendInt(task).sendInt(24);
    EXPECT_EQ(OpenScheduler::request(connection).size(), 2u);
}

void askForLastStatus(std::int32_t task) {
    FakeConnection connection;
    connection.sendString("RUVO_TS_LAST_STATUS").sendInt(task);
    OpenScheduler::request(connection, "SchedulerFollow");
}

class RuvoTSRacesTest : public testing::Test {
protected:
    RuvoTSRacesTest() {
        VornMonitor::VornEventMonitorManager::getInstance().loadMonitor("SchedulerFollow", nullptr);
    }

    TestSupport::StoreFolder folder_;
    TestSupport::TestClock clock_;
    OpenScheduler scheduler_;
};

// Clients schedule, ask, follow and cancel the same few tasks while these come
// due, run, finish and come due again.
TEST_F(RuvoTSRacesTest, CommandsTimersRunsAndCancelsGetAlong) {
    constexpr int kRounds = 150;
    std::atomic<int> cancelled{0};
    const auto client = [&](unsigned seed) {
        std::mt19937 random(seed);
        for (int round = 0; round < kRounds; ++round) {
            const std::string name = nameOf(static_cast<unsigned>(random()));
            const std::int32_t handle = lookUp(name);
            switch (random() % 14) {
                case 0:
                    OpenScheduler::schedule(name, "exit", "3", currentTime() + 1,
                                            static_cast<std::uint32_t>(random() % 6));
                    break;
                case 1:
                    OpenScheduler::scheduleBlob(name, "bytes", currentTime() + 1,
                                                static_cast<std::uint32_t>(random() % 6));
                    break;
                case 2:
                    if (OpenScheduler::ask("RUVO_TS_CANCEL", handle)[0] != "int -9") ++cancelled;
                    break;
                case 3: OpenScheduler::ask("RUVO_TS_TASK_STATE", handle); break;
                case 4: OpenScheduler::ask("RUVO_TS_GET_NEXT_TIME", handle); break;
                case 5: OpenScheduler::ask("RUVO_TS_RETRIEVE_BLOB", handle); break;
                case 6: OpenScheduler::ask("RUVO_TS_EXIT_CODE", handle); break;
                case 7: askForRunTime(handle); break;
                case 8: askPlain("RUVO_TS_LIST_EXEC"); break;
                case 9: askPlain("RUVO_TS_LIST_BLOB"); break;
                case 10: askForLastStatus(handle); break;
                case 11: followSomehow("RUVO_TS_FOLLOW", round % 3, handle); break;
                default: followSomehow("RUVO_TS_UNFOLLOW", round % 3, handle); break;
            }
        }
    };
    std::atomic<bool> done{false};
    std::jthread time([&] {
        while (!done) {
            clock_.advance(1);
            std::this_thread::yield();
        }
    });
    std::vector<std::jthread> clients;
    for (unsigned seed = 1; seed <= 4; ++seed) clients.emplace_back(client, seed);
    clients.clear();
    done = true;
    time.join();
    EXPECT_GT(cancelled, 0);

    // Afterwards every task can be ended, and then nothing is left.
    for (unsigned number = 0; number < kNames; ++number) {
        EXPECT_TRUE(waitUntil([&] {
            const std::int32_t handle = lookUp(nameOf(number));
            return handle == -9 || OpenScheduler::ask("RUVO_TS_CANCEL", handle)[0] != "int -9";
        }));
    }
    EXPECT_TRUE(waitUntil([] { return RuvoTSRuns::getInstance().count() == 0; }));
    EXPECT_TRUE(waitUntil([] { return RuvoTSTaskSet::getInstance().size() == 0; }));
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 0u);
    EXPECT_EQ(VornNet::VornProxyDependentContainer::getInstance().size(), 1);
    EXPECT_EQ(folder_.lines().size(), 0u);
}

// A command's run is slower: it is cancelled at each of its moments. Nothing of
// it stays, whichever that was.
TEST_F(RuvoTSRacesTest, ACancelAtAnyMomentOfACommandLeavesNothing) {
    for (int round = 0; round < 12; ++round) {
        const std::int32_t handle = OpenScheduler::schedule(
            "one", "exit", "3", currentTime() + 1, round % 2 == 0 ? 0 : 3);
        ASSERT_GE(handle, 0);
        clock_.advance(1);
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(60 * round);
        waitUntil([&] { return std::chrono::steady_clock::now() >= end; });
        OpenScheduler::ask("RUVO_TS_CANCEL", handle);
        EXPECT_TRUE(waitUntil([] { return RuvoTSTaskSet::getInstance().size() == 0; }));
        EXPECT_TRUE(waitUntil([] { return RuvoTSRuns::getInstance().count() == 0; }));
        EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), 0u);
        EXPECT_TRUE(waitUntil([&] {
            const auto states = scheduler_.events().statesOf(handle);
            return std::find(states.begin(), states.end(), -1) != states.end();
        }));
    }
    for (const auto& entry :
         std::filesystem::directory_iterator(TestSupport::toPath(folder_.text()))) {
        EXPECT_NE(entry.path().extension(), ".bat");
    }
}

// What is asked while others make the store be written, a large one, is answered
// right.
TEST_F(RuvoTSRacesTest, AnswersWhileTheStoreIsWritten) {
    const std::int32_t steady = OpenScheduler::schedule("steady", "p", "", kNoon + 3600, 1);
    std::atomic<bool> done{false};
    std::vector<std::jthread> writers;
    for (int w = 0; w < 2; ++w) {
        writers.emplace_back([w] {
            const std::string bytes(300'000, 'x');
            for (int i = 0; i < 15; ++i) {
                const auto handle = OpenScheduler::scheduleBlob("w" + std::to_string(w), bytes,
                                                                kNoon + 3600, 0);
                OpenScheduler::ask("RUVO_TS_CANCEL", handle);
            }
        });
    }
    std::atomic<int> asked{0};
    std::vector<std::jthread> askers;
    for (int a = 0; a < 3; ++a) {
        askers.emplace_back([&] {
            using Texts = std::vector<std::string>;
            do {
                EXPECT_EQ(lookUp("steady"), steady);
                EXPECT_EQ(OpenScheduler::ask("RUVO_TS_TASK_STATE", steady), Texts{"int 2"});
                EXPECT_EQ(OpenScheduler::ask("RUVO_TS_EXIT_CODE", steady), Texts{"int -999"});
                FakeConnection connection;
                connection.sendString("RUVO_TS_LIST_EXEC");
                EXPECT_EQ(OpenScheduler::request(connection), (Texts{"int 0", "string steady "}));
                EXPECT_EQ(OpenScheduler::ask("RUVO_TS_GET_NEXT_TIME", steady).at(1),
                          "string 2024 06 15 13 00 00");
                ++asked;
            } while (!done);
        });
    }
    writers.clear();
    done = true;
    askers.clear();
    EXPECT_GT(asked, 2);
    EXPECT_EQ(folder_.lines().size(), 1u);
}

// A cancel at each moment of a run. The last event but the end of a run that was
// under way is -1.
TEST_F(RuvoTSRacesTest, ACancelAtAnyMomentOfARunIsTheLastWord) {
    std::vector<std::int32_t> handles;
    for (int round = 0; round < 60; ++round) {
        const std::int32_t handle =
            OpenScheduler::scheduleBlob("one", "", currentTime() + 1, round % 2 == 0 ? 0 : 3);
        ASSERT_GE(handle, 0);
        const auto task = RuvoTSTaskSet::getInstance().find(handle);
        clock_.advance(1);
        // Where it is cancelled differs from round to round.
        const std::size_t seen = 1 + static_cast<std::size_t>(round) % 4;
        waitUntil([&] { return scheduler_.events().statesOf(handle).size() >= seen; });
        OpenScheduler::ask("RUVO_TS_CANCEL", handle);
        EXPECT_TRUE(waitUntil([&] { return task->isFinished(); }));
        EXPECT_TRUE(waitUntil([&] { return RuvoTSRuns::getInstance().count() == 0; }));
        EXPECT_TRUE(waitUntil([] { return RuvoTSTaskSet::getInstance().size() == 0; }));
        handles.push_back(handle);
    }
    for (const std::int32_t handle : handles) {
        std::vector<int> states;
        EXPECT_TRUE(waitUntil([&] {
            states = scheduler_.events().statesOf(handle);
            return std::find(states.begin(), states.end(), -1) != states.end();
        }));
        const auto end = std::find(states.begin(), states.end(), -1);
        const std::vector<int> after(end + 1, states.end());
        EXPECT_TRUE(after.empty() || after == std::vector<int>{1});
    }
}

// A client that reads what it is told, as `ruvoctl task watch` does.
class Reader {
public:
    Reader() {
        thread_ = std::jthread([this] {
            const auto client = listener_.accept();
            for (;;) {
                const std::string bytes = TestSupport::readBytes(client, 16);
                if (bytes.size() < 16) return;
                VornSupport::VornMutexLock lock(mutex_);
                states_[numberAt(bytes, 12)].push_back(numberAt(bytes, 8));
            }
        });
    }
    std::string remoteName() const { return listener_.remoteName(); }
    std::vector<std::int32_t> statesOf(std::int32_t handle) const {
        VornSupport::VornMutexLock lock(mutex_);
        const auto found = states_.find(handle);
        return found == states_.end() ? std::vector<std::int32_t>() : found->second;
    }

private:
    static std::int32_t numberAt(const std::string& bytes, std::size_t at) {
        std::uint32_t number = 0;
        for (std::size_t i = at; i < at + 4; ++i) {
            number = number << 8 | static_cast<unsigned char>(bytes[i]);
        }
        return static_cast<std::int32_t>(number);
    }

    TestSupport::TcpListener listener_;
    mutable VornSupport::VornMutex mutex_;
    std::map<std::int32_t, std::vector<std::int32_t>> states_ VORN_GUARDED_BY(mutex_);
    std::jthread thread_;
};

// Deliveries that arrive, at each moment of a run that is cancelled, while others
// follow and leave under the same name.
TEST_F(RuvoTSRacesTest, AReadingFollowerHearsOfTheCancelLast) {
    Reader reader;
    const auto tell = [&](const char* command, std::int32_t dependent, std::int32_t task) {
        FakeConnection connection;
        connection.sendString(command).sendString(reader.remoteName());
        connection.sendInt(dependent).sendInt(task);
        return OpenScheduler::request(connection, "SchedulerFollow").at(0);
    };
    // Keeps the connection.
    const std::int32_t steady = OpenScheduler::scheduleBlob("steady", "", kNoon + 9000, 0);
    EXPECT_EQ(tell("RUVO_TS_FOLLOW", 1, steady), "int 0");
    std::vector<std::int32_t> handles;
    for (int round = 0; round < 40; ++round) {
        const std::int32_t handle =
            OpenScheduler::scheduleBlob("one", "", currentTime() + 1, 0);
        EXPECT_EQ(tell("RUVO_TS_FOLLOW", 2, handle), "int 0");
        std::atomic<bool> done{false};
        std::jthread comesAndGoes([&] {
            while (!done) {
                tell("RUVO_TS_FOLLOW", 3, handle);
                tell("RUVO_TS_UNFOLLOW", 3, handle);
            }
        });
        clock_.advance(1);
        const std::size_t seen = static_cast<std::size_t>(round) % 4;
        waitUntil([&] { return scheduler_.events().statesOf(handle).size() > seen; });
        EXPECT_EQ(OpenScheduler::ask("RUVO_TS_CANCEL", handle)[0],
                  "int " + std::to_string(handle));
        done = true;
        comesAndGoes.join();
        EXPECT_TRUE(waitUntil([] { return RuvoTSRuns::getInstance().count() == 0; }));
        handles.push_back(handle);
    }
    for (const std::int32_t handle : handles) {
        EXPECT_TRUE(waitUntil([&] {
            const auto states = reader.statesOf(handle);
            return !states.empty() && states.back() == -1;
        })) << testing::PrintToString(reader.statesOf(handle));
    }
    EXPECT_EQ(tell("RUVO_TS_UNFOLLOW", 1, steady), "int 0");
    // The connection is closed behind its last delivery.
}

TEST_F(RuvoTSRacesTest, StopsAndStartsUnderClients) {
    std::atomic<bool> done{false};
    std::vector<std::jthread> clients;
    for (unsigned seed = 1; seed <= 3; ++seed) {
        clients.emplace_back([&, seed] {
            std::mt19937 random(seed);
            while (!done) {
                try {
                    const std::string name = nameOf(static_cast<unsigned>(random()));
                    OpenScheduler::scheduleBlob(name, "", currentTime() + 1,
                                                static_cast<std::uint32_t>(random() % 4));
                    if (random() % 3 == 0) OpenScheduler::ask("RUVO_TS_CANCEL", lookUp(name));
                } catch (const VornSupport::VornException&) {
                    // It is not started at this moment.
                }
            }
        });
    }
    for (int life = 0; life < 15; ++life) {
        clock_.advance(1);
        waitUntil([] { return RuvoTSTaskSet::getInstance().size() > 0; });
        scheduler_.stop();
        EXPECT_EQ(RuvoTSTaskSet::getInstance().size(), 0u);
        scheduler_.start();
    }
    done = true;
    clients.clear();
    scheduler_.stop();
    const std::size_t lines = folder_.lines().size();
    scheduler_.start();
    EXPECT_EQ(RuvoTSTaskSet::getInstance().size(), lines);
}

}  // namespace
