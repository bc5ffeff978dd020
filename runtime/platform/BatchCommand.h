#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/OsError.h"
#include "runtime/platform/Process.h"

#include <string>

namespace VornPlatform {

// The command line with which the command interpreter runs a batch file:
// "cmd /c FILE", the name in quotes where it needs them. Its exit status is that
// of the batch file's last line.
VORN_EXPORT std::string batchCommand(const std::string& file);

// Starts batchCommand(file), as startProcess() does. The interpreter is that of
// interpreterPath() and no other of its name, in the working directory say.
// Without one the error means NotFound.
VORN_EXPORT OsError startBatch(const std::string& file, ProcessHandle& process);

// The command interpreter, by its whole path; empty when there is none. Windows:
// "cmd.exe" of the system. POSIX: the one that provideInterpreter() found, the
// program of scheduler/cmd/; if it is gone, the first along PATH, of which only
// whole paths count.
VORN_EXPORT std::string interpreterPath();

// Makes the "cmd" of a folder the interpreter, and the one that this process and
// its children find: the folder becomes the first of PATH, unless it is that
// already. Does nothing on Windows, or when the folder has no "cmd". Changes the
// environment: before other threads start. True when there is an interpreter
// now, in that folder or elsewhere.
VORN_EXPORT bool provideInterpreter(const std::string& folder);

}  // namespace VornPlatform
