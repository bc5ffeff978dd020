#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/OsError.h"

namespace VornPlatform {

// A request from outside that the program end.
struct EndRequest {
    // As POSIX numbers them: 1 the terminal or the session goes, 2 Ctrl-C, 3 the
    // terminal's other key for that (Windows: Ctrl-Break), else the signal that was
    // sent. 1 to 64.
    int signal = 0;
    // The programs that share our terminal have been told by the system. Of a
    // terminal that goes POSIX may have told us alone: false then.
    bool reachedOthers = false;
    // So long after the request the system ends the process; -1: it does not.
    int graceMs = -1;
};

// What the surroundings of a program ask of it. All are called on a thread of
// this facility's own, one at a time; they may be called any number of times.
struct SignalActions {
    void (*stop)() = nullptr;
    void (*reload)() = nullptr;
    // For programs that run others in the foreground. Takes the place of the two
    // above, and of the end of the process by any other signal that can be caught.
    void (*end)(const EndRequest& request) = nullptr;
};

// Turns requests from outside into calls of the actions for as long as the
// process lives. POSIX: SIGTERM and SIGINT stop, SIGHUP reloads, and a write to
// a pipe that nobody reads, or to a file beyond the largest size that is allowed,
// fails instead of ending the process; how a child ends can be learnt, even where our
// starter ignores SIGCHLD. With `end`, what the process ignores since
// its start goes on being ignored: SIGHUP as by nohup; SIGINT and SIGQUIT, which
// shells have their background ignore, when they come from the terminal, but not
// when somebody sends them. What the process catches when this is called it goes on
// catching. A fault of our own (SIGSEGV) ends the process as ever. Windows:
// Ctrl-C, Ctrl-Break, the closing of the console, logging off and shutting down
// stop; nothing reloads. Call it once, before the process has a second thread:
// on POSIX every later thread must inherit that it takes no such signal.
VORN_EXPORT OsError watchSignals(const SignalActions& actions);

// Returns when the action `end` has been called for every request that was made
// before, after two seconds at the latest. One thread at a time. Windows does not
// say what it is about to tell: returns at once there.
VORN_EXPORT void settleSignals();

// The program has done what it had to. Windows ends a process whose console is
// closed as soon as it has been told, so the telling thread waits for this call,
// five seconds at most.
VORN_EXPORT void tellStopped();

}  // namespace VornPlatform
