#include "tests/runtime/platform/NativeProbe.h"

#include <winsock2.h>

#include <windows.h>

#include <tlhelp32.h>

#include <algorithm>
#include <cstdint>

namespace NativeProbe {

using VornPlatform::OsCondition;

namespace {

HANDLE openThread(VornPlatform::ThreadId thread) {
    return ::OpenThread(THREAD_QUERY_INFORMATION, FALSE, static_cast<DWORD>(thread));
}

}  // namespace

std::string threadName(VornPlatform::ThreadId thread) {
    using GetDescription = HRESULT(WINAPI*)(HANDLE, PWSTR*);
    const auto get = reinterpret_cast<GetDescription>(reinterpret_cast<void*>(
        ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "GetThreadDescription")));
    if (get == nullptr) return "no GetThreadDescription";
    const HANDLE handle = openThread(thread);
    PWSTR text = nullptr;
    const HRESULT result = get(handle, &text);
    ::CloseHandle(handle);
    if (FAILED(result)) return "GetThreadDescription failed";
    char name[256] = {};
    ::WideCharToMultiByte(CP_UTF8, 0, text, -1, name, sizeof name, nullptr, nullptr);
    ::LocalFree(text);
    return name;
}

std::string shownName(const std::string& name) { return name; }

std::size_t currentStackBytes() {
    ULONG_PTR low = 0;
    ULONG_PTR high = 0;
    ::GetCurrentThreadStackLimits(&low, &high);
    return high - low;
}

std::size_t leastStackFor(std::size_t bytes) { return bytes; }
// The system rounds up to 64 KiB and an emulator to 1 MiB.
std::size_t mostStackFor(std::size_t bytes) {
    return std::max<std::size_t>(bytes, 1 << 20) + (64 << 10);
}
std::size_t impossibleStack() { return 0; }

int threadPriority(VornPlatform::ThreadId thread) {
    const HANDLE handle = openThread(thread);
    const int priority = ::GetThreadPriority(handle);
    ::CloseHandle(handle);
    return priority;
}

int priorityNumber(VornPlatform::ThreadPriority priority) {
    using VornPlatform::ThreadPriority;
    switch (priority) {
        case ThreadPriority::Idle: return THREAD_PRIORITY_IDLE;
        case ThreadPriority::Lowest: return THREAD_PRIORITY_LOWEST;
        case ThreadPriority::BelowNormal: return THREAD_PRIORITY_BELOW_NORMAL;
        case ThreadPriority::Normal: return THREAD_PRIORITY_NORMAL;
        case ThreadPriority::AboveNormal: return THREAD_PRIORITY_ABOVE_NORMAL;
        case ThreadPriority::Highest: return THREAD_PRIORITY_HIGHEST;
        case ThreadPriority::TimeCritical: return THREAD_PRIORITY_TIME_CRITICAL;
    }
    return 99;
}

bool waitsReady(VornPlatform::NativeSignal::Handle handle, int ms) {
    return ::WaitForSingleObject(reinterpret_cast<HANDLE>(handle), static_cast<DWORD>(ms)) ==
           WAIT_OBJECT_0;
}

int countThreads() {
    const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    int count = 0;
    for (BOOL more = ::Thread32First(snapshot, &entry); more;
         more = ::Thread32Next(snapshot, &entry)) {
        if (entry.th32OwnerProcessID == ::GetCurrentProcessId()) ++count;
    }
    ::CloseHandle(snapshot);
    return count;
}

// By trying them: the system's own count is always 0 in an emulator.
int countHandles() {
    int count = 0;
    for (std::uintptr_t value = 4; value < 0x10000; value += 4) {
        DWORD flags = 0;
        if (::GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags)) ++count;
    }
    return count;
}

// Each DLL was linked to the operator new of the runtime library.
bool replacesAllocationEverywhere() { return false; }

std::vector<KnownError> knownErrors() {
    return {{0, OsCondition::None},
            {WSAEWOULDBLOCK, OsCondition::WouldBlock},
            {WSAEINTR, OsCondition::Interrupted},
            {WSAETIMEDOUT, OsCondition::TimedOut},
            {WAIT_TIMEOUT, OsCondition::TimedOut},
            {ERROR_SEM_TIMEOUT, OsCondition::TimedOut},
            {ERROR_FILE_NOT_FOUND, OsCondition::NotFound},
            {ERROR_PATH_NOT_FOUND, OsCondition::NotFound},
            {ERROR_ACCESS_DENIED, OsCondition::AccessDenied},
            {ERROR_SHARING_VIOLATION, OsCondition::AccessDenied},
            {WSAEACCES, OsCondition::AccessDenied},
            {ERROR_FILE_EXISTS, OsCondition::Exists},
            {ERROR_ALREADY_EXISTS, OsCondition::Exists},
            {WSAEADDRINUSE, OsCondition::AddressInUse},
            {WSAECONNREFUSED, OsCondition::ConnectionRefused},
            {WSAECONNRESET, OsCondition::ConnectionLost},
            {WSAECONNABORTED, OsCondition::ConnectionLost},
            {ERROR_BROKEN_PIPE, OsCondition::ConnectionLost},
            {ERROR_NO_DATA, OsCondition::ConnectionLost},
            {ERROR_PIPE_NOT_CONNECTED, OsCondition::ConnectionLost},
            {WSAENOTSOCK, OsCondition::Closed},
            {ERROR_INVALID_HANDLE, OsCondition::Closed},
            {ERROR_DISK_FULL, OsCondition::NoSpace},
            {ERROR_TOO_MANY_OPEN_FILES, OsCondition::TooManyOpen},
            {WSAEMFILE, OsCondition::TooManyOpen},
            {ERROR_NOT_ENOUGH_MEMORY, OsCondition::TooManyOpen},
            {ERROR_OUTOFMEMORY, OsCondition::TooManyOpen},
            {ERROR_INVALID_PARAMETER, OsCondition::InvalidArgument},
            {WSAEINVAL, OsCondition::InvalidArgument},
            {ERROR_BAD_FORMAT, OsCondition::Other},
            {-1, OsCondition::Other},
            {99999, OsCondition::Other}};
}

void failToOpen() {
    ::CreateFileW(L"C:\\no file of this name", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
}

void failOnSocket() {
    WSADATA data;
    ::WSAStartup(MAKEWORD(2, 2), &data);
    ::listen(INVALID_SOCKET, 1);
}

}  // namespace NativeProbe
