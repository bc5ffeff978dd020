#include "scheduler/RuvoTSHandles.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <mutex>
#include <set>
#include <thread>
#include <unordered_set>
#include <vector>

using namespace RuvoService;

TEST(RuvoTSHandles, AreNeverNegativeAndNeverTheSame) {
    std::unordered_set<std::int32_t> seen;
    for (int i = 0; i < 300'000; ++i) {
        const std::int32_t handle = RuvoTSHandles::draw();
        ASSERT_GE(handle, 0);
        ASSERT_TRUE(seen.insert(handle).second) << "after " << i;
    }
}

TEST(RuvoTSHandles, AreSeededWithTheOneBefore) {
    const std::uint32_t salt = 4711;
    std::int32_t handle = 0;
    std::vector<std::int32_t> first;
    for (int i = 0; i < 10; ++i) first.push_back(handle = RuvoTSHandles::after(handle, salt));
    handle = 0;
    for (const std::int32_t expected : first) {
        handle = RuvoTSHandles::after(handle, salt);
        EXPECT_EQ(handle, expected);
    }
}

// So that handles of an earlier life of the process mean nothing: lives with
// different salts share hardly any of their first handles.
TEST(RuvoTSHandles, DifferWithTheSalt) {
    std::set<std::int32_t> all;
    constexpr int kLives = 100;
    constexpr int kHandles = 100;
    for (std::uint32_t life = 0; life < kLives; ++life) {
        std::int32_t handle = 0;
        for (int i = 0; i < kHandles; ++i) {
            handle = RuvoTSHandles::after(handle, life * 2'654'435'761u);
            EXPECT_GE(handle, 0);
            all.insert(handle);
        }
    }
    EXPECT_GT(all.size(), kLives * kHandles * 99u / 100);
}

TEST(RuvoTSHandles, AreGivenOutToManyThreads) {
    std::mutex mutex;
    std::unordered_set<std::int32_t> seen;
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            std::vector<std::int32_t> mine;
            for (int i = 0; i < 5000; ++i) mine.push_back(RuvoTSHandles::draw());
            const std::lock_guard lock(mutex);
            seen.insert(mine.begin(), mine.end());
        });
    }
    threads.clear();
    EXPECT_EQ(seen.size(), 20'000u);
}

TEST(RuvoTSHandles, NumberTheTasks) {
    const std::uint64_t first = countTask();
    EXPECT_EQ(countTask(), first + 1);
    EXPECT_EQ(countTask(), first + 2);
}

TEST(RuvoTSHandles, GiveEachNumberAnIdentity) {
    std::unordered_set<std::uint64_t> seen;
    for (std::uint64_t number = 0; number < 100'000; ++number) {
        ASSERT_TRUE(seen.insert(identityOf(number)).second);
        ASSERT_EQ(identityOf(number), identityOf(number));
    }
}
