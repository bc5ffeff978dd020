#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/Process.h"

#include <string>

namespace VornSupport {

// Lets go of the process when it is destroyed; the process runs on.
using VornProcessHandle = VornPlatform::ProcessHandle;

// Starts a program; runtime/platform/Process.h says how the line is read and
// what the program gets. With `wait` returns only when the program has ended,
// and then `exitCode` receives its exit status (POSIX: 128 + the signal's
// number when a signal ended it). `processHandle` receives the process in
// either case. False, and both unchanged, when the program could not be
// started. The line may hold passwords: it is never logged. Any thread.
VORN_EXPORT bool VornExecuteProgram(const std::string& commandLine, bool wait,
                                    VornProcessHandle* processHandle = nullptr,
                                    int* exitCode = nullptr);

}  // namespace VornSupport
