#include "runtime/platform/Signals.h"

#include <windows.h>

namespace VornPlatform {
namespace {

constexpr DWORD kPatienceMs = 5000;

SignalActions actionsInForce;
HANDLE stopped = nullptr;  // for as long as the process lives

BOOL WINAPI handle(DWORD event) {
    if (actionsInForce.stop != nullptr) actionsInForce.stop();
    const bool endsTheProcess = event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT;
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

void tellStopped() {
    if (stopped != nullptr) ::SetEvent(stopped);
}

}  // namespace VornPlatform
