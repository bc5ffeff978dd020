#include "runtime/net/VornProxyDependentContainer.h"

#include "tests/runtime/net/TestProxy.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using VornNet::VornProxyDependent;
using VornNet::VornProxyDependentContainer;
using VornSupport::makeCounted;
using VornSupport::VornCriticalSection;
using VornSupport::VornSmartPointer;

namespace {

VornProxyDependentContainer& container() { return VornProxyDependentContainer::getInstance(); }

const char* const kName = "tcp:127.0.0.1:1";
const char* const kOther = "tcp:127.0.0.1:2";

std::vector<std::int32_t> handles() {
    VornCriticalSection lock(container().getlock());
    std::vector<std::int32_t> found;
    for (int i = 0; i < container().size(); ++i) found.push_back(container()[i]->getHandle());
    return found;
}

class VornProxyDependentContainerTest : public ::testing::Test {
protected:
    void TearDown() override {
        while (container().size() > 0) {
            VornSmartPointer<VornProxyDependent> first;
            {
                VornCriticalSection lock(container().getlock());
                first = container()[0];
            }
            container().remove(*first);
        }
    }
};

}  // namespace

TEST_F(VornProxyDependentContainerTest, KeepsTheOrderOfRegistration) {
    for (const int handle : {5, 1, 9}) container().add(makeCounted<TestProxy>(kName, handle));
    EXPECT_EQ(handles(), (std::vector<std::int32_t>{5, 1, 9}));
    container().remove(kName, 1);
    container().add(makeCounted<TestProxy>(kName, 1));
    EXPECT_EQ(handles(), (std::vector<std::int32_t>{5, 9, 1}));
}

TEST_F(VornProxyDependentContainerTest, FindsByNameAndHandleTogether) {
    const auto one = makeCounted<TestProxy>(kName, 1);
    const auto two = makeCounted<TestProxy>(kOther, 1);
    container().add(one);
    container().add(two);
    EXPECT_EQ(container().lookup(kName, 1).get(), one.get());
    EXPECT_EQ(container().lookup(kOther, 1).get(), two.get());
    EXPECT_FALSE(container().lookup(kName, 2));
    EXPECT_FALSE(container().lookup("tcp:127.0.0.1:3", 1));
}

TEST_F(VornProxyDependentContainerTest, TakesTheFirstOfSeveralMatches) {
    const auto first = makeCounted<TestProxy>(kName, 1);
    const auto second = makeCounted<TestProxy>(kName, 1);
    container().add(first);
    container().add(second);
    EXPECT_EQ(container().size(), 2);
    EXPECT_EQ(container().lookup(kName, 1).get(), first.get());
    container().remove(kName, 1);
    EXPECT_EQ(container().size(), 1);
    EXPECT_EQ(container().lookup(kName, 1).get(), second.get());
    container().remove(kName, 1);
    container().remove(kName, 1);
    EXPECT_EQ(container().size(), 0);
    EXPECT_FALSE(container().lookup(kName, 1));
}

TEST_F(VornProxyDependentContainerTest, RemovesOneEntryByItself) {
    const auto first = makeCounted<TestProxy>(kName, 1);
    const auto second = makeCounted<TestProxy>(kName, 1);
    container().add(first);
    container().add(second);
    EXPECT_TRUE(container().contains(*second));
    EXPECT_TRUE(container().remove(*second));
    EXPECT_FALSE(container().remove(*second));
    EXPECT_FALSE(container().contains(*second));
    EXPECT_TRUE(container().contains(*first));
    EXPECT_EQ(container().lookup(kName, 1).get(), first.get());
}

TEST_F(VornProxyDependentContainerTest, HoldsItsEntriesUntilTheyAreRemoved) {
    const auto proxy = makeCounted<TestProxy>(kName, 1);
    container().add(proxy);
    EXPECT_EQ(proxy->refCount(), 2u);
    container().remove(kName, 1);
    EXPECT_EQ(proxy->refCount(), 1u);
}

TEST_F(VornProxyDependentContainerTest, HasNothingOutsideItsRange) {
    container().add(makeCounted<TestProxy>(kName, 1));
    VornCriticalSection lock(container().getlock());
    EXPECT_FALSE(container()[-1]);
    EXPECT_FALSE(container()[1]);
    EXPECT_TRUE(container()[0]);
}

TEST_F(VornProxyDependentContainerTest, ChangesWaitForAWalkAndTheWalkersOwnDoNot) {
    container().add(makeCounted<TestProxy>(kName, 1));
    std::atomic<bool> removed{false};
    std::thread other;
    {
        VornCriticalSection lock(container().getlock());
        other = std::thread([&] {
            container().remove(kName, 1);
            removed = true;
        });
        container().add(makeCounted<TestProxy>(kName, 2));
        EXPECT_EQ(container().size(), 2);
        EXPECT_FALSE(removed);
        EXPECT_EQ(container()[0]->getHandle(), 1);
    }
    other.join();
    EXPECT_EQ(handles(), (std::vector<std::int32_t>{2}));
}

TEST_F(VornProxyDependentContainerTest, StaysWholeUnderEightThreads) {
    constexpr int kRounds = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kRounds; ++i) {
                container().add(makeCounted<TestProxy>(kName, t));
                EXPECT_EQ(container().lookup(kName, t)->getHandle(), t);
                if (i % 10 != 0) container().remove(kName, t);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(container().size(), 8 * kRounds / 10);
}

TEST_F(VornProxyDependentContainerTest, RemovesOneOfManyWithoutMovingTheOthers) {
    constexpr int kMany = 3000;
    for (const bool forwards : {true, false}) {
        for (int i = 0; i < kMany; ++i) container().add(makeCounted<TestProxy>(kName, i));
        const auto before = container().stepsForTest();
        for (int i = 0; i < kMany; ++i) container().remove(kName, forwards ? i : kMany - 1 - i);
        EXPECT_LT(container().stepsForTest() - before, 3u * kMany) << forwards;
        EXPECT_EQ(container().size(), 0);
    }
}

TEST_F(VornProxyDependentContainerTest, HasNoGapsWhereSomeWereRemoved) {
    std::vector<std::int32_t> left;
    for (int i = 0; i < 100; ++i) container().add(makeCounted<TestProxy>(kName, i));
    for (int i = 0; i < 100; ++i) {
        if (i % 3 == 0) {
            container().remove(kName, i);
        } else {
            left.push_back(i);
        }
    }
    EXPECT_EQ(container().size(), static_cast<int>(left.size()));
    EXPECT_EQ(container().lookup(kName, 98)->getHandle(), 98);
    EXPECT_FALSE(container().lookup(kName, 99));
    EXPECT_EQ(handles(), left);
    container().add(makeCounted<TestProxy>(kName, 0));
    left.push_back(0);
    EXPECT_EQ(handles(), left);
}
