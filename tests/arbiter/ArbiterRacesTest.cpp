// Many threads at one arbiter.

#include "runtime/monitor/VornEventMonitorManager.h"
#include "tests/arbiter/ArbiterFixture.h"

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

using namespace ArbiterTest;

namespace {

class ArbiterRaces : public Fixture {
protected:
    using RANode = RuvoService::RuvoRAEngine::RANode;
};

}  // namespace

// What a lock guards needs no other guard; the thread sanitizer looks on.
TEST_F(ArbiterRaces, GuardPlainDataOfTheirClients) {
    constexpr int kThreads = 6;
    constexpr int kTurns = 200;
    int guarded = 0;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&, i] {
                const std::string path = i % 2 == 0 ? "data:guarded" : "data,guarded";
                for (int n = 0; n < kTurns; ++n) {
                    const std::int32_t handle = engine_.lock(path, kForever);
                    ASSERT_GT(handle, 0);
                    ++guarded;
                    engine_.unlock(handle);
                }
            });
        }
    }
    EXPECT_EQ(guarded, kThreads * kTurns);
    EXPECT_EQ(engine_.heldHandlesForTest(), 0u);
}

TEST_F(ArbiterRaces, GiveEveryLockAHandleOfItsOwn) {
    constexpr int kThreads = 8;
    constexpr int kLocks = 300;
    std::vector<std::vector<std::int32_t>> handles(kThreads);
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&, i] {
                auto& own = handles[static_cast<std::size_t>(i)];
                for (int n = 0; n < kLocks; ++n) {
                    own.push_back(engine_.lock(std::to_string(i) + ":" + std::to_string(n)));
                }
            });
        }
    }
    std::set<std::int32_t> all;
    for (const auto& own : handles) {
        EXPECT_TRUE(std::is_sorted(own.begin(), own.end()));
        all.insert(own.begin(), own.end());
    }
    EXPECT_EQ(all.size(), static_cast<std::size_t>(kThreads * kLocks));
    EXPECT_EQ(*all.begin(), 1);
    EXPECT_EQ(*all.rbegin(), kThreads * kLocks);
}

// Between an unlock's two looks at its handle: somebody else gives it back, and the
// lock is taken anew, under another one.
TEST_F(ArbiterRaces, FreeNothingForWhoGivesBackAHandleTooLate) {
    static Engine* engine = nullptr;
    static std::int32_t anew = 0;
    engine = &engine_;
    recorder_.remove();
    const std::int32_t handle = engine_.lock("a");
    ASSERT_GT(handle, 0);
    RANode::setWhenUnheardForTest([] {
        RANode::setWhenUnheardForTest(nullptr);
        engine->unlock(1);
        anew = engine->lock("a");
    });
    engine_.unlock(handle);
    RANode::setWhenUnheardForTest(nullptr);
    EXPECT_EQ(handle, 1);
    EXPECT_EQ(anew, 2);
    EXPECT_TRUE(engine_.isLocked("a"));
    EXPECT_EQ(engine_.heldHandlesForTest(), 1u);
}

// The same, as it comes about.
TEST_F(ArbiterRaces, FreeOneLockWhenTwoGiveBackItsHandleAtOnce) {
    constexpr int kRounds = 20'000;
    recorder_.remove();
    RANode::setWhenUnheardForTest([] { std::this_thread::yield(); });  // between the looks
    std::int32_t handle = 0;
    std::atomic<std::int32_t> others{0};  // what the other thread was granted
    std::atomic<int> arrivals{0};
    std::atomic<int> ends{0};
    std::atomic<bool> goesOn{true};
    const auto meet = [&](std::atomic<int>& count, int all) {
        ++count;
        while (count < all) std::this_thread::yield();
    };
    const auto unlockAndTry = [&] {
        engine_.unlock(handle);
        return engine_.lock("a");
    };
    std::jthread other([&] {
        for (int round = 1;; ++round) {
            meet(arrivals, 2 * round);
            if (!goesOn) return;
            others = unlockAndTry();
            meet(ends, 2 * round);
        }
    });
    const auto until = Clock::now() + milliseconds(1000);
    int rounds = 0;
    int twice = 0;
    while (rounds < kRounds && Clock::now() < until) {
        handle = engine_.lock("a");
        if (handle <= 0) break;
        ++rounds;
        meet(arrivals, 2 * rounds);
        const std::int32_t ours = unlockAndTry();
        meet(ends, 2 * rounds);
        if (ours > 0 && others > 0) ++twice;
        engine_.unlock(ours);
        engine_.unlock(others);
    }
    goesOn = false;
    meet(arrivals, 2 * rounds + 2);
    other.join();
    RANode::setWhenUnheardForTest(nullptr);
    EXPECT_GT(handle, 0) << "somebody's lock was not given back in round " << rounds;
    EXPECT_EQ(twice, 0) << "of " << rounds << " rounds";
}

