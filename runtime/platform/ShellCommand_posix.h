#pragma once

namespace VornPlatform {

// For the command interpreter only. It starts with every task, so it is linked
// without the C++ library, and all that it uses speaks C.

// What a shell says when a command cannot be run.
inline constexpr int kCannotRun = 126;

// Runs one line through /bin/sh, with the streams, the environment and the
// working directory of this process, and waits for its end: the exit status, or
// 128 + the signal's number when a signal ended it. The line may be longer than
// the system lets a single argument be.
int runShellLine(const char* line);

// The same in place of this process. Returns, kCannotRun, only when that is not
// possible.
int becomeShellLine(const char* line);

// Makes it the working directory. 0, or the system's error number.
int enterDirectory(const char* directory);

}  // namespace VornPlatform
