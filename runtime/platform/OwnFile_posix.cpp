#include "runtime/platform/OwnFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace VornPlatform {
namespace {

OwnFile::Trust trustOf(const struct stat& status) {
    if (!S_ISREG(status.st_mode)) return OwnFile::Trust::NoFile;
    if (status.st_uid != ::geteuid() && status.st_uid != 0) return OwnFile::Trust::Foreign;
    if ((status.st_mode & S_IWOTH) != 0) return OwnFile::Trust::Writable;
    return OwnFile::Trust::Good;
}

}  // namespace

OsError OwnFile::open(const std::string& path, Trust& trust) {
    close();
    // Without O_NONBLOCK a named pipe would hold us until somebody writes to it.
    const int descriptor =
        ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    struct stat status {};
    if (descriptor < 0) {
        const OsError error = OsError::last();
        if (errno != ENOENT || ::lstat(path.c_str(), &status) != 0) return error;
        trust = Trust::NoFile;
        return {};
    }
    handle_ = descriptor;
    // Of what is open: a name may be given to another file meanwhile.
    if (::fstat(descriptor, &status) != 0) {
        const OsError error = OsError::last();
        close();
        return error;
    }
    trust = trustOf(status);
    if (trust != Trust::Good) close();
    return {};
}

OsError OwnFile::read(char* buffer, std::size_t size, std::size_t& count) {
    count = 0;
    for (;;) {
        const ssize_t got = ::read(static_cast<int>(handle_), buffer, size);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return OsError::last();
        count = static_cast<std::size_t>(got);
        return {};
    }
}

void OwnFile::close() {
    if (!isOpen()) return;
    ::close(static_cast<int>(handle_));
    handle_ = kNone;
}

}  // namespace VornPlatform
