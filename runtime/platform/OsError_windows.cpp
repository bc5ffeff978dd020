#include "runtime/platform/OsError.h"

#include "runtime/platform/WideText_windows.h"

#include <winsock2.h>

#include <windows.h>

#include <memory>

namespace VornPlatform {

OsCondition OsError::condition() const {
    switch (code_) {
        case 0: return OsCondition::None;
        case WSAEWOULDBLOCK:
        case WSAEINPROGRESS: return OsCondition::WouldBlock;
        case WSAEINTR: return OsCondition::Interrupted;
        case WSAETIMEDOUT:
        case ERROR_TIMEOUT:
        case ERROR_SEM_TIMEOUT:
        case WAIT_TIMEOUT: return OsCondition::TimedOut;
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
        case ERROR_NOT_FOUND:
        case ERROR_INVALID_NAME:
        case ERROR_MOD_NOT_FOUND: return OsCondition::NotFound;
        case ERROR_ACCESS_DENIED:
        case ERROR_SHARING_VIOLATION:
        case WSAEACCES: return OsCondition::AccessDenied;
        case ERROR_FILE_EXISTS:
        case ERROR_ALREADY_EXISTS: return OsCondition::Exists;
        case WSAEADDRINUSE: return OsCondition::AddressInUse;
        case WSAECONNREFUSED: return OsCondition::ConnectionRefused;
        case WSAECONNRESET:
        case WSAECONNABORTED:
        case WSAESHUTDOWN:
        case WSAENOTCONN:
        case WSAENETRESET:
        case ERROR_BROKEN_PIPE:
        case ERROR_NO_DATA:
        case ERROR_PIPE_NOT_CONNECTED:
        case ERROR_NETNAME_DELETED: return OsCondition::ConnectionLost;
        case WSAENOTSOCK:
        case ERROR_INVALID_HANDLE:
        case ERROR_OPERATION_ABORTED: return OsCondition::Closed;
        case ERROR_DISK_FULL:
        case ERROR_HANDLE_DISK_FULL: return OsCondition::NoSpace;
        case WSAEMFILE:
        case WSAENOBUFS:
        case ERROR_TOO_MANY_OPEN_FILES:
        case ERROR_NOT_ENOUGH_MEMORY:
        case ERROR_NOT_ENOUGH_QUOTA:
        case ERROR_COMMITMENT_LIMIT:
        case ERROR_NO_SYSTEM_RESOURCES:
        case ERROR_MAX_THRDS_REACHED:
        case ERROR_OUTOFMEMORY: return OsCondition::TooManyOpen;
        case WSAEINVAL:
        case ERROR_INVALID_PARAMETER: return OsCondition::InvalidArgument;
        default: return OsCondition::Other;
    }
}

std::string OsError::text() const {
    wchar_t* buffer = nullptr;
    const DWORD length = ::FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, static_cast<DWORD>(code_), 0, reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
    if (length == 0) return "error " + std::to_string(code_);
    const std::unique_ptr<wchar_t, decltype(&::LocalFree)> owner(buffer, &::LocalFree);
    std::string text = toUtf8({buffer, length});
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) {
        text.pop_back();
    }
    return text;
}

OsError OsError::timedOut() { return OsError(WSAETIMEDOUT); }
OsError OsError::noMemory() { return OsError(ERROR_NOT_ENOUGH_MEMORY); }
OsError OsError::last() { return OsError(static_cast<int>(::GetLastError())); }
OsError OsError::lastSocket() { return OsError(::WSAGetLastError()); }

}  // namespace VornPlatform
