#include "runtime/platform/Foreground.h"

#include "runtime/platform/CommandLine_windows.h"
#include "runtime/platform/Environment.h"
#include "runtime/platform/InheritedHandles_windows.h"
#include "runtime/platform/WideText_windows.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace VornPlatform {
namespace {

constexpr std::size_t kLongestPath = 32'767;

// ---- finding the program -----------------------------------------------------

bool isFile(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

bool hasExtension(std::wstring_view path, std::wstring_view extension) {
    if (path.size() <= extension.size()) return false;
    const std::wstring_view end = path.substr(path.size() - extension.size());
    return std::equal(end.begin(), end.end(), extension.begin(), [](wchar_t a, wchar_t b) {
        return (a >= L'A' && a <= L'Z' ? a + (L'a' - L'A') : a) == b;
    });
}

constexpr std::array<const wchar_t*, 4> kExtensions = {L".com", L".exe", L".bat", L".cmd"};

bool isRunnable(std::wstring_view path) {
    return std::any_of(kExtensions.begin(), kExtensions.end(),
                       [&](const wchar_t* each) { return hasExtension(path, each); });
}

// The file that `path` is short for.
bool complete(const std::wstring& path, std::wstring& file) {
    if (isRunnable(path) && isFile(path)) {
        file = path;
        return true;
    }
    for (const wchar_t* const extension : kExtensions) {
        if (!isFile(path + extension)) continue;
        file = path + extension;
        return true;
    }
    return false;
}

std::wstring unquoted(std::wstring text) {
    std::erase(text, L'"');
    return text;
}

bool findAlongPath(const std::wstring& name, std::wstring& file) {
    if (::NeedCurrentDirectoryForExePathW(name.c_str()) && complete(L".\\" + name, file)) {
        return true;
    }
    const std::wstring path = toWide(getEnv("PATH").value_or(""));
    for (std::size_t begin = 0; begin <= path.size();) {
        const std::size_t end = std::min(path.find(L';', begin), path.size());
        const std::wstring folder = unquoted(path.substr(begin, end - begin));
        if (!folder.empty() && complete(folder + L'\\' + name, file)) return true;
        begin = end + 1;
    }
    return false;
}

OsError findProgram(const std::wstring& name, std::wstring& file) {
    if (name.find(L'"') != std::wstring::npos) return OsError(ERROR_FILE_NOT_FOUND);
    const bool isPath = name.find_first_of(L"\\/:") != std::wstring::npos;
    if (isPath ? complete(name, file) : findAlongPath(name, file)) return {};
    // A file that is there, and no program.
    return OsError(isPath && isFile(name) ? ERROR_BAD_EXE_FORMAT : ERROR_FILE_NOT_FOUND);
}

std::wstring interpreterFile() {
    std::wstring folder(kLongestPath, L'\0');
    folder.resize(::GetSystemDirectoryW(folder.data(), static_cast<UINT>(folder.size())));
    return folder + L"\\cmd.exe";
}

// What CreateProcess is to run, and with which line.
OsError lineFor(std::vector<std::wstring> words, std::wstring& file, std::wstring& line) {
    if (const OsError error = findProgram(words[0], file)) return error;
    if (!hasExtension(file, L".bat") && !hasExtension(file, L".cmd")) {
        line = joinCommandLine(words);
        return {};
    }
    words[0] = file;
    file = interpreterFile();
    return joinBatchLine(file, words, line) ? OsError{} : OsError(ERROR_INVALID_PARAMETER);
}

// ---- standard streams --------------------------------------------------------

// Our three, made so that a child can inherit them.
class StandardStreams {
public:
    StandardStreams() {
        constexpr std::array<DWORD, 3> kIds = {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE,
                                               STD_ERROR_HANDLE};
        for (std::size_t i = 0; i < kIds.size(); ++i) {
            const HANDLE own = ::GetStdHandle(kIds[i]);
            const HANDLE self = ::GetCurrentProcess();
            if (own == nullptr || own == INVALID_HANDLE_VALUE) continue;
            HANDLE copy = nullptr;
            if (::DuplicateHandle(self, own, self, &copy, 0, TRUE, DUPLICATE_SAME_ACCESS)) {
                handles[i] = copy;
            }
        }
    }
    ~StandardStreams() {
        for (const HANDLE handle : handles) {
            if (handle != nullptr) ::CloseHandle(handle);
        }
    }
    StandardStreams(const StandardStreams&) = delete;
    StandardStreams& operator=(const StandardStreams&) = delete;

    std::vector<HANDLE> present() const {
        std::vector<HANDLE> result;
        for (const HANDLE handle : handles) {
            if (handle != nullptr) result.push_back(handle);
        }
        return result;
    }

    std::array<HANDLE, 3> handles{};  // null: we have none
};

OsError create(const std::wstring& file, std::wstring& line, PROCESS_INFORMATION& started) {
    const StandardStreams streams;
    const std::vector<HANDLE> present = streams.present();
    STARTUPINFOEXW startup{};
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    startup.StartupInfo.hStdInput = streams.handles[0];
    startup.StartupInfo.hStdOutput = streams.handles[1];
    startup.StartupInfo.hStdError = streams.handles[2];
    if (present.empty()) {
        return ::CreateProcessW(file.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr,
                                nullptr, &startup.StartupInfo, &started)
                   ? OsError{}
                   : OsError::last();
    }
    const InheritedHandles inherited(present);
    if (!inherited.good()) return OsError::last();
    startup.lpAttributeList = inherited.list();
    return ::CreateProcessW(file.c_str(), line.data(), nullptr, nullptr, TRUE,
                            EXTENDED_STARTUPINFO_PRESENT, nullptr, nullptr, &startup.StartupInfo,
                            &started)
               ? OsError{}
               : OsError::last();
}

}  // namespace

OsError startInForeground(const std::vector<std::string>& words, ProcessHandle& process) {
    std::vector<std::wstring> wide;
    for (const std::string& word : words) {
        if (word.find('\0') != std::string::npos) return OsError(ERROR_INVALID_PARAMETER);
        wide.push_back(toWide(word));
    }
    if (wide.empty() || wide[0].empty()) return OsError(ERROR_INVALID_PARAMETER);

    std::wstring file;
    std::wstring line;
    if (const OsError error = lineFor(std::move(wide), file, line)) return error;
    PROCESS_INFORMATION started{};
    if (const OsError error = create(file, line, started)) return error;
    ::CloseHandle(started.hThread);
    process.adopt(started.dwProcessId, reinterpret_cast<std::intptr_t>(started.hProcess));
    return {};
}

void handOn(const EndRequest& request, ProcessHandle& process) {
    constexpr int kSignalBase = 128;
    if (!request.reachedOthers) (void)process.terminate(kSignalBase + request.signal);
}

}  // namespace VornPlatform
