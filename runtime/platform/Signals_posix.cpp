#include "runtime/platform/Signals.h"

#include "runtime/platform/NativeThread.h"

#include <pthread.h>
#include <signal.h>

namespace VornPlatform {
namespace {

constexpr std::size_t kStack = 256 * 1024;

SignalActions actionsInForce;

sigset_t watchedSignals() {
    sigset_t set;
    ::sigemptyset(&set);
    ::sigaddset(&set, SIGTERM);
    ::sigaddset(&set, SIGINT);
    ::sigaddset(&set, SIGHUP);
    return set;
}

void watch(void*) {
    const sigset_t set = watchedSignals();
    for (;;) {
        int signal = 0;
        if (::sigwait(&set, &signal) != 0) continue;
        const auto action = signal == SIGHUP ? actionsInForce.reload : actionsInForce.stop;
        if (action != nullptr) action();
    }
}

void doNothing(int) {}

}  // namespace

OsError watchSignals(const SignalActions& actions) {
    actionsInForce = actions;
    // A handler and not SIG_IGN: programs that we start must not inherit it.
    struct sigaction pipe {};
    pipe.sa_handler = &doNothing;
    pipe.sa_flags = SA_RESTART;
    if (::sigaction(SIGPIPE, &pipe, nullptr) != 0) return OsError::last();

    const sigset_t set = watchedSignals();
    if (const int failed = ::pthread_sigmask(SIG_BLOCK, &set, nullptr); failed != 0) {
        return OsError(failed);
    }
    return startThread({.name = "Signals", .stackBytes = kStack}, &watch, nullptr);
}

void tellStopped() {}

}  // namespace VornPlatform
