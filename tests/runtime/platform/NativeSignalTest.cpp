#include "runtime/platform/NativeSignal.h"

#include "tests/runtime/platform/NativeProbe.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>
#include <type_traits>
#include <vector>

using NativeProbe::waitsReady;
using VornPlatform::awaitSignal;
using VornPlatform::NativeSignal;

namespace {

constexpr int kLong = 20'000;

TEST(NativeSignal, HasNoHandleBeforeItIsOpened) {
    const NativeSignal signal;
    EXPECT_EQ(signal.handle(), NativeSignal::kNone);
}

TEST(NativeSignal, StartsOff) {
    NativeSignal signal;
    ASSERT_FALSE(signal.open());
    EXPECT_NE(signal.handle(), NativeSignal::kNone);
    EXPECT_FALSE(waitsReady(signal.handle(), 0));
}

TEST(NativeSignal, IsReadyWhileItIsOn) {
    NativeSignal signal;
    ASSERT_FALSE(signal.open());
    signal.on();
    EXPECT_TRUE(waitsReady(signal.handle(), 0));
    EXPECT_TRUE(waitsReady(signal.handle(), 0)) << "looking at it consumes nothing";
    signal.off();
    EXPECT_FALSE(waitsReady(signal.handle(), 0));
}

TEST(NativeSignal, IsWaitedForUntilItIsOn) {
    NativeSignal signal;
    ASSERT_FALSE(signal.open());
    EXPECT_FALSE(awaitSignal(signal.handle(), 0));
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_FALSE(awaitSignal(signal.handle(), 20));
    EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(19));
    for (const int ms : {kLong, -1}) {
        bool on = false;
        std::thread waiter([&] { on = awaitSignal(signal.handle(), ms); });
        signal.on();
        waiter.join();
        EXPECT_TRUE(on);
        EXPECT_TRUE(awaitSignal(signal.handle(), 0)) << "looking at it consumes nothing";
        signal.off();
    }
}

TEST(NativeSignal, IsOffAfterOneOffHoweverOftenItWasSwitchedOn) {
    NativeSignal signal;
    ASSERT_FALSE(signal.open());
    for (int i = 0; i < 1000; ++i) signal.on();
    signal.off();
    EXPECT_FALSE(waitsReady(signal.handle(), 0));
    for (int i = 0; i < 10; ++i) signal.off();
    signal.on();
    EXPECT_TRUE(waitsReady(signal.handle(), 0));
}

TEST(NativeSignal, EndsTheWaitOfAnotherThread) {
    NativeSignal signal;
    ASSERT_FALSE(signal.open());
    bool ready = false;
    std::thread waiter([&] { ready = waitsReady(signal.handle(), kLong); });
    signal.on();
    waiter.join();
    EXPECT_TRUE(ready);
}

TEST(NativeSignal, EndsTheWaitsOfSeveralThreads) {
    NativeSignal signal;
    ASSERT_FALSE(signal.open());
    std::vector<std::thread> waiters;
    std::vector<char> ready(8, 0);
    for (char& one : ready) {
        waiters.emplace_back([&] { one = waitsReady(signal.handle(), kLong) ? 1 : 0; });
    }
    signal.on();
    for (auto& waiter : waiters) waiter.join();
    EXPECT_EQ(ready, std::vector<char>(8, 1));
}

TEST(NativeSignal, IsSeparateFromOthers) {
    NativeSignal first;
    NativeSignal second;
    ASSERT_FALSE(first.open());
    ASSERT_FALSE(second.open());
    EXPECT_NE(first.handle(), second.handle());
    first.on();
    EXPECT_FALSE(waitsReady(second.handle(), 0));
}

TEST(NativeSignal, GivesItsHandleBack) {
    const int before = NativeProbe::countHandles();
    std::vector<std::unique_ptr<NativeSignal>> signals;
    for (int i = 0; i < 100; ++i) {
        signals.push_back(std::make_unique<NativeSignal>());
        ASSERT_FALSE(signals.back()->open());
    }
    EXPECT_GE(NativeProbe::countHandles(), before + 90);
    signals.clear();
    EXPECT_LE(NativeProbe::countHandles(), before + 10);
}

TEST(NativeSignal, KeepsItsOneHandleWhenOpenedAgain) {
    NativeSignal signal;
    ASSERT_FALSE(signal.open());
    signal.on();
    const int before = NativeProbe::countHandles();
    const auto handle = signal.handle();
    for (int i = 0; i < 50; ++i) EXPECT_FALSE(signal.open());
    EXPECT_EQ(signal.handle(), handle);
    EXPECT_TRUE(waitsReady(signal.handle(), 0));
    EXPECT_LE(NativeProbe::countHandles(), before + 10);
}

TEST(NativeSignal, CannotBeCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<NativeSignal>);
    EXPECT_FALSE(std::is_copy_assignable_v<NativeSignal>);
}

}  // namespace
