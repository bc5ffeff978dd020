#include "tests/runtime/platform/NativeProbe.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace NativeProbe {

using VornPlatform::OsCondition;

namespace {

int countEntries(const char* folder) {
    return static_cast<int>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

}  // namespace

std::string threadName(VornPlatform::ThreadId thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/comm");
    std::string name;
    std::getline(file, name);
    return name;
}

std::string shownName(const std::string& name) { return name.substr(0, 15); }

std::size_t currentStackBytes() {
    pthread_attr_t attributes;
    if (::pthread_getattr_np(::pthread_self(), &attributes) != 0) return 0;
    std::size_t bytes = 0;
    ::pthread_attr_getstacksize(&attributes, &bytes);
    ::pthread_attr_destroy(&attributes);
    return bytes;
}

std::size_t leastStackFor(std::size_t bytes) { return bytes; }
// A sanitizer's instrumentation gets 1 MiB, and the C library gives out the
// stack of an ended thread again that is up to four times as large.
std::size_t mostStackFor(std::size_t bytes) { return 4 * std::max<std::size_t>(bytes, 1 << 20); }
std::size_t impossibleStack() { return std::size_t{1} << 46; }

int threadPriority(VornPlatform::ThreadId thread) {
    return ::getpriority(PRIO_PROCESS, static_cast<id_t>(thread));
}

int priorityNumber(VornPlatform::ThreadPriority priority) {
    using VornPlatform::ThreadPriority;
    switch (priority) {
        case ThreadPriority::Idle: return 19;
        case ThreadPriority::Lowest: return 10;
        case ThreadPriority::BelowNormal: return 5;
        case ThreadPriority::Normal: return 0;
        case ThreadPriority::AboveNormal: return -5;
        case ThreadPriority::Highest: return -10;
        case ThreadPriority::TimeCritical: return -20;
    }
    return 99;
}

bool waitsReady(VornPlatform::NativeSignal::Handle handle, int ms) {
    pollfd entry{static_cast<int>(handle), POLLIN, 0};
    return ::poll(&entry, 1, ms) == 1 && (entry.revents & POLLIN) != 0;
}

int countThreads() { return countEntries("/proc/self/task"); }
int countHandles() { return countEntries("/proc/self/fd"); }

bool replacesAllocationEverywhere() { return true; }

std::vector<KnownError> knownErrors() {
    return {{0, OsCondition::None},
            {EAGAIN, OsCondition::WouldBlock},
            {EINPROGRESS, OsCondition::WouldBlock},
            {EINTR, OsCondition::Interrupted},
            {ETIMEDOUT, OsCondition::TimedOut},
            {ENOENT, OsCondition::NotFound},
            {ENOTDIR, OsCondition::NotFound},
            {EACCES, OsCondition::AccessDenied},
            {EPERM, OsCondition::AccessDenied},
            {EEXIST, OsCondition::Exists},
            {EADDRINUSE, OsCondition::AddressInUse},
            {ECONNREFUSED, OsCondition::ConnectionRefused},
            {ECONNRESET, OsCondition::ConnectionLost},
            {ECONNABORTED, OsCondition::ConnectionLost},
            {EPIPE, OsCondition::ConnectionLost},
            {EBADF, OsCondition::Closed},
            {ENOSPC, OsCondition::NoSpace},
            {EMFILE, OsCondition::TooManyOpen},
            {ENFILE, OsCondition::TooManyOpen},
            {ENOMEM, OsCondition::TooManyOpen},
            {EINVAL, OsCondition::InvalidArgument},
            {EDOM, OsCondition::Other},
            {-1, OsCondition::Other},
            {99999, OsCondition::Other}};
}

void failToOpen() { ::open("/no folder/no file", O_RDONLY | O_CLOEXEC); }
void failOnSocket() { ::listen(-1, 1); }

}  // namespace NativeProbe
