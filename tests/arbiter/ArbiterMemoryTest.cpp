// Memory that runs out at each moment of a lock and of an unlock.

#include "arbiter/RuvoRATimedUnlock.h"
#include "runtime/support/VornEvent.h"
#include "tests/arbiter/ArbiterFixture.h"
#include "tests/support/FailingMemory.h"
#include "tests/support/LogCapture.h"

#include <map>
#include <memory>
#include <new>
#include <string>

using namespace ArbiterTest;
using RuvoService::RuvoRAWakeUps;
using TestSupport::LogCapture;

namespace {

constexpr int kMostAllocations = 1000;
constexpr int kLevels[] = {0, 9};

// Long enough to take memory of its own wherever it is copied.
std::string pathOf(int n) {
    return "some resource with a long name:another one below it:" + std::to_string(n);
}

class ArbiterMemory : public Fixture {
protected:
    // Locks with the n-th allocation failing, and undoes it. Whether one failed.
    bool lockWithFailure(const std::string& path, int n, int& thrown) {
        std::int32_t handle = 0;
        bool threw = false;
        FailingMemory::begin(n);
        try {
            handle = engine_.lock(path);
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        const bool failed = FailingMemory::end();
        EXPECT_TRUE(failed || !threw) << n;
        EXPECT_EQ(handle > 0, !threw) << n;
        EXPECT_EQ(engine_.isLocked(path), !threw) << n;
        EXPECT_EQ(engine_.heldHandlesForTest(), threw ? 0u : 1u) << n;
        thrown += threw ? 1 : 0;
        engine_.unlock(handle);
        EXPECT_FALSE(engine_.isLocked(path)) << n;
        return failed;
    }

    // What listeners have heard of each lock: locked and unlocked in turn.
    void expectEventsInTurn() {
        std::map<std::string, bool> isLocked;
        for (const std::string& event : events()) {
            const std::string name = event.substr(0, event.size() - 2);
            const bool locks = event.back() == '1';
            EXPECT_NE(isLocked[name], locks) << event;
            isLocked[name] = locks;
        }
        EXPECT_FALSE(isLocked.empty());
        for (const auto& [name, locked] : isLocked) EXPECT_FALSE(locked) << name;
    }
};

}  // namespace

TEST_F(ArbiterMemory, LocksANewNameOrLeavesNothingLocked) {
    int next = 0;
    for (const int level : kLevels) {
        const LogCapture log(level);
        int n = 0;
        int thrown = 0;
        while (n < kMostAllocations && lockWithFailure(pathOf(next++), n, thrown)) ++n;
        EXPECT_LT(n, kMostAllocations);
        EXPECT_GT(thrown, 0);
    }
    expectEventsInTurn();
}

TEST_F(ArbiterMemory, LocksAKnownNameOrLeavesNothingLocked) {
    const std::string path = pathOf(0);
    engine_.getNode(path);
    for (const int level : kLevels) {
        const LogCapture log(level);
        int n = 0;
        int thrown = 0;
        while (n < kMostAllocations && lockWithFailure(path, n, thrown)) ++n;
        EXPECT_LT(n, kMostAllocations);
        EXPECT_GT(thrown, 0);
    }
    expectEventsInTurn();
}

// The queue takes memory for many events at a time: only now and then does an event
// find none. One event fewer, and it is the unlock's turn.
TEST_F(ArbiterMemory, LocksNothingAndUnlocksAllTheSameWhenTheEventCannotBeQueued) {
    constexpr int kAllocations = 20;  // more than a lock makes
    constexpr int kRounds = 100;
    const std::string path = pathOf(0);
    for (int lost = 0; lost < 2; ++lost) {
        int thrown = 0;
        for (int n = 0; n < kAllocations; ++n) {
            for (int round = 0; round < kRounds; ++round) {
                lockWithFailure(path, n, thrown);
                const std::int32_t handle = engine_.lock(path);
                ASSERT_GT(handle, 0);
                FailingMemory::begin(n);
                EXPECT_NO_THROW(engine_.unlock(handle));
                FailingMemory::end();
                ASSERT_FALSE(engine_.isLocked(path)) << n;
            }
        }
        EXPECT_GT(thrown, 0);
        const std::int32_t handle = engine_.lock(path);
        FailingMemory::begin(0, FailingMemory::kAll);
        engine_.unlock(handle);
        EXPECT_TRUE(FailingMemory::end());
    }
}

// Nobody could give back what is lost here.
TEST_F(ArbiterMemory, UnlocksWhateverFails) {
    const std::string path = pathOf(0);
    for (const int level : kLevels) {
        const LogCapture log(level);
        for (const int failures : {1, FailingMemory::kAll}) {
            bool failed = true;
            for (int n = 0; failed; ++n) {
                ASSERT_LT(n, kMostAllocations);
                const std::int32_t handle = engine_.lock(path);
                ASSERT_GT(handle, 0);
                FailingMemory::begin(n, failures);
                EXPECT_NO_THROW(engine_.unlock(handle));
                failed = FailingMemory::end();
                EXPECT_FALSE(engine_.isLocked(path)) << n;
                EXPECT_EQ(engine_.heldHandlesForTest(), 0u) << n;
                EXPECT_TRUE(failed || n > 0) << "nothing takes memory";
            }
        }
    }
}

// Who could not be told finds out at the next look.
TEST_F(ArbiterMemory, LetsNobodySleepBesideALockThatIsFree) {
    const std::string path = pathOf(0);
    const auto unlockWithFailure = [&](int n, int failures) {
        const std::int32_t handle = engine_.lock(path);
        EXPECT_GT(handle, 0);
        Waiter waiter(engine_, path, kForever);
        EXPECT_TRUE(waiter.awaitWait());
        FailingMemory::begin(n, failures);
        engine_.unlock(handle);
        const bool failed = FailingMemory::end();
        EXPECT_GT(waiter.handle(), handle) << n;
        engine_.unlock(waiter.handle());
        return failed;
    };
    EXPECT_TRUE(unlockWithFailure(0, FailingMemory::kAll));
    int n = 0;
    while (n < kMostAllocations && unlockWithFailure(n, 1)) ++n;
    EXPECT_LT(n, kMostAllocations);
}

// One that is not noted down could not be woken later.
TEST_F(ArbiterMemory, WakesAtOnceWhomItCannotNoteDown) {
    const auto noted = std::make_shared<VornSupport::VornEvent>();
    const auto notNoted = std::make_shared<VornSupport::VornEvent>();
    RuvoRAWakeUps wakeUps;
    wakeUps.add(noted);
    FailingMemory::begin(0, FailingMemory::kAll);
    wakeUps.add(notNoted);
    EXPECT_TRUE(FailingMemory::end());
    EXPECT_TRUE(notNoted->wait(0));
    EXPECT_FALSE(noted->wait(0));
    wakeUps.wakeAll();
    EXPECT_TRUE(noted->wait(0));
    EXPECT_FALSE(notNoted->wait(0)) << "once";
}
