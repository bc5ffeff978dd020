#pragma once

#include <string>

namespace VornPlatform {

// What a shell says when a command cannot be run.
inline constexpr int kCannotRun = 126;

// Runs one line through /bin/sh, with the streams, the environment and the
// working directory of this process, and waits for its end: the exit status, or
// 128 + the signal's number when a signal ended it. The line may be longer than
// the system lets a single argument be.
int runShellLine(const std::string& line);

// The same in place of this process. Returns, kCannotRun, only when that is not
// possible.
int becomeShellLine(const std::string& line);

}  // namespace VornPlatform
