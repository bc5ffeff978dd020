#include "runtime/platform/ThreadSlot.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace VornPlatform;

namespace {

std::atomic<int> freed{0};
std::atomic<int> freedSum{0};

void freeNumber(void* value) {
    const auto* const number = static_cast<int*>(value);
    freedSum += *number;
    ++freed;
    delete number;
}

// As in use: for the life of the process.
ThreadSlot& numbers() {
    static ThreadSlot* const slot = new ThreadSlot(&freeNumber);
    return *slot;
}

TEST(ThreadSlot, GivesEachThreadAPointerOfItsOwn) {
    EXPECT_EQ(numbers().get(), nullptr);
    int here = 0;
    numbers().set(&here);
    std::thread([] { EXPECT_EQ(numbers().get(), nullptr); }).join();
    EXPECT_EQ(numbers().get(), &here);
    numbers().set(nullptr);
    EXPECT_EQ(numbers().get(), nullptr);
}

TEST(ThreadSlot, HandsThePointersOfEndingThreadsOver) {
    freed = 0;
    freedSum = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) threads.emplace_back([i] { numbers().set(new int(i)); });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(freed, 8);
    EXPECT_EQ(freedSum, 28);
}

TEST(ThreadSlot, LeavesNullsAlone) {
    freed = 0;
    std::thread([] {
        int here = 0;
        numbers().set(&here);
        numbers().set(nullptr);
    }).join();
    EXPECT_EQ(freed, 0);
}

TEST(ThreadSlot, IsOneOfSeveral) {
    static ThreadSlot* const other = new ThreadSlot([](void*) {});
    int one = 0;
    int two = 0;
    numbers().set(&one);
    other->set(&two);
    EXPECT_EQ(numbers().get(), &one);
    EXPECT_EQ(other->get(), &two);
    numbers().set(nullptr);
    other->set(nullptr);
}

}  // namespace
