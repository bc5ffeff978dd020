#include "runtime/platform/FreshFile.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>

namespace VornPlatform {
namespace {

constexpr mode_t kMode = 0600;

int native(std::intptr_t handle) { return static_cast<int>(handle); }

}  // namespace

OsError FreshFile::create(const std::string& path) {
    close();
    // Without O_NONBLOCK a named pipe would hold us until somebody reads it.
    const int descriptor =
        ::open(path.c_str(),
               O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK, kMode);
    if (descriptor < 0) return OsError::last();
    handle_ = descriptor;
    return {};
}

OsError FreshFile::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(native(handle_), bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return OsError::last();
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return {};
}

OsError FreshFile::flushToDisk() {
    return ::fdatasync(native(handle_)) == 0 ? OsError{} : OsError::last();
}

OsError FreshFile::close() {
    if (!isOpen()) return {};
    const int status = ::close(native(handle_));
    handle_ = kNone;
    return status == 0 || errno == EINTR ? OsError{} : OsError::last();
}

OsError replaceFile(const std::string& fresh, const std::string& current,
                    const std::string& previous) {
    ::unlink(previous.c_str());
    // A second name, not a new one: `current` never goes away.
    [[maybe_unused]] const int linked = ::link(current.c_str(), previous.c_str());
    return ::rename(fresh.c_str(), current.c_str()) == 0 ? OsError{} : OsError::last();
}

std::string_view lineEnd() { return "\n"; }
char pathSeparator() { return '/'; }

}  // namespace VornPlatform
