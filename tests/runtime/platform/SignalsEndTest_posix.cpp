#include "runtime/platform/Foreground.h"
#include "runtime/platform/Signals.h"

#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>

namespace VornPlatform {
namespace {

using TestSupport::waitUntil;

std::atomic<int> lastSignal{0};
std::atomic<bool> hungUp{false};
std::atomic<bool> reachedOthers{true};
std::atomic<int> grace{0};
std::atomic<int> others{0};
std::atomic<int> caught{0};

unsigned long long field(const std::string& status, const std::string& name) {
    const std::size_t at = status.find("\n" + name + ":\t");
    EXPECT_NE(at, std::string::npos) << name;
    return std::stoull(status.substr(at + name.size() + 3), nullptr, 16);
}

bool has(unsigned long long mask, int signal) { return (mask >> (signal - 1) & 1) != 0; }

// The process keeps what watchSignals() set up, so one case shows all of it.
TEST(SignalsEnd, TellsWhatWasAskedAndLeavesIgnoredSignalsAlone) {
    ::signal(SIGHUP, SIG_IGN);
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGINT, SIG_IGN);  // heeded when it is sent, as here
    ::signal(SIGVTALRM, [](int) { ++caught; });
    for (const int signal : {SIGTERM, SIGQUIT}) ::signal(signal, SIG_DFL);
    sigset_t held;
    ::sigemptyset(&held);
    ::sigaddset(&held, SIGUSR1);
    ASSERT_EQ(::pthread_sigmask(SIG_SETMASK, &held, nullptr), 0);

    ASSERT_FALSE(watchSignals({.stop = [] { ++others; },
                               .reload = [] { ++others; },
                               .end = [](const EndRequest& request) {
                                   reachedOthers = request.reachedOthers;
                                   grace = request.graceMs;
                                   if (request.signal == SIGHUP) hungUp = true;
                                   lastSignal = request.signal;
                               }}));
    ::kill(::getpid(), SIGHUP);
    for (const int signal :
         {SIGTERM, SIGINT, SIGQUIT, SIGUSR1, SIGUSR2, SIGALRM, SIGABRT, SIGXCPU, SIGRTMIN}) {
        ::kill(::getpid(), signal);
        EXPECT_TRUE(waitUntil([&] { return lastSignal == signal; })) << signal;
        EXPECT_FALSE(reachedOthers);  // no terminal sent it
        EXPECT_EQ(grace, -1);
    }
    EXPECT_FALSE(hungUp);
    EXPECT_EQ(others, 0);
    // What was caught before is none of ours, and these end no process.
    ::raise(SIGVTALRM);
    EXPECT_EQ(caught, 1);
    lastSignal = 0;
    for (const int signal : {SIGPIPE, SIGCHLD, SIGWINCH, SIGURG}) ::kill(::getpid(), signal);
    settleSignals();
    EXPECT_EQ(lastSignal, 0);

    // Nothing that came before is still on its way.
    for (int round = 0; round < 2000; ++round) {
        const int signal = round % 2 == 0 ? SIGTERM : SIGUSR1;
        ::kill(::getpid(), signal);
        settleSignals();
        ASSERT_EQ(lastSignal, signal) << round;
    }
    // Also not where the user's queue of signals is full.
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_SIGPENDING, &before), 0);
    rlimit none = before;
    none.rlim_cur = 0;
    ASSERT_EQ(::setrlimit(RLIMIT_SIGPENDING, &none), 0);
    const auto settleWithAFullQueue = [] {
        for (const int signal : {SIGTERM, SIGRTMAX, SIGUSR1, SIGRTMIN, SIGHUP, SIGTERM}) {
            lastSignal = 0;
            ::kill(::getpid(), signal);
            settleSignals();
            EXPECT_EQ(lastSignal, signal == SIGHUP ? 0 : signal);
        }
        settleSignals();
        EXPECT_EQ(lastSignal, SIGTERM);  // and is none itself
    };
    // What settles without an answer takes two seconds.
    EXPECT_TRUE(TestSupport::mostTakeLessThan(
        std::chrono::seconds(2), [&] { return TestSupport::timeOf(settleWithAFullQueue); }));
    EXPECT_EQ(::setrlimit(RLIMIT_SIGPENDING, &before), 0);
    tellStopped();

    // A program in the foreground begins as this one did, not as it is now.
    const TestSupport::TemporaryDirectory directory;
    const std::string file = directory.file("status");
    ProcessHandle process;
    ASSERT_FALSE(startInForeground({"cp", "/proc/self/status", file}, process));
    ASSERT_TRUE(process.wait(20'000));
    const std::string status = TestSupport::readFile(file);
    EXPECT_EQ(field(status, "SigBlk"), 1ull << (SIGUSR1 - 1));
    const auto ignored = field(status, "SigIgn");
    EXPECT_TRUE(has(ignored, SIGHUP));
    EXPECT_TRUE(has(ignored, SIGPIPE));
    EXPECT_TRUE(has(ignored, SIGINT));
    for (const int signal : {SIGTERM, SIGQUIT}) EXPECT_FALSE(has(ignored, signal));
}

}  // namespace
}  // namespace VornPlatform
