#include "runtime/platform/FreshFile.h"

#include "runtime/platform/FileSteps.h"
#include "runtime/platform/OwnFile.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>

namespace VornPlatform {
namespace {

constexpr mode_t kMode = 0600;

int native(std::intptr_t handle) { return static_cast<int>(handle); }

bool copyAll(OwnFile& from, FreshFile& to) {
    char piece[64 * 1024];
    for (;;) {
        std::size_t count = 0;
        if (from.read(piece, sizeof piece, count)) return false;
        if (count == 0) return !to.flushToDisk() && !to.close();
        if (to.write({piece, count})) return false;
    }
}

// All of it or nothing.
void copyFile(const std::string& from, const std::string& to) {
    OwnFile source;
    OwnFile::Trust trust{};
    FreshFile copy;
    if (source.open(from, trust) || !source.isOpen() || copy.create(to)) return;
    if (!copyAll(source, copy)) ::unlink(to.c_str());
}

}  // namespace

OsError FreshFile::create(const std::string& path) {
    close();
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
    int descriptor = ::open(path.c_str(), kFlags, kMode);
    OsError removal;
    if (descriptor < 0 && errno == EEXIST) {
        removal = ::unlink(path.c_str()) == 0 ? OsError{} : OsError::last();
        descriptor = ::open(path.c_str(), kFlags, kMode);
    }
    if (descriptor < 0) {
        const OsError error = OsError::last();
        // Why it is still there says more.
        return removal && error.condition() == OsCondition::Exists ? removal : error;
    }
    handle_ = descriptor;
    return noteFileStep(FileStep::Create, {});
}

OsError FreshFile::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(native(handle_), bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return OsError::last();
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return noteFileStep(FileStep::Write, {});
}

OsError FreshFile::flushToDisk() {
    return noteFileStep(FileStep::FlushToDisk,
                        ::fdatasync(native(handle_)) == 0 ? OsError{} : OsError::last());
}

OsError FreshFile::close() {
    if (!isOpen()) return {};
    const int status = ::close(native(handle_));
    handle_ = kNone;
    return noteFileStep(FileStep::Close,
                        status == 0 || errno == EINTR ? OsError{} : OsError::last());
}

OsError replaceFile(const std::string& fresh, const std::string& current,
                    const std::string& previous) {
    ::unlink(previous.c_str());
    // A second name, not a new one: `current` never goes away.
    if (::link(current.c_str(), previous.c_str()) != 0 && errno != ENOENT) {
        copyFile(current, previous);  // a file system that knows no second names
    }
    return noteFileStep(FileStep::Replace, ::rename(fresh.c_str(), current.c_str()) == 0
                                               ? OsError{}
                                               : OsError::last());
}

OsError flushFolderOf(const std::string& path) {
    const auto slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return OsError::last();
    OsError error;
    if (::fsync(descriptor) != 0 && errno != EINVAL) error = OsError::last();
    ::close(descriptor);
    return noteFileStep(FileStep::FlushFolder, error);
}

std::string_view lineEnd() { return "\n"; }
char pathSeparator() { return '/'; }

}  // namespace VornPlatform
