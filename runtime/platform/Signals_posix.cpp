#include "runtime/platform/Signals.h"

#include "runtime/platform/NativeThread.h"
#include "runtime/platform/Signals_posix.h"

#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <iterator>

namespace VornPlatform {
namespace {

constexpr std::size_t kStack = 256 * 1024;

// What settleSignals() wakes the watching thread by. Ends no process, and needs no
// place in the user's queue of signals, which may be full.
constexpr int kWake = SIGURG;
// So often, and so long each time, it looks for the answer.
constexpr int kLooks = 100;
constexpr long kLookNs = 20'000'000;
constexpr long kSecondNs = 1'000'000'000;

// They end no process, or are none of ours to take: what can be done about those
// two of writing is done elsewhere.
constexpr int kOthers[] = {SIGKILL, SIGSTOP, SIGCHLD, SIGCONT, SIGTSTP,  SIGTTIN,
                           SIGTTOU, SIGURG,  SIGPIPE, SIGXFSZ, SIGWINCH};

SignalActions actionsInForce;
sigset_t watched;
sigset_t handedOn;  // of those, to the actions
sigset_t ignoredWhenTyped;
sigset_t maskBefore;
bool isWatching = false;
bool canSettle = false;
std::atomic<unsigned> askedToSettle{0};
std::atomic<unsigned> settled{0};  // what of that has been done
sem_t settledMore;

void (*handlerOf(int signal))(int) {
    struct sigaction action {};
    return ::sigaction(signal, nullptr, &action) == 0 ? action.sa_handler : SIG_ERR;
}

bool isIgnored(int signal) { return handlerOf(signal) == SIG_IGN; }

void chooseForStopping() {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) ::sigaddset(&handedOn, signal);
}

void chooseForEnding() {
    for (int signal = 1; signal <= SIGRTMAX; ++signal) {
        if (std::find(std::begin(kOthers), std::end(kOthers), signal) != std::end(kOthers)) {
            continue;
        }
        const auto handler = handlerOf(signal);
        const bool canBeTyped = signal == SIGINT || signal == SIGQUIT;
        if (handler == SIG_IGN && canBeTyped) ::sigaddset(&ignoredWhenTyped, signal);
        // The C library refuses to tell of those that it needs itself.
        if (handler == SIG_DFL || canBeTyped) ::sigaddset(&handedOn, signal);
    }
}

void chooseSignals() {
    ::sigemptyset(&handedOn);
    ::sigemptyset(&ignoredWhenTyped);
    if (actionsInForce.end == nullptr) {
        chooseForStopping();
        watched = handedOn;
        return;
    }
    chooseForEnding();
    watched = handedOn;
    ::sigaddset(&watched, kWake);
}

// The kernel sends these by itself when somebody types, and then to all of its
// foreground. Not so SIGHUP: of a terminal that goes it tells the leader of the
// session alone, which may be us, and the foreground only when that has ended.
bool isTyped(const siginfo_t& signal) {
    return signal.si_code == SI_KERNEL &&
           (signal.si_signo == SIGINT || signal.si_signo == SIGQUIT);
}

void handle(const siginfo_t& signal) {
    const int number = signal.si_signo;
    if (::sigismember(&handedOn, number) != 1) return;
    if (actionsInForce.end != nullptr) {
        if (isTyped(signal) && ::sigismember(&ignoredWhenTyped, number) == 1) return;
        actionsInForce.end({.signal = number, .reachedOthers = isTyped(signal)});
        return;
    }
    const auto action = number == SIGHUP ? actionsInForce.reload : actionsInForce.stop;
    if (action != nullptr) action();
}

// Whatever waits by now came before the wish that it be taken, or does no harm.
void settle() {
    unsigned asked = askedToSettle.load();
    const timespec now{};
    for (;;) {
        siginfo_t signal{};
        const int taken = ::sigtimedwait(&watched, &signal, &now);
        if (taken < 0 && errno != EINTR) break;
        if (taken == kWake) {
            asked = askedToSettle.load();
        } else if (taken > 0) {
            handle(signal);
        }
    }
    if (settled.exchange(asked) != asked) ::sem_post(&settledMore);
}

void watch(void*) {
    for (;;) {
        siginfo_t signal{};
        if (::sigwaitinfo(&watched, &signal) <= 0) continue;
        if (signal.si_signo == kWake) {
            settle();
        } else {
            handle(signal);
        }
    }
}

// Short, so that a process that has been stopped for long looks again.
void awaitSettling() {
    timespec end{};
    ::clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_nsec += kLookNs;
    if (end.tv_nsec >= kSecondNs) {
        end.tv_nsec -= kSecondNs;
        ++end.tv_sec;
    }
    while (::sem_clockwait(&settledMore, CLOCK_MONOTONIC, &end) != 0 && errno == EINTR) {
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

OsError keepEndsOfChildren() {
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    return ::sigaction(SIGCHLD, &standard, nullptr) == 0 ? OsError{} : OsError::last();
}

OsError watchSignals(const SignalActions& actions) {
    actionsInForce = actions;
    if (const OsError error = failInsteadOfEnding()) return error;
    if (actions.end == nullptr) {
        if (const OsError error = keepEndsOfChildren()) return error;
    }
    chooseSignals();
    if (::sem_init(&settledMore, 0, 0) != 0) return OsError::last();
    if (const int failed = ::pthread_sigmask(SIG_BLOCK, &watched, &maskBefore); failed != 0) {
        return OsError(failed);
    }
    isWatching = true;
    const OsError error =
        startThread({.name = "Signals", .stackBytes = kStack}, &watch, nullptr);
    canSettle = !error && actionsInForce.end != nullptr;
    return error;
}

void settleSignals() {
    if (!canSettle) return;
    const unsigned asked = ++askedToSettle;
    if (::kill(::getpid(), kWake) != 0) return;
    for (int left = kLooks; left > 0 && settled.load() != asked; --left) awaitSettling();
}

void tellStopped() {}

sigset_t maskForChildren() {
    sigset_t mask = maskBefore;
    if (!isWatching) ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return mask;
}

}  // namespace VornPlatform
