#include "runtime/platform/Environment.h"

#include "runtime/platform/WideText_windows.h"

#include <windows.h>

#include <cstddef>

namespace VornPlatform {
namespace {

constexpr std::size_t kUsual = 256;
constexpr std::size_t kLongest = 32'767;  // of variables and paths; larger sizes overflow somewhere

// Calls `get(buffer, size)`, which returns the length that it wrote, or `size`
// or more when the text does not fit. Empty after a failure.
template <class Get>
std::wstring read(Get get) {
    std::wstring text;
    for (const std::size_t size : {kUsual, kLongest}) {
        text.resize(size);
        const DWORD length = get(text.data(), static_cast<DWORD>(size));
        if (length < size) {
            text.resize(length);
            return text;
        }
    }
    return {};
}

}  // namespace

std::optional<std::string> getEnv(const std::string& name) {
    const std::wstring wide = toWide(name);
    ::SetLastError(ERROR_SUCCESS);
    const std::wstring value = read([&wide](wchar_t* buffer, DWORD size) {
        return ::GetEnvironmentVariableW(wide.c_str(), buffer, size);
    });
    if (value.empty() && ::GetLastError() == ERROR_ENVVAR_NOT_FOUND) return {};
    return toUtf8(value);
}

OsError setEnv(const std::string& name, const std::optional<std::string>& value) {
    const std::wstring wide = toWide(value.value_or(""));
    const BOOL done =
        ::SetEnvironmentVariableW(toWide(name).c_str(), value ? wide.c_str() : nullptr);
    if (done || (!value && ::GetLastError() == ERROR_ENVVAR_NOT_FOUND)) return {};
    return OsError::last();
}

OsError currentDirectory(std::string& path) {
    const std::wstring found =
        read([](wchar_t* buffer, DWORD size) { return ::GetCurrentDirectoryW(size, buffer); });
    if (found.empty()) return OsError::last();
    path = toUtf8(found);
    return {};
}

OsError changeDirectory(const std::string& path) {
    return ::SetCurrentDirectoryW(toWide(path).c_str()) ? OsError{} : OsError::last();
}

std::string executablePath() {
    return toUtf8(read(
        [](wchar_t* buffer, DWORD size) { return ::GetModuleFileNameW(nullptr, buffer, size); }));
}

}  // namespace VornPlatform
