#include "runtime/platform/Process.h"

#include "runtime/platform/InheritedHandles_windows.h"
#include "runtime/platform/WideText_windows.h"

#include <windows.h>

#include <memory>
#include <string_view>
#include <utility>

namespace VornPlatform {
namespace {

HANDLE native(std::intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

class NullDevice {
public:
    NullDevice() {
        SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
        handle =
            ::CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                          &inheritable, OPEN_EXISTING, 0, nullptr);
    }
    ~NullDevice() {
        if (handle != INVALID_HANDLE_VALUE) ::CloseHandle(handle);
    }
    NullDevice(const NullDevice&) = delete;
    NullDevice& operator=(const NullDevice&) = delete;

    HANDLE handle;
};

std::string_view trimmed(std::string_view line) {
    constexpr std::string_view kBlanks = " \t\r\n\v\f";
    const std::size_t begin = line.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) return {};
    return line.substr(begin, line.find_last_not_of(kBlanks) - begin + 1);
}

}  // namespace

OsError startProcess(const std::string& commandLine, ProcessHandle& process) {
    return startProcess({}, commandLine, process);
}

OsError startProcess(const std::string& program, const std::string& commandLine,
                     ProcessHandle& process) {
    const std::wstring path = toWide(program);
    std::wstring line = toWide(trimmed(commandLine));
    if (line.empty() || line.find(L'\0') != std::wstring::npos) {
        return OsError(ERROR_INVALID_PARAMETER);
    }
    NullDevice null;
    if (null.handle == INVALID_HANDLE_VALUE) return OsError::last();
    const InheritedHandles inherited({null.handle});
    if (!inherited.good()) return OsError::last();

    STARTUPINFOEXW startup{};
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    startup.StartupInfo.hStdInput = null.handle;
    startup.StartupInfo.hStdOutput = null.handle;
    startup.StartupInfo.hStdError = null.handle;
    startup.lpAttributeList = inherited.list();
    PROCESS_INFORMATION started{};
    if (!::CreateProcessW(path.empty() ? nullptr : path.c_str(), line.data(), nullptr, nullptr, TRUE,
                          CREATE_NO_WINDOW | EXTENDED_STARTUPINFO_PRESENT, nullptr, nullptr,
                          &startup.StartupInfo, &started)) {
        return OsError::last();
    }
    ::CloseHandle(started.hThread);
    process.adopt(started.dwProcessId, reinterpret_cast<std::intptr_t>(started.hProcess));
    return {};
}

void ProcessHandle::adopt(std::int64_t processId, std::intptr_t handle) {
    close();
    handle_ = handle;
    processId_ = processId;
}

void ProcessHandle::swap(ProcessHandle& other) noexcept {
    std::swap(handle_, other.handle_);
    std::swap(processId_, other.processId_);
    std::swap(exitCode_, other.exitCode_);
    std::swap(ended_, other.ended_);
}

void ProcessHandle::close() {
    if (!isOpen()) return;
    ProcessHandle going;
    going.swap(*this);
    ::CloseHandle(native(going.handle_));
    going.processId_ = 0;
}

bool ProcessHandle::wait(int ms) {
    if (ended_) return true;
    if (!isOpen() || !awaitSignal(handle_, ms)) return false;
    return collect(0);
}

bool ProcessHandle::waitUnless(NativeSignal::Handle other) {
    if (ended_) return true;
    if (!isOpen()) return false;
    // Of both at once the first counts.
    const HANDLE handles[] = {native(handle_), native(other)};
    if (::WaitForMultipleObjects(2, handles, FALSE, INFINITE) != WAIT_OBJECT_0) return false;
    return collect(0);
}

bool ProcessHandle::collect(int) {
    DWORD code = 0;
    exitCode_ = ::GetExitCodeProcess(native(handle_), &code) ? static_cast<int>(code) : -1;
    ended_ = true;
    return true;
}

OsError ProcessHandle::terminate(int exitCode) {
    if (!isOpen() || awaitSignal(handle_, 0)) return {};
    if (::TerminateProcess(native(handle_), static_cast<UINT>(exitCode))) return {};
    const OsError error = OsError::last();
    // It may have ended by itself in between.
    return awaitSignal(handle_, 0) ? OsError{} : error;
}

}  // namespace VornPlatform
