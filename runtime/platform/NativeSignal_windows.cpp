#include "runtime/platform/NativeSignal.h"

#include <windows.h>

namespace VornPlatform {
namespace {

HANDLE native(NativeSignal::Handle handle) { return reinterpret_cast<HANDLE>(handle); }

}  // namespace

NativeSignal::~NativeSignal() {
    if (handle_ != kNone) ::CloseHandle(native(handle_));
}

OsError NativeSignal::open() {
    if (handle_ != kNone) return {};
    const HANDLE event = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (event == nullptr) return OsError::last();
    handle_ = reinterpret_cast<Handle>(event);
    return {};
}

void NativeSignal::on() {
    if (!on_) on_ = ::SetEvent(native(handle_)) != 0;
}

void NativeSignal::off() {
    if (on_) on_ = ::ResetEvent(native(handle_)) == 0;
}

// The time is taken even when the system fails to wait: who pauses between tries
// must not try without a pause.
bool awaitSignal(NativeSignal::Handle handle, int ms) {
    const DWORD time = ms < 0 ? INFINITE : static_cast<DWORD>(ms);
    const DWORD result = ::WaitForSingleObject(native(handle), time);
    if (result == WAIT_FAILED && ms > 0) ::Sleep(time);
    return result == WAIT_OBJECT_0;
}

}  // namespace VornPlatform
