#include "runtime/platform/FreshFile.h"

#include "runtime/platform/FileSteps.h"
#include "runtime/platform/WideText_windows.h"

#include <windows.h>

#include <algorithm>

namespace VornPlatform {
namespace {

constexpr int kTries = 10;
constexpr DWORD kPauseMs = 20;

HANDLE native(std::intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

OsError result(BOOL done) { return done ? OsError{} : OsError::last(); }

// Virus scanners and indexers open a file for a moment after it was written.
bool isHeldForAMoment(DWORD error) {
    return error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED;
}

bool isFolder(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

BOOL rename(const std::wstring& from, const std::wstring& to) {
    for (int left = kTries;; --left) {
        const BOOL done = ::MoveFileExW(from.c_str(), to.c_str(),
                                        MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
        if (done || left == 0 || !isHeldForAMoment(::GetLastError())) return done;
        ::Sleep(kPauseMs);
    }
}

}  // namespace

OsError FreshFile::create(const std::string& path) {
    close();
    const std::wstring name = toWide(path);
    // Written over, it would keep its owner and rights, and its other names.
    const OsError removal = result(::DeleteFileW(name.c_str()));
    HANDLE file = INVALID_HANDLE_VALUE;
    for (int left = kTries;; --left) {
        file = ::CreateFileW(name.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE,
                             nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
        // A name that was deleted stays until the last one who holds the file closes it.
        if (file != INVALID_HANDLE_VALUE || removal || left == 0 ||
            !isHeldForAMoment(::GetLastError())) {
            break;
        }
        ::Sleep(kPauseMs);
    }
    if (file == INVALID_HANDLE_VALUE) {
        const OsError error = OsError::last();
        // Why it is still there says more.
        return removal && error.condition() == OsCondition::Exists ? removal : error;
    }
    handle_ = reinterpret_cast<std::intptr_t>(file);
    return noteFileStep(FileStep::Create, {});
}

OsError FreshFile::write(std::string_view bytes) {
    while (!bytes.empty()) {
        DWORD count = 0;
        const auto size = static_cast<DWORD>(std::min<std::size_t>(bytes.size(), MAXLONG));
        if (!::WriteFile(native(handle_), bytes.data(), size, &count, nullptr)) {
            return OsError::last();
        }
        bytes.remove_prefix(count);
    }
    return noteFileStep(FileStep::Write, {});
}

OsError FreshFile::flushToDisk() {
    return noteFileStep(FileStep::FlushToDisk, result(::FlushFileBuffers(native(handle_))));
}

OsError FreshFile::close() {
    if (!isOpen()) return {};
    const BOOL done = ::CloseHandle(native(handle_));
    handle_ = kNone;
    return noteFileStep(FileStep::Close, result(done));
}

OsError replaceFile(const std::string& fresh, const std::string& current,
                    const std::string& previous) {
    const std::wstring from = toWide(fresh);
    const std::wstring to = toWide(current);
    const std::wstring kept = toWide(previous);
    // Not left to the system: an emulator puts the file in the folder's place.
    if (isFolder(to)) return OsError(ERROR_ACCESS_DENIED);
    // A second name, not a new one: `current` never goes away. ReplaceFile, for
    // file systems without second names, may be stopped between its two steps.
    ::DeleteFileW(kept.c_str());
    if (!::CreateHardLinkW(kept.c_str(), to.c_str(), nullptr) &&
        ::GetLastError() != ERROR_FILE_NOT_FOUND &&
        ::ReplaceFileW(to.c_str(), from.c_str(), kept.c_str(), 0, nullptr, nullptr)) {
        return noteFileStep(FileStep::Replace, {});
    }
    return noteFileStep(FileStep::Replace, result(rename(from, to)));
}

OsError flushFolderOf(const std::string&) { return noteFileStep(FileStep::FlushFolder, {}); }

std::string_view lineEnd() { return "\r\n"; }
char pathSeparator() { return '\\'; }

}  // namespace VornPlatform
