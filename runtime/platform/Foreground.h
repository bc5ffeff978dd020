#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/OsError.h"
#include "runtime/platform/Process.h"
#include "runtime/platform/Signals.h"

#include <string>
#include <vector>

namespace VornPlatform {

// Starts a program that stands in for this one while it runs: it has our standard
// streams, environment, working directory and terminal, and what is typed there
// reaches both. Its arguments are the words behind the first one, as they are: no
// shell looks at them.
//
// POSIX: it is of our process group, inherits descriptors that are not marked
// otherwise, and begins with the signal handling that this process had. A name
// without "/" is looked for along PATH; a text file that is executable and names
// no interpreter is run by /bin/sh. The handling of SIGCHLD becomes the default,
// without which no exit status could be had.
//
// Windows: the standard streams are all that it inherits. A name without an
// extension may be that of a .com, .exe, .bat or .cmd file; one without a folder
// is looked for in the working directory, where the system's settings allow that,
// and along PATH. The command interpreter runs batch files; it cannot hand them
// every text: an argument with a quote, a "%" or a line end is an invalid argument
// there.
//
// No words, an empty first one and zero bytes are invalid arguments too. Not found
// and not to be run are different conditions.
VORN_EXPORT OsError startInForeground(const std::vector<std::string>& words,
                                      ProcessHandle& process);

// Hands a request on to a program in the foreground, unless that has been told or
// has ended. Windows tells every program of a console by itself; one that was
// started too late for that is ended at once, with 128 and the request's number.
VORN_EXPORT void handOn(const EndRequest& request, ProcessHandle& process);

}  // namespace VornPlatform
