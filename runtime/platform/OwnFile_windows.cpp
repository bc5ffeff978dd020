#include "runtime/platform/OwnFile.h"

#include "runtime/platform/WideText_windows.h"

#include <windows.h>

#include <algorithm>

namespace VornPlatform {
namespace {

HANDLE native(std::intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

}  // namespace

OsError OwnFile::open(const std::string& path, Trust& trust) {
    close();
    trust = Trust::NoFile;
    const std::wstring name = toWide(path);
    const DWORD attributes = ::GetFileAttributesW(name.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return OsError::last();
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return {};
    const HANDLE file =
        ::CreateFileW(name.c_str(), GENERIC_READ,
                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return OsError::last();
    handle_ = reinterpret_cast<std::intptr_t>(file);
    if (::GetFileType(file) == FILE_TYPE_DISK) {
        trust = Trust::Good;
    } else {
        close();
    }
    return {};
}

OsError OwnFile::read(char* buffer, std::size_t size, std::size_t& count) {
    DWORD got = 0;
    const auto most = static_cast<DWORD>(std::min<std::size_t>(size, MAXLONG));
    count = 0;
    if (!::ReadFile(native(handle_), buffer, most, &got, nullptr)) return OsError::last();
    count = got;
    return {};
}

void OwnFile::close() {
    if (!isOpen()) return;
    ::CloseHandle(native(handle_));
    handle_ = kNone;
}

}  // namespace VornPlatform
