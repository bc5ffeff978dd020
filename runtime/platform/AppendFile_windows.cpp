#include "runtime/platform/AppendFile.h"

#include "runtime/platform/WideText_windows.h"

#include <windows.h>

#include <algorithm>

namespace VornPlatform {
namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

HANDLE native(std::intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

OsError result(BOOL done) { return done ? OsError{} : OsError::last(); }

}  // namespace

AppendFile::~AppendFile() { close(); }

OsError AppendFile::open(const std::string& path) {
    close();
    const HANDLE file =
        ::CreateFileW(toWide(path).c_str(), FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE,
                      kShareAll, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return OsError::last();
    handle_ = reinterpret_cast<std::intptr_t>(file);
    identity_ = identityOf(handle_);
    return {};
}

void AppendFile::close() {
    if (!isOpen()) return;
    ::CloseHandle(native(handle_));
    handle_ = kNone;
}

OsError AppendFile::write(std::string_view bytes, std::size_t& written) {
    DWORD count = 0;
    const auto size = static_cast<DWORD>(std::min<std::size_t>(bytes.size(), MAXLONG));
    const BOOL done = ::WriteFile(native(handle_), bytes.data(), size, &count, nullptr);
    written = count;
    return result(done);
}

// A handle that may only append may not shorten, so this takes one of its own.
OsError AppendFile::truncate() {
    const HANDLE writer = ::ReOpenFile(native(handle_), GENERIC_WRITE, kShareAll, 0);
    if (writer == INVALID_HANDLE_VALUE) return OsError::last();
    const OsError error = result(::SetEndOfFile(writer));
    ::CloseHandle(writer);
    return error;
}

std::optional<std::uint64_t> AppendFile::size() const {
    LARGE_INTEGER size{};
    if (::GetFileType(native(handle_)) != FILE_TYPE_DISK) return {};
    if (!::GetFileSizeEx(native(handle_), &size)) return {};
    return static_cast<std::uint64_t>(size.QuadPart);
}

std::optional<AppendFile::Identity> AppendFile::identityOf(std::intptr_t handle) {
    BY_HANDLE_FILE_INFORMATION found{};
    if (!::GetFileInformationByHandle(native(handle), &found)) return {};
    const auto high = static_cast<std::uint64_t>(found.nFileIndexHigh);
    return Identity{found.dwVolumeSerialNumber, high << 32 | found.nFileIndexLow};
}

bool AppendFile::isAt(const std::string& path) const {
    const HANDLE other = ::CreateFileW(toWide(path).c_str(), FILE_READ_ATTRIBUTES, kShareAll,
                                       nullptr, OPEN_EXISTING, 0, nullptr);
    if (other == INVALID_HANDLE_VALUE) return false;
    const bool same = identity_ && identityOf(reinterpret_cast<std::intptr_t>(other)) == identity_;
    ::CloseHandle(other);
    return same;
}

OsError renameFile(const std::string& from, const std::string& to) {
    return result(
        ::MoveFileExW(toWide(from).c_str(), toWide(to).c_str(), MOVEFILE_REPLACE_EXISTING));
}

OsError removeFile(const std::string& path) { return result(::DeleteFileW(toWide(path).c_str())); }

}  // namespace VornPlatform