// One who gives up at the moment of the unlock is either told or has let go.
TEST_F(ArbiterRaces, LoseNothingWhenTheTimeIsUpAtTheMomentOfAnUnlock) {
    for (int round = 0; round < 200; ++round) {
        const std::int32_t handle = engine_.lock("a");
        ASSERT_GT(handle, 0);
        std::int32_t got = -1;
        std::jthread waiter([&] { got = engine_.lock("a", 1 + round % 3); });
        const auto until = Clock::now() + std::chrono::microseconds(1000 + round % 3 * 1000);
        while (Clock::now() < until) std::this_thread::yield();
        engine_.unlock(handle);
        waiter.join();
        ASSERT_EQ(engine_.isLocked("a"), got > 0);
        engine_.unlock(got);
    }
}

TEST_F(ArbiterRaces, LeaveNothingLockedForClientsThatAreBrokenOffAtAnyMoment) {
    constexpr int kClients = 6;
    std::mt19937 random(11);
    for (int round = 0; round < 60; ++round) {
        const std::int32_t holder = engine_.lock("a");
        ASSERT_GT(holder, 0) << round;
        {
            std::vector<std::unique_ptr<Waiter>> waiters;
            for (int i = 0; i < kClients; ++i) {
                waiters.push_back(std::make_unique<Waiter>(engine_, "a", kForever));
            }
            std::jthread unlocking([&] { engine_.unlock(holder); });
            for (auto& waiter : waiters) {
                for (unsigned spin = random() % 64; spin > 0; --spin) std::this_thread::yield();
                waiter->client.abort();
            }
            for (auto& waiter : waiters) {
                // Who was told before it was broken off has it. Else this does nothing.
                engine_.unlock(waiter->handle());
            }
        }
        ASSERT_FALSE(engine_.isLocked("a")) << round;
        ASSERT_EQ(engine_.heldHandlesForTest(), 0u) << round;
    }
}

// As at the end of the daemon: whoever waits inside it is broken off.
TEST_F(ArbiterRaces, EndEveryWaitWhenTheEngineGoes) {
    auto& manager = VornMonitor::VornEventMonitorManager::getInstance();
    manager.setGraceForTest(milliseconds(20));
    ASSERT_EQ(engine_.lock("a"), 1);
    constexpr int kWaits = 20;
    std::vector<std::unique_ptr<Client>> clients;
    std::vector<std::jthread> threads;
    for (int i = 0; i < kWaits; ++i) {
        clients.push_back(std::make_unique<Client>());
        clients.back()->sendString("RUVO_RA_LOCK").sendString("a").sendInt(kForever);
        threads.emplace_back([&manager, client = clients.back().get()] {
            manager.handleClient("Arbiter", *client);
        });
    }
    for (const auto& client : clients) {
        ASSERT_TRUE(TestSupport::waitUntil([&] { return client->flushes() == 1; }));
    }
    engine_.retire();
    threads.clear();  // joins
    for (const auto& client : clients) EXPECT_TRUE(client->isAborted());
    EXPECT_EQ(engine_.heldHandlesForTest(), 1u);
    manager.setGraceForTest(milliseconds(2000));
}
