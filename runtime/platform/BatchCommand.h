#pragma once

#include "runtime/platform/Export.h"

#include <string>

namespace VornPlatform {

// The command line, for startProcess(), with which the command interpreter runs
// a batch file: "cmd /c FILE", the name in quotes where it needs them. Its exit
// status is that of the batch file's last line. Windows has the interpreter; on
// POSIX it is the program of scheduler/cmd/.
VORN_EXPORT std::string batchCommand(const std::string& file);

// Makes the "cmd" of a folder the one that this process and its children find:
// the folder becomes the first of PATH, unless it is that already. Does nothing
// on Windows, or when the folder has no "cmd". Changes the environment: before
// other threads start. True when there is an interpreter to be found.
VORN_EXPORT bool provideInterpreter(const std::string& folder);

}  // namespace VornPlatform
