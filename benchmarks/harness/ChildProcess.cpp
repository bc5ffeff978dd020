#include "benchmarks/harness/ChildProcess.h"

#include "benchmarks/harness/BlockingSocket.h"
#include "benchmarks/harness/Placement.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace RuvoBench {
namespace {

constexpr int kPatienceMs = 10000;

// In the child, between fork and exec: only calls that are safe there.
[[noreturn]] void becomeCommand(char* const* arguments, int output, int errors) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(output, STDOUT_FILENO);
    ::dup2(errors, STDERR_FILENO);
    ::execv(arguments[0], arguments);
    ::_exit(127);
}

double secondsOf(clockid_t clock) {
    timespec time{};
    if (::clock_gettime(clock, &time) != 0) throwErrno("clock_gettime");
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double statusOf(pid_t pid, const std::string& wanted) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    std::string word;
    while (file >> word) {
        double value = 0;
        if (word == wanted && file >> value) return value;
    }
    throw std::runtime_error("no " + wanted + " of process " + std::to_string(pid));
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command, int processor,
                           const std::string& errorFile) {
    std::vector<char*> arguments;
    for (const auto& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);

    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throwErrno("pipe");
    output_ = Fd(ends[0]);
    const Fd childsEnd(ends[1]);
    const Fd errors(::open(errorFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    if (!errors) throwErrno(errorFile.c_str());

    const Pinned pinned(processor);
    pid_ = ::fork();
    if (pid_ < 0) throwErrno("fork");
    if (pid_ == 0) becomeCommand(arguments.data(), childsEnd.get(), errors.get());
}

ChildProcess::~ChildProcess() {
    if (pid_ < 0) return;
    int status = 0;
    ::kill(pid_, SIGTERM);
    if (!waitForEnd(kPatienceMs, status)) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, &status, 0);
    }
}

std::string ChildProcess::readLine() {
    for (;;) {
        if (const auto end = read_.find('\n'); end != std::string::npos) {
            std::string line = read_.substr(0, end);
            read_.erase(0, end + 1);
            return line;
        }
        pollfd wait{.fd = output_.get(), .events = POLLIN, .revents = 0};
        if (::poll(&wait, 1, kPatienceMs) <= 0) {
            throw std::runtime_error("a server did not become ready in time");
        }
        char buffer[512];
        const ssize_t count = ::read(output_.get(), buffer, sizeof buffer);
        if (count <= 0) throw std::runtime_error("a server ended before it was ready");
        read_.append(buffer, static_cast<std::size_t>(count));
    }
}

double ChildProcess::terminate() {
    const auto begin = std::chrono::steady_clock::now();
    ::kill(pid_, SIGTERM);
    int status = 0;
    if (!waitForEnd(kPatienceMs, status)) throw std::runtime_error("a server did not stop in time");
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
    pid_ = -1;
    if (status != 0) {
        throw std::runtime_error("a server ended with wait status " + std::to_string(status));
    }
    return took.count();
}

// Reaps the process; its pid_ must not be used afterwards when true.
bool ChildProcess::waitForEnd(int ms, int& status) {
    const Fd handle(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
    pollfd wait{.fd = handle.get(), .events = POLLIN, .revents = 0};
    if (::poll(&wait, 1, ms) <= 0) return false;
    return ::waitpid(pid_, &status, 0) == pid_;
}

double residentKiB(pid_t pid) { return statusOf(pid, "VmRSS:"); }

double threadsOf(pid_t pid) { return statusOf(pid, "Threads:"); }

double processorMs(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    std::getline(file, text);
    // The name in parentheses may hold blanks; fields are counted behind it.
    std::istringstream fields(text.substr(text.rfind(')') + 1));
    std::string skipped;
    for (int field = 3; field < 14; ++field) fields >> skipped;
    double user = 0;
    double system = 0;
    if (!(fields >> user >> system)) {
        throw std::runtime_error("no processor time of process " + std::to_string(pid));
    }
    return (user + system) * 1000.0 / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

double processorSeconds(pid_t pid) {
    clockid_t clock{};
    if (const int failed = ::clock_getcpuclockid(pid, &clock); failed != 0) {
        errno = failed;
        throwErrno("clock_getcpuclockid");
    }
    return secondsOf(clock);
}

double ownProcessorSeconds() { return secondsOf(CLOCK_THREAD_CPUTIME_ID); }

}  // namespace RuvoBench
