#include "runtime/platform/NativeThread.h"

#include "runtime/platform/WideText_windows.h"

#include <windows.h>

#include <process.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <memory>
#include <new>
#include <string>

namespace VornPlatform {
namespace {

struct Start {
    void (*body)(void*);
    void* argument;
    std::wstring name;
};

// Not in every version of the system that we run on, hence looked up.
using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);

SetDescription findSetDescription() {
    const HMODULE kernel = ::GetModuleHandleW(L"kernel32.dll");
    if (kernel == nullptr) return nullptr;
    return reinterpret_cast<SetDescription>(
        reinterpret_cast<void*>(::GetProcAddress(kernel, "SetThreadDescription")));
}

void describeCurrentThread(const wchar_t* name) {
    static const SetDescription setDescription = findSetDescription();
    if (setDescription != nullptr) setDescription(::GetCurrentThread(), name);
}

unsigned __stdcall enter(void* raw) {
    const std::unique_ptr<Start> start(static_cast<Start*>(raw));
    describeCurrentThread(start->name.c_str());
    start->body(start->argument);
    return 0;
}

}  // namespace

OsError startThread(const ThreadOptions& options, void (*body)(void*), void* argument) {
    std::unique_ptr<Start> start;
    try {
        start = std::make_unique<Start>(Start{body, argument, toWide(options.name)});
    } catch (const std::bad_alloc&) {
        return OsError(ERROR_NOT_ENOUGH_MEMORY);
    }
    const auto stack = static_cast<unsigned>(std::min<std::size_t>(options.stackBytes, UINT_MAX));
    const auto thread = ::_beginthreadex(nullptr, stack, &enter, start.get(),
                                         STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
    if (thread == 0) {
        return OsError(errno == EINVAL ? ERROR_INVALID_PARAMETER : ERROR_NOT_ENOUGH_MEMORY);
    }
    start.release();
    ::CloseHandle(reinterpret_cast<HANDLE>(thread));
    return {};
}

ThreadId currentThreadId() { return ::GetCurrentThreadId(); }

void nameCurrentThread(const char* name) { describeCurrentThread(toWide(name).c_str()); }

OsError setThreadPriority(ThreadId thread, ThreadPriority priority) {
    static constexpr int kPriorities[] = {
        THREAD_PRIORITY_IDLE,         THREAD_PRIORITY_LOWEST,  THREAD_PRIORITY_BELOW_NORMAL,
        THREAD_PRIORITY_NORMAL,       THREAD_PRIORITY_ABOVE_NORMAL,
        THREAD_PRIORITY_HIGHEST,      THREAD_PRIORITY_TIME_CRITICAL};
    const HANDLE handle =
        ::OpenThread(THREAD_SET_INFORMATION, FALSE, static_cast<DWORD>(thread));
    if (handle == nullptr) return OsError::last();
    const BOOL done = ::SetThreadPriority(handle, kPriorities[static_cast<int>(priority)]);
    const OsError error = done ? OsError{} : OsError::last();
    ::CloseHandle(handle);
    return error;
}

}  // namespace VornPlatform
