#include "runtime/support/VornMutex.h"

#include "tests/runtime/platform/NativeProbe.h"
#include "tests/runtime/support/CoreTestTools.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using namespace VornSupport;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

bool otherThreadGetsIt(VornMutex& mutex) VORN_NO_THREAD_SAFETY_ANALYSIS {
    bool got = false;
    std::thread([&]() VORN_NO_THREAD_SAFETY_ANALYSIS {
        got = mutex.try_lock();
        if (got) mutex.unlock();
    }).join();
    return got;
}

TEST(VornMutex, KeepsOtherThreadsOut) {
    VornMutex mutex;
    EXPECT_TRUE(otherThreadGetsIt(mutex));
    mutex.lock();
    EXPECT_FALSE(otherThreadGetsIt(mutex));
    mutex.unlock();
    EXPECT_TRUE(otherThreadGetsIt(mutex));
}

TEST(VornMutex, GuardsAgainstEightThreads) {
    VornMutex mutex;
    long sum = 0;
    CoreTest::onThreads(8, [&](int) {
        for (int i = 0; i < 20'000; ++i) {
            const VornMutexLock lock(mutex);
            ++sum;
        }
    });
    EXPECT_EQ(sum, 160'000);
}

TEST(VornMutexLock, HoldsForItsScopeAndReleasesEarly) {
    VornMutex mutex;
    {
        VornMutexLock lock(mutex);
        EXPECT_FALSE(otherThreadGetsIt(mutex));
        lock.unlock();
        EXPECT_TRUE(otherThreadGetsIt(mutex));
        lock.lock();
        EXPECT_FALSE(otherThreadGetsIt(mutex));
    }
    EXPECT_TRUE(otherThreadGetsIt(mutex));
    {
        VornMutexLock lock(mutex);
        lock.unlock();
    }
    EXPECT_TRUE(otherThreadGetsIt(mutex));
}

TEST(VornCondition, GivesTheMutexUpWhileItWaitsAndTakesItAgain) {
    VornMutex mutex;
    VornCondition changed;
    int value = 0;
    std::thread other([&] {
        const VornMutexLock lock(mutex);
        value = 1;
        changed.notifyOne();
    });
    {
        const VornMutexLock lock(mutex);
        while (value == 0) changed.wait(mutex);
        EXPECT_FALSE(otherThreadGetsIt(mutex));
    }
    other.join();
    EXPECT_TRUE(otherThreadGetsIt(mutex));
}

TEST(VornCondition, WakesAllWhoWait) {
    VornMutex mutex;
    VornCondition changed;
    bool go = false;
    int waiting = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            const VornMutexLock lock(mutex);
            ++waiting;
            while (!go) changed.wait(mutex);
        });
    }
    EXPECT_TRUE(TestSupport::waitUntil([&] {
        const VornMutexLock lock(mutex);
        return waiting == 8;
    }));
    {
        const VornMutexLock lock(mutex);
        go = true;
        changed.notifyAll();
    }
    for (auto& thread : threads) thread.join();
}

TEST(VornCondition, SaysThatTheTimeIsUp) {
    VornMutex mutex;
    VornCondition changed;
    const VornMutexLock lock(mutex);
    EXPECT_FALSE(changed.waitUntil(mutex, steady_clock::now() - milliseconds(5)));
    const auto deadline = steady_clock::now() + milliseconds(20);
    while (changed.waitUntil(mutex, deadline)) {}
    EXPECT_GE(steady_clock::now(), deadline);
    EXPECT_FALSE(otherThreadGetsIt(mutex));
}

TEST(VornCondition, EndsATimedWaitWhenNotified) {
    VornMutex mutex;
    VornCondition changed;
    bool go = false;
    std::thread other([&] {
        const VornMutexLock lock(mutex);
        go = true;
        changed.notifyOne();
    });
    {
        const VornMutexLock lock(mutex);
        const auto deadline = steady_clock::now() + CoreTest::kPatience;
        while (!go && changed.waitUntil(mutex, deadline)) {}
        EXPECT_TRUE(go);
    }
    other.join();
}

TEST(VornSharedMutex, LetsReadersInTogether) {
    VornSharedMutex mutex;
    std::atomic<int> inside{0};
    CoreTest::onThreads(4, [&](int) {
        const VornReadLock lock(mutex);
        ++inside;
        EXPECT_TRUE(TestSupport::waitUntil([&] { return inside == 4; }));
    });
}

TEST(VornSharedMutex, LetsWritersInAlone) {
    VornSharedMutex mutex;
    long value = 0;
    std::atomic<int> torn{0};
    CoreTest::onThreads(8, [&](int i) {
        for (int n = 0; n < 5000; ++n) {
            if (i % 2 == 0) {
                const VornWriteLock lock(mutex);
                ++value;
                ++value;
            } else {
                const VornReadLock lock(mutex);
                if (value % 2 != 0) ++torn;
            }
        }
    });
    EXPECT_EQ(value, 40'000);
    EXPECT_EQ(torn, 0);
}

// Two threads meet at every one of hundreds of locks, which then go.
template <class Lockable, class Hold>
int handlesLeftBehind(Hold hold) {
    const int before = NativeProbe::countHandles();
    {
        std::vector<Lockable> locks(300);
        std::vector<CoreTest::MeetingPoint> meetings(locks.size());
        CoreTest::onThreads(2, [&](int) {
            for (std::size_t i = 0; i < locks.size(); ++i) {
                meetings[i].arrive();
                hold(locks[i], meetings[i]);
            }
        });
    }
    return NativeProbe::countHandles() - before;
}

TEST(VornMutex, GivesBackWhatItTookFromTheSystem) {
    const auto hold = [](VornMutex& mutex, CoreTest::MeetingPoint& meeting) {
        const VornMutexLock lock(mutex);
        meeting.waitForTheOther();
    };
    EXPECT_LT(handlesLeftBehind<VornMutex>(hold), 50);
}

TEST(VornSharedMutex, GivesBackWhatItTookFromTheSystem) {
    const auto hold = [](VornSharedMutex& mutex, CoreTest::MeetingPoint& meeting) {
        {
            const VornReadLock lock(mutex);
            meeting.waitForTheOther();
        }
        const VornWriteLock lock(mutex);
        meeting.waitForTheOther();
    };
    EXPECT_LT(handlesLeftBehind<VornSharedMutex>(hold), 50);
}

TEST(VornCondition, GivesBackWhatItTookFromTheSystem) {
    struct Bell {
        VornMutex mutex;
        VornCondition rung;
        int visitors VORN_GUARDED_BY(mutex) = 0;
    };
    const auto hold = [](Bell& bell, CoreTest::MeetingPoint&) {
        const VornMutexLock lock(bell.mutex);
        if (++bell.visitors == 2) bell.rung.notifyAll();
        while (bell.visitors < 2) bell.rung.wait(bell.mutex);
    };
    EXPECT_LT(handlesLeftBehind<Bell>(hold), 50);
}

}  // namespace
