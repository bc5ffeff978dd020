#include "runtime/platform/Process.h"

#include "runtime/platform/CommandLine_posix.h"
#include "runtime/platform/NativeLock.h"
#include "runtime/platform/NativeThread.h"
#include "runtime/platform/SpareDescriptor_posix.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

namespace VornPlatform {
namespace {

constexpr int kGraceMs = 1000;
constexpr int kSignalBase = 128;
constexpr int kNoMemoryPauseMs = 100;
constexpr int kLookMs = 20;      // at a child that there is no descriptor for
constexpr int kReapLookMs = 1000;  // the same for one that nobody waits for

int native(std::intptr_t handle) { return static_cast<int>(handle); }

// The C library's own declarations of these two cannot be used from C++ in
// every version that we build with.
int openProcess(pid_t process) { return static_cast<int>(::syscall(SYS_pidfd_open, process, 0)); }
int sendSignal(int descriptor, int signal) {
    return static_cast<int>(::syscall(SYS_pidfd_send_signal, descriptor, signal, nullptr, 0));
}

int statusToCode(int status) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    return kSignalBase + WTERMSIG(status);
}

// ---- children that nobody waits for any more ----

struct Abandoned {
    int descriptor;  // of the process; -1: none
    pid_t process;
};

// Adds to `list` as soon as there is memory for that.
template <class Entry>
void add(std::vector<Entry>& list, const Entry& entry) noexcept {
    for (;;) {
        try {
            list.push_back(entry);
            return;
        } catch (const std::bad_alloc&) {
            ::poll(nullptr, 0, kNoMemoryPauseMs);
        }
    }
}

// Takes over what comes through the pipe `argument`, and collects each child
// when it ends. Never ends itself.
void reap(void* argument) {
    const int incoming = static_cast<int>(reinterpret_cast<std::intptr_t>(argument));
    std::vector<pollfd> watched;
    std::vector<pid_t> processes;  // of those
    std::vector<pid_t> others;     // without a descriptor: poll takes no more than there can be
    add(watched, {incoming, POLLIN, 0});
    add(processes, 0);
    for (;;) {
        const int ready = ::poll(watched.data(), watched.size(), others.empty() ? -1 : kReapLookMs);
        if (ready < 0 && errno != EINTR) ::poll(nullptr, 0, kReapLookMs);
        std::erase_if(others, [](pid_t each) { return ::waitpid(each, nullptr, WNOHANG) != 0; });
        if (ready <= 0) continue;
        for (std::size_t i = watched.size(); --i > 0;) {
            if (watched[i].revents == 0) continue;
            ::waitpid(processes[i], nullptr, 0);
            ::close(watched[i].fd);
            watched.erase(watched.begin() + static_cast<std::ptrdiff_t>(i));
            processes.erase(processes.begin() + static_cast<std::ptrdiff_t>(i));
        }
        Abandoned added{};
        if (watched[0].revents == 0 || ::read(incoming, &added, sizeof added) != sizeof added) {
            continue;
        }
        if (added.descriptor < 0) {
            add(others, added.process);
        } else {
            add(watched, {added.descriptor, POLLIN, 0});
            add(processes, added.process);
        }
    }
}

int startReaper() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return -1;
    auto* const argument = reinterpret_cast<void*>(static_cast<std::intptr_t>(ends[0]));
    if (!startThread({.name = "ProcessReaper", .stackBytes = 64 * 1024}, &reap, argument)) {
        return ends[1];
    }
    ::close(ends[0]);
    ::close(ends[1]);
    return -1;
}

// The pipe to the thread that reaps, which starts with the first use; -1 when the
// system has no means for it, which the next use finds out anew.
int reaperPipe() {
    static NativeMutex mutex;
    static int pipe = -1;
    const std::scoped_lock lock(mutex);
    if (pipe < 0) pipe = startReaper();
    return pipe;
}

// ---- starting ----

