#include "runtime/platform/NativeSignal.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <thread>

using VornPlatform::awaitSignal;
using VornPlatform::NativeSignal;

namespace {

// The system refuses to wait for anything: its call fails at once.
class NoWaiting {
public:
    NoWaiting() {
        EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &before_), 0);
        const rlimit none{0, before_.rlim_max};
        EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    }
    ~NoWaiting() { EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &before_), 0); }
    NoWaiting(const NoWaiting&) = delete;
    NoWaiting& operator=(const NoWaiting&) = delete;

private:
    rlimit before_{};
};

// Who tries something fifty times, with pauses, has waited for as long.
TEST(NativeSignalLinux, TakesItsTimeWhenTheSystemFailsToWait) {
    NativeSignal signal;
    ASSERT_FALSE(signal.open());
    const NoWaiting none;
    for (const int ms : {0, 5, 50}) {
        const auto begun = std::chrono::steady_clock::now();
        EXPECT_FALSE(awaitSignal(signal.handle(), ms));
        EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(ms));
    }
}

TEST(NativeSignalLinux, SeesTheSignalWhenTheSystemWaitsAgain) {
    NativeSignal signal;
    ASSERT_FALSE(signal.open());
    for (const int ms : {20'000, -1}) {
        bool on = false;
        std::atomic<bool> begun{false};
        std::atomic<bool> go{false};
        // Begun before: a sanitizer's look at the thread takes descriptors.
        std::thread waiter([&] {
            begun = true;
            while (!go) std::this_thread::yield();
            on = awaitSignal(signal.handle(), ms);
        });
        while (!begun) std::this_thread::yield();
        {
            const NoWaiting none;
            go = true;
            signal.on();
        }
        waiter.join();
        EXPECT_TRUE(on);
        signal.off();
    }
}

}  // namespace
