#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/OsError.h"

namespace VornPlatform {

// What the surroundings of a daemon ask of it. Both are called on a thread of
// this facility's own, one at a time; they may be called any number of times.
struct SignalActions {
    void (*stop)() = nullptr;
    void (*reload)() = nullptr;
};

// Turns requests from outside into calls of the actions for as long as the
// process lives. POSIX: SIGTERM and SIGINT stop, SIGHUP reloads, and a write to
// a pipe that nobody reads fails instead of ending the process. Windows:
// Ctrl-C, Ctrl-Break, the closing of the console, logging off and shutting down
// stop; nothing reloads. Call it once, before the process has a second thread:
// on POSIX every later thread must inherit that it takes no such signal.
VORN_EXPORT OsError watchSignals(const SignalActions& actions);

// The daemon has stopped. Windows ends a process whose console is closed as soon
// as it has been told, so the telling thread waits for this call, five seconds
// at most.
VORN_EXPORT void tellStopped();

}  // namespace VornPlatform
