#include "runtime/platform/Environment.h"

#include <unistd.h>

#include <cstdlib>

namespace VornPlatform {

std::optional<std::string> getEnv(const std::string& name) {
    const char* const value = std::getenv(name.c_str());
    if (value == nullptr) return {};
    return std::string(value);
}

OsError setEnv(const std::string& name, const std::optional<std::string>& value) {
    const int status = value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
    return status == 0 ? OsError{} : OsError::last();
}

OsError currentDirectory(std::string& path) {
    char* const found = ::getcwd(nullptr, 0);
    if (found == nullptr) return OsError::last();
    path = found;
    std::free(found);
    return {};
}

OsError changeDirectory(const std::string& path) {
    return ::chdir(path.c_str()) == 0 ? OsError{} : OsError::last();
}

std::string executablePath() {
    std::string path(256, '\0');
    for (;;) {
        const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
        if (length < 0) return {};
        if (static_cast<std::size_t>(length) < path.size()) {
            path.resize(static_cast<std::size_t>(length));
            return path;
        }
        path.resize(2 * path.size());
    }
}

}  // namespace VornPlatform
