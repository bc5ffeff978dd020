#include "runtime/platform/NativeThread.h"

#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <new>

namespace VornPlatform {
namespace {

// Instrumented code needs several times the stack of plain code.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kLeastStack = 1024 * 1024;
#else
constexpr std::size_t kLeastStack = 64 * 1024;
#endif

constexpr std::size_t kShownName = 15;  // the kernel keeps 16 bytes, the last one 0

void copyShown(const char* name, char (&shown)[kShownName + 1]) {
    const std::size_t length = std::min(std::strlen(name), kShownName);
    std::memcpy(shown, name, length);
    shown[length] = '\0';
}

struct Start {
    void (*body)(void*);
    void* argument;
    char name[kShownName + 1];
};

// A thread inherits the nice value of the one that creates it, which is not
// what anybody means who lowers a thread's priority. Stays where the system
// refuses to raise it again.
void takePriorityOfProcess() {
    const int wanted = ::getpriority(PRIO_PROCESS, static_cast<id_t>(::getpid()));
    if (::getpriority(PRIO_PROCESS, 0) != wanted) ::setpriority(PRIO_PROCESS, 0, wanted);
}

void* enter(void* raw) {
    const Start start = *std::unique_ptr<Start>(static_cast<Start*>(raw));
    nameCurrentThread(start.name);
    takePriorityOfProcess();
    start.body(start.argument);
    return nullptr;
}

}  // namespace

OsError startThread(const ThreadOptions& options, void (*body)(void*), void* argument) {
    std::unique_ptr<Start> start(new (std::nothrow) Start{body, argument, {}});
    if (!start) return OsError(ENOMEM);
    std::strncpy(start->name, options.name, kShownName);

    pthread_attr_t attributes;
    int failed = ::pthread_attr_init(&attributes);
    if (failed != 0) return OsError(failed);
    ::pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    if (options.stackBytes != 0) {
        const auto least = std::max(kLeastStack, static_cast<std::size_t>(PTHREAD_STACK_MIN));
        ::pthread_attr_setstacksize(&attributes, std::max(options.stackBytes, least));
    }
    pthread_t thread{};
    failed = ::pthread_create(&thread, &attributes, &enter, start.get());
    ::pthread_attr_destroy(&attributes);
    // The call says EAGAIN for want of memory and of threads; waiting helps neither.
    if (failed == EAGAIN) return OsError(ENOMEM);
    if (failed != 0) return OsError(failed);
    start.release();
    return {};
}

ThreadId currentThreadId() { return static_cast<ThreadId>(::syscall(SYS_gettid)); }

void nameCurrentThread(const char* name) {
    char shown[kShownName + 1];
    copyShown(name, shown);
    ::pthread_setname_np(::pthread_self(), shown);
}

OsError setThreadPriority(ThreadId thread, ThreadPriority priority) {
    static constexpr int kNice[] = {19, 10, 5, 0, -5, -10, -20};
    const int nice = kNice[static_cast<int>(priority)];
    return ::setpriority(PRIO_PROCESS, static_cast<id_t>(thread), nice) == 0 ? OsError{}
                                                                            : OsError::last();
}

}  // namespace VornPlatform
