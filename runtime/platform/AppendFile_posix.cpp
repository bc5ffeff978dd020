#include "runtime/platform/AppendFile.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

namespace VornPlatform {
namespace {

constexpr mode_t kMode = 0640;

int native(std::intptr_t handle) { return static_cast<int>(handle); }

OsError result(int status) { return status == 0 ? OsError{} : OsError::last(); }

}  // namespace

AppendFile::~AppendFile() { close(); }

OsError AppendFile::open(const std::string& path) {
    close();
    // Without O_NONBLOCK a named pipe would hold us until somebody reads it.
    const int descriptor = ::open(
        path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, kMode);
    if (descriptor < 0) return OsError::last();
    handle_ = descriptor;
    identity_ = identityOf(handle_);
    return {};
}

void AppendFile::close() {
    if (!isOpen()) return;
    ::close(native(handle_));
    handle_ = kNone;
}

OsError AppendFile::write(std::string_view bytes, std::size_t& written) {
    const ssize_t count = ::write(native(handle_), bytes.data(), bytes.size());
    written = count < 0 ? 0 : static_cast<std::size_t>(count);
    return count < 0 ? OsError::last() : OsError{};
}

OsError AppendFile::truncate() { return result(::ftruncate(native(handle_), 0)); }

std::optional<std::uint64_t> AppendFile::size() const {
    struct stat status {};
    if (::fstat(native(handle_), &status) != 0 || !S_ISREG(status.st_mode)) return {};
    return static_cast<std::uint64_t>(status.st_size);
}

std::optional<AppendFile::Identity> AppendFile::identityOf(std::intptr_t handle) {
    struct stat status {};
    if (::fstat(native(handle), &status) != 0) return {};
    return Identity{status.st_dev, status.st_ino};
}

bool AppendFile::isAt(const std::string& path) const {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 &&
           identity_ == Identity{status.st_dev, status.st_ino};
}

OsError renameFile(const std::string& from, const std::string& to) {
    return result(::rename(from.c_str(), to.c_str()));
}

OsError removeFile(const std::string& path) { return result(::unlink(path.c_str())); }

}  // namespace VornPlatform
