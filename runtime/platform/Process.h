#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/NativeSignal.h"
#include "runtime/platform/OsError.h"

#include <cstdint>
#include <string>
#include <vector>

namespace VornPlatform {

// A child process that was started by startProcess(). Owns what the system
// keeps of it; letting go of it does not end the child, and leaves nothing
// behind when the child ends later. One thread at a time.
class VORN_EXPORT ProcessHandle {
public:
    static constexpr int kForever = -1;

    ProcessHandle() = default;
    ~ProcessHandle() { close(); }
    ProcessHandle(ProcessHandle&& other) noexcept { swap(other); }
    ProcessHandle& operator=(ProcessHandle&& other) noexcept {
        close();
        swap(other);
        return *this;
    }

    bool isOpen() const { return processId_ != 0; }
    // The system's number of the process; 0 when nothing is open.
    std::int64_t processId() const { return processId_; }
    void close();

    // True when the process has ended, false when `ms` passed (negative: no
    // limit), it failed or nothing is open.
    bool wait(int ms);
    // Waits, without a limit, until the process has ended: true; false when
    // `other` is on before that, it failed or nothing is open.
    bool waitUnless(NativeSignal::Handle other);
    // After a wait returned true: the exit status, on POSIX 128 + the signal's
    // number when a signal ended the process. Else -1.
    int exitCode() const { return exitCode_; }

    // Ends the process; does nothing when it has ended already. Windows: at
    // once, with `exitCode`. POSIX: asks by SIGTERM, waits a second at most, and
    // then ends it by SIGKILL; the exit code tells of the signal.
    OsError terminate(int exitCode);

private:
    friend OsError startProcess(const std::string& commandLine, ProcessHandle& process);
    friend OsError startInForeground(const std::vector<std::string>& words,
                                     ProcessHandle& process);
    friend OsError startProcess(const std::string& program, const std::string& commandLine,
                                ProcessHandle& process);
    static constexpr std::intptr_t kNone = -1;

    // Becomes the handle of a child that has just been started. Linux: `handle` is
    // of no account.
    void adopt(std::int64_t processId, std::intptr_t handle);
    void swap(ProcessHandle& other) noexcept;
    bool await(int ms, NativeSignal::Handle other);  // Linux
    bool collect(int options);                       // 0 on Windows

    // Linux: kNone also while the system has no descriptor for the child, which has
    // begun all the same; until there is one it is looked at again and again.
    std::intptr_t handle_ = kNone;
    std::int64_t processId_ = 0;
    int exitCode_ = -1;
    bool ended_ = false;
};

// Starts a program. It gets the environment and the working directory of this
// process, the null device as standard streams, and no other descriptor or
// handle of ours; on POSIX default signal handling and a session of its own
// (on Windows: no console window), so that what is typed at our terminal does
// not reach it.
//
// Windows hands the line to the program as it is and finds the program as
// CreateProcess does. POSIX takes the line apart: blanks, tabs and line ends
// separate arguments; "..." and '...' keep them together, also within an
// argument; a backslash takes the next character as it is, but between double
// quotes only before " and \, and between single quotes never. No shell looks
// at the line: wildcards, variables and redirections stay text. A program named
// without "/" is looked for in the working directory and then along PATH.
//
// A line that is empty, holds a zero byte or does not end its quotes is an
// invalid argument.
VORN_EXPORT OsError startProcess(const std::string& commandLine, ProcessHandle& process);

// The same for the program at `program`, a whole path: it is not looked for, and
// the line's first word is only what the program is told of its name.
VORN_EXPORT OsError startProcess(const std::string& program, const std::string& commandLine,
                                 ProcessHandle& process);

}  // namespace VornPlatform
