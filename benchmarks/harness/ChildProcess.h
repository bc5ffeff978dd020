#pragma once

#include "benchmarks/harness/Fd.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace RuvoBench {

// A server under test or a bare one: a process of its own, which ends with this
// object or with this program, whatever comes first. One thread at a time.
class ChildProcess {
public:
    // Starts it on the given processor. Its standard error goes to `errorFile`.
    ChildProcess(const std::vector<std::string>& command, int processor,
                 const std::string& errorFile);
    // As terminate(), and kills what does not end.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return pid_; }
    // The next line of its standard output, without the line end. Throws when
    // it ends, or prints none for ten seconds.
    std::string readLine();
    // Sends SIGTERM and returns the milliseconds until it has ended. Throws when
    // it does not end within ten seconds or ends with another status than 0.
    double terminate();

private:
    bool waitForEnd(int ms, int& status);

    pid_t pid_ = -1;
    Fd output_;
    std::string read_;  // of its output, not handed out yet
};

// Of /proc/PID/status: resident memory in KiB.
double residentKiB(pid_t pid);
// The same: how many threads it has.
double threadsOf(pid_t pid);
// Of /proc/PID/stat: processor time in milliseconds, user and system.
double processorMs(pid_t pid);
// The same in seconds and to the nanosecond, of the process's own clock.
double processorSeconds(pid_t pid);
// Of the calling thread.
double ownProcessorSeconds();

}  // namespace RuvoBench
