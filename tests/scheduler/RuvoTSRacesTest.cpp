// Everything at once, for the thread sanitizer above all.

#include "runtime/monitor/VornEventMonitorManager.h"
#include "runtime/net/VornProxyDependentContainer.h"
#include "runtime/support/VornException.h"
#include "scheduler/RuvoTSRuns.h"
#include "scheduler/RuvoTSTimeKeeper.h"
#include "tests/scheduler/SchedulerTestTools.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
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
            switch (random() % 8) {
                case 0:
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
                case 6: followSomehow("RUVO_TS_FOLLOW", round % 3, handle); break;
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