class SpawnSettings {
public:
    SpawnSettings() {
        note(::posix_spawnattr_init(&attributes));
        note(::posix_spawn_file_actions_init(&actions));
        sigset_t none;
        sigset_t all;
        ::sigemptyset(&none);
        ::sigfillset(&all);
        note(::posix_spawnattr_setsigmask(&attributes, &none));
        note(::posix_spawnattr_setsigdefault(&attributes, &all));
        note(::posix_spawnattr_setflags(
            &attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID));
        addNull(STDIN_FILENO, O_RDONLY);
        addNull(STDOUT_FILENO, O_WRONLY);
        addNull(STDERR_FILENO, O_WRONLY);
        note(::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1));
    }
    ~SpawnSettings() {
        ::posix_spawn_file_actions_destroy(&actions);
        ::posix_spawnattr_destroy(&attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    // The first failure. The settings lack something then, mostly for want of memory:
    // what is started with them would have our streams and descriptors.
    OsError error() const { return OsError(failed_); }

    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t actions;

private:
    void note(int result) {
        if (failed_ == 0) failed_ = result;
    }
    void addNull(int stream, int mode) {
        note(::posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", mode, 0));
    }

    int failed_ = 0;
};

bool isProgram(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
}

OsError spawn(const std::string& program, std::vector<std::string>& arguments, pid_t& process) {
    std::vector<char*> texts;
    for (std::string& argument : arguments) texts.push_back(argument.data());
    texts.push_back(nullptr);
    const SpawnSettings settings;
    if (settings.error()) return settings.error();
    return OsError(::posix_spawnp(&process, program.c_str(), &settings.actions,
                                  &settings.attributes, texts.data(), environ));
}

}  // namespace

OsError startProcess(const std::string& commandLine, ProcessHandle& process) {
    return startProcess({}, commandLine, process);
}

OsError startProcess(const std::string& program, const std::string& commandLine,
                     ProcessHandle& process) {
    std::vector<std::string> arguments;
    if (commandLine.find('\0') != std::string::npos || !splitCommandLine(commandLine, arguments) ||
        arguments.empty() || arguments.front().empty()) {
        return OsError(EINVAL);
    }
    std::string found = program.empty() ? arguments.front() : program;
    if (found.find('/') == std::string::npos && isProgram("./" + found)) found.insert(0, "./");
    SpareDescriptor spare;
    if (spare.error()) return spare.error();
    pid_t id = 0;
    if (const OsError error = spawn(found, arguments, id)) return error;
    spare.release();
    process.adopt(id, ProcessHandle::kNone);
    return {};
}

// Another thread may have taken the spare descriptor meanwhile. The child has begun
// by then: to end it, or to call that a failure, would have it begun once more.
void ProcessHandle::adopt(std::int64_t processId, std::intptr_t) {
    close();
    processId_ = processId;
    handle_ = openProcess(static_cast<pid_t>(processId));
}

void ProcessHandle::swap(ProcessHandle& other) noexcept {
    std::swap(handle_, other.handle_);
    std::swap(processId_, other.processId_);
    std::swap(exitCode_, other.exitCode_);
    std::swap(ended_, other.ended_);
}

void ProcessHandle::close() {
    if (!isOpen()) return;
    ProcessHandle going;
    going.swap(*this);
    const Abandoned entry{native(going.handle_), static_cast<pid_t>(going.processId_)};
    going.processId_ = 0;
    const bool collected = going.ended_ || ::waitpid(entry.process, nullptr, WNOHANG) != 0;
    const bool given =
        !collected && ::write(reaperPipe(), &entry, sizeof entry) == sizeof entry;
    if (!given && entry.descriptor >= 0) ::close(entry.descriptor);
}

bool ProcessHandle::wait(int ms) { return await(ms, NativeSignal::kNone); }

bool ProcessHandle::waitUnless(NativeSignal::Handle other) { return await(kForever, other); }

// Until the process has ended: true; or until `other` is on, `ms` have passed or the
// system fails it.
bool ProcessHandle::await(int ms, NativeSignal::Handle other) {
    using Clock = std::chrono::steady_clock;
    if (!isOpen()) return false;
    const auto deadline = Clock::now() + std::chrono::milliseconds(ms);
    while (!ended_) {
        if (handle_ == kNone) handle_ = openProcess(static_cast<pid_t>(processId_));
        if (handle_ == kNone && collect(WNOHANG)) break;
        const auto rest = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        const int left = ms < 0 ? kForever : static_cast<int>(std::max<long>(rest.count(), 0));
        const bool looks = handle_ == kNone && (ms < 0 || left > kLookMs);
        pollfd entries[] = {{native(handle_), POLLIN, 0}, {native(other), POLLIN, 0}};
        const int ready = ::poll(entries, other == NativeSignal::kNone ? 1 : 2,
                                 looks ? kLookMs : left);
        if (ready < 0 && errno != EINTR) return false;
        if (ready > 0) return entries[0].revents != 0 && collect(0);
        if (ready == 0 && !looks) return handle_ == kNone && collect(WNOHANG);
    }
    return true;
}

// False when it has not ended yet.
bool ProcessHandle::collect(int options) {
    int status = 0;
    const auto id = static_cast<pid_t>(processId_);
    const pid_t found = ::waitpid(id, &status, options);
    if (found == 0) return false;
    exitCode_ = found == id ? statusToCode(status) : -1;
    ended_ = true;
    return true;
}

OsError ProcessHandle::terminate(int) {
    if (!isOpen() || ended_) return {};
    const auto id = static_cast<pid_t>(processId_);
    for (const int signal : {SIGTERM, SIGKILL}) {
        // Nobody else gets its number until its end has been collected.
        const int failed = handle_ == kNone ? ::kill(id, signal)
                                            : sendSignal(native(handle_), signal);
        if (failed != 0) return errno == ESRCH ? OsError{} : OsError::last();
        if (signal == SIGTERM && wait(kGraceMs)) break;
    }
    return {};
}

}  // namespace VornPlatform
