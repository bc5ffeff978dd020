#include "runtime/platform/Signals.h"

#include <windows.h>

namespace VornPlatform {
namespace {

constexpr DWORD kPatienceMs = 5000;
constexpr int kHangUp = 1;
constexpr int kInterrupt = 2;
constexpr int kQuit = 3;

SignalActions actionsInForce;
HANDLE stopped = nullptr;  // for as long as the process lives

int signalOf(DWORD event) {
    if (event == CTRL_C_EVENT) return kInterrupt;
    return event == CTRL_BREAK_EVENT ? kQuit : kHangUp;
}

BOOL WINAPI handle(DWORD event) {
    const bool endsTheProcess = event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT;
    if (actionsInForce.end != nullptr) {
        // Each process of a console is told.
        actionsInForce.end({.signal = signalOf(event),
                            .reachedOthers = true,
                            .graceMs = endsTheProcess ? static_cast<int>(kPatienceMs) : -1});
    } else if (actionsInForce.stop != nullptr) {
        actionsInForce.stop();
    }
    if (endsTheProcess) ::WaitForSingleObject(stopped, kPatienceMs);
    return TRUE;
}

}  // namespace

OsError watchSignals(const SignalActions& actions) {
    actionsInForce = actions;
    stopped = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (stopped == nullptr) return OsError::last();
    return ::SetConsoleCtrlHandler(&handle, TRUE) ? OsError{} : OsError::last();
}

void settleSignals() {}

void tellStopped() {
    if (stopped != nullptr) ::SetEvent(stopped);
}

}  // namespace VornPlatform
