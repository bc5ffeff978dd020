#include "runtime/platform/Signals.h"

#include "runtime/platform/NativeThread.h"
#include "runtime/platform/Process.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace VornPlatform {
namespace {

using TestSupport::waitUntil;

std::atomic<int> stops{0};
std::atomic<int> reloads{0};

// The process keeps what watchSignals() set up, so one case shows all of it.
TEST(Signals, ReachTheActionsOnAThreadOfTheirOwnAndNobodyElse) {
    // As whoever starts us may have left it.
    ASSERT_NE(::signal(SIGCHLD, SIG_IGN), SIG_ERR);
    ASSERT_FALSE(watchSignals({.stop = [] { ++stops; }, .reload = [] { ++reloads; }}));

    // How a child ends can be learnt.
    ProcessHandle child;
    ASSERT_FALSE(startProcess("sh -c 'exit 7'", child));
    EXPECT_TRUE(child.wait(20'000));
    EXPECT_EQ(child.exitCode(), 7);

    ::kill(::getpid(), SIGHUP);
    EXPECT_TRUE(waitUntil([] { return reloads == 1; }));
    EXPECT_EQ(stops, 0);
    ::kill(::getpid(), SIGTERM);
    EXPECT_TRUE(waitUntil([] { return stops == 1; }));
    ::kill(::getpid(), SIGINT);
    EXPECT_TRUE(waitUntil([] { return stops == 2; }));
    EXPECT_EQ(reloads, 1);
    tellStopped();

    // A broken pipe is an error, and what we start gets the default back: a
    // handler goes with an exec where an ignored signal would stay ignored.
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::close(ends[0]);
    EXPECT_EQ(::write(ends[1], "x", 1), -1);
    ::close(ends[1]);
    // So is a file that has become too large.
    TestSupport::TemporaryDirectory directory;
    const int file = ::open(directory.file("a").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0);
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small{1 << 20, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const ssize_t written = ::pwrite(file, "x", 1, 2 << 20);
    const int reason = errno;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    ::close(file);
    EXPECT_EQ(written, -1);
    EXPECT_EQ(reason, EFBIG);
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
        struct sigaction action {};
        ::sigaction(signal, nullptr, &action);
        EXPECT_NE(action.sa_handler, SIG_IGN);
        EXPECT_NE(action.sa_handler, SIG_DFL);
    }

    // Threads that are started later do not take the signals.
    std::atomic<bool> blocked{false};
    std::atomic<bool> done{false};
    struct Result {
        std::atomic<bool>& blocked;
        std::atomic<bool>& done;
    } result{blocked, done};
    ASSERT_FALSE(startThread({.name = "later"},
                             [](void* raw) {
                                 auto& seen = *static_cast<Result*>(raw);
                                 sigset_t mask;
                                 ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
                                 seen.blocked = ::sigismember(&mask, SIGTERM) == 1 &&
                                                ::sigismember(&mask, SIGHUP) == 1;
                                 seen.done = true;
                             },
                             &result));
    EXPECT_TRUE(waitUntil([&] { return done.load(); }));
    EXPECT_TRUE(blocked);
}

}  // namespace
}  // namespace VornPlatform
