#include "runtime/platform/ThreadSlot.h"

#include <windows.h>

#include <cstdlib>

namespace VornPlatform {
namespace {

// The system calls the function even when its library has gone.
void keepLoaded(void (*function)(void*)) {
    constexpr DWORD kFlags =
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN;
    HMODULE module = nullptr;
    ::GetModuleHandleExW(kFlags, reinterpret_cast<LPCWSTR>(reinterpret_cast<void*>(function)),
                         &module);
}

}  // namespace

// A fiber's slot, not a thread's, as only those have a function at the end. It
// is called before the loader's lock is taken.
ThreadSlot::ThreadSlot(void (*atExit)(void*)) {
    keepLoaded(atExit);
    key_ = ::FlsAlloc(atExit);
    if (key_ == FLS_OUT_OF_INDEXES) std::abort();
}

void* ThreadSlot::get() const { return ::FlsGetValue(key_); }

void ThreadSlot::set(void* value) {
    if (!::FlsSetValue(key_, value)) std::abort();
}

}  // namespace VornPlatform
