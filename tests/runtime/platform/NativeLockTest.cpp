#include "runtime/platform/NativeLock.h"

#include "tests/runtime/platform/NativeProbe.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using namespace VornPlatform;
using namespace std::chrono_literals;
using std::chrono::steady_clock;

namespace {

template <class Body>
void onTwoThreads(Body body) {
    std::thread other(body);
    body();
    other.join();
}

bool otherThreadGetsIt(NativeMutex& mutex) {
    bool got = false;
    std::thread([&] {
        got = mutex.try_lock();
        if (got) mutex.unlock();
    }).join();
    return got;
}

TEST(NativeMutex, IsHeldByOneThread) {
    NativeMutex mutex;
    EXPECT_TRUE(otherThreadGetsIt(mutex));
    mutex.lock();
    EXPECT_FALSE(otherThreadGetsIt(mutex));
    mutex.unlock();
    EXPECT_TRUE(mutex.try_lock());
    EXPECT_FALSE(otherThreadGetsIt(mutex));
    mutex.unlock();
    EXPECT_TRUE(otherThreadGetsIt(mutex));
}

TEST(NativeMutex, ExcludesUnderLoad) {
    NativeMutex mutex;
    long sum = 0;
    onTwoThreads([&] {
        for (int i = 0; i < 100'000; ++i) {
            mutex.lock();
            ++sum;
            mutex.unlock();
        }
    });
    EXPECT_EQ(sum, 200'000);
}

TEST(NativeRecursiveMutex, IsFreeAfterAsManyUnlocks) {
    NativeRecursiveMutex mutex;
    long sum = 0;
    onTwoThreads([&] {
        for (int i = 0; i < 20'000; ++i) {
            for (int depth = 0; depth < 3; ++depth) mutex.lock();
            ++sum;
            for (int depth = 0; depth < 3; ++depth) mutex.unlock();
        }
    });
    EXPECT_EQ(sum, 40'000);
}

TEST(NativeSharedMutex, IsHeldByManyReadersOrOneWriter) {
    NativeSharedMutex mutex;
    std::atomic<int> readers{0};
    onTwoThreads([&] {
        mutex.lock_shared();
        ++readers;
        while (readers < 2) std::this_thread::yield();
        mutex.unlock_shared();
    });
    long sum = 0;
    std::atomic<int> torn{0};
    onTwoThreads([&] {
        for (int i = 0; i < 20'000; ++i) {
            mutex.lock();
            ++sum;
            ++sum;
            mutex.unlock();
            mutex.lock_shared();
            if (sum % 2 != 0) ++torn;
            mutex.unlock_shared();
        }
    });
    EXPECT_EQ(sum, 80'000);
    EXPECT_EQ(torn, 0);
}

TEST(NativeCondition, HandsTurnsFromThreadToThread) {
    NativeMutex mutex;
    NativeCondition changed;
    int turns = 0;
    std::atomic<int> next{0};
    onTwoThreads([&] {
        const int me = next++;
        mutex.lock();
        for (int i = 0; i < 2000; ++i) {
            while (turns % 2 != me) changed.wait(mutex);
            ++turns;
            changed.notifyOne();
        }
        mutex.unlock();
    });
    EXPECT_EQ(turns, 4000);
}

TEST(NativeCondition, WakesAllWhoWait) {
    NativeMutex mutex;
    NativeCondition changed;
    int waiting = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            mutex.lock();
            if (++waiting == 8) changed.notifyAll();
            while (waiting < 8) changed.wait(mutex);
            mutex.unlock();
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(waiting, 8);
}

TEST(NativeCondition, SaysWhenTheDeadlineHasPassed) {
    NativeMutex mutex;
    NativeCondition changed;
    mutex.lock();
    EXPECT_FALSE(changed.waitUntil(mutex, steady_clock::now()));
    EXPECT_FALSE(changed.waitUntil(mutex, steady_clock::now() - 1h));
    const auto deadline = steady_clock::now() + 30ms;
    while (changed.waitUntil(mutex, deadline)) {}
    EXPECT_GE(steady_clock::now(), deadline);
    EXPECT_FALSE(otherThreadGetsIt(mutex)) << "held again after the wait";
    mutex.unlock();
}

TEST(NativeCondition, WaitsForFarDeadlinesToo) {
    const steady_clock::duration aheads[] = {1min, 24h * 365 * 90};
    for (const auto ahead : aheads) {
        NativeMutex mutex;
        NativeCondition changed;
        bool told = false;
        std::thread teller([&] {
            mutex.lock();
            told = true;
            mutex.unlock();
            changed.notifyOne();
        });
        mutex.lock();
        const auto deadline = steady_clock::now() + ahead;
        while (!told) EXPECT_TRUE(changed.waitUntil(mutex, deadline));
        mutex.unlock();
        teller.join();
    }
}

TEST(NativeLock, TakesNoHandlesOfTheSystem) {
    struct All {
        NativeMutex mutex;
        NativeSharedMutex shared;
        NativeRecursiveMutex recursive;
        NativeCondition condition;
    };
    const int before = NativeProbe::countHandles();
    std::vector<All> locks(1000);
    for (All& all : locks) {
        all.shared.lock_shared();
        all.shared.unlock_shared();
        all.recursive.lock();
        all.recursive.unlock();
        all.mutex.lock();
        all.condition.waitUntil(all.mutex, steady_clock::now());
        all.condition.notifyAll();
        all.mutex.unlock();
    }
    EXPECT_LT(NativeProbe::countHandles(), before + 50);
}

}  // namespace
