#include "runtime/platform/Signals.h"

#include "runtime/platform/NativeThread.h"
#include "runtime/platform/Signals_posix.h"

#include <pthread.h>
#include <signal.h>

namespace VornPlatform {
namespace {

constexpr std::size_t kStack = 256 * 1024;

SignalActions actionsInForce;
sigset_t watched;
sigset_t ignoredWhenTyped;
sigset_t maskBefore;
bool isWatching = false;

bool isIgnored(int signal) {
    struct sigaction action {};
    return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void chooseSignals() {
    const bool isAskedToEnd = actionsInForce.end != nullptr;
    ::sigemptyset(&watched);
    ::sigemptyset(&ignoredWhenTyped);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
        if (signal == SIGQUIT && !isAskedToEnd) continue;
        if (isAskedToEnd && isIgnored(signal)) {
            if (signal == SIGTERM || signal == SIGHUP) continue;
            ::sigaddset(&ignoredWhenTyped, signal);
        }
        ::sigaddset(&watched, signal);
    }
}

void handle(const siginfo_t& signal) {
    if (actionsInForce.end != nullptr) {
        // What the kernel sends by itself comes from the terminal, and goes to all
        // of its foreground.
        const bool isTyped = signal.si_code == SI_KERNEL;
        if (isTyped && ::sigismember(&ignoredWhenTyped, signal.si_signo) == 1) return;
        actionsInForce.end({.signal = signal.si_signo, .reachedOthers = isTyped});
        return;
    }
    const auto action = signal.si_signo == SIGHUP ? actionsInForce.reload : actionsInForce.stop;
    if (action != nullptr) action();
}

void watch(void*) {
    for (;;) {
        siginfo_t signal{};
        if (::sigwaitinfo(&watched, &signal) > 0) handle(signal);
    }
}

void doNothing(int) {}

// Writes that nobody takes, or that go beyond the largest allowed file.
OsError failInsteadOfEnding() {
    // A handler and not SIG_IGN: programs that we start must not inherit it.
    struct sigaction nothing {};
    nothing.sa_handler = &doNothing;
    nothing.sa_flags = SA_RESTART;
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
        if (actionsInForce.end != nullptr && isIgnored(signal)) continue;
        if (::sigaction(signal, &nothing, nullptr) != 0) return OsError::last();
    }
    return {};
}

}  // namespace

OsError watchSignals(const SignalActions& actions) {
    actionsInForce = actions;
    if (const OsError error = failInsteadOfEnding()) return error;
    chooseSignals();
    if (const int failed = ::pthread_sigmask(SIG_BLOCK, &watched, &maskBefore); failed != 0) {
        return OsError(failed);
    }
    isWatching = true;
    return startThread({.name = "Signals", .stackBytes = kStack}, &watch, nullptr);
}

void tellStopped() {}

sigset_t maskForChildren() {
    sigset_t mask = maskBefore;
    if (!isWatching) ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return mask;
}

}  // namespace VornPlatform
