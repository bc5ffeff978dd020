#pragma once

#include "runtime/platform/Export.h"

#include <string>
#include <vector>

namespace VornPlatform {

// What a command-line program asks of the system before it begins. From main's
// thread, before there are others.

// The arguments of main without the program's name, as UTF-8.
VORN_EXPORT std::vector<std::string> programArguments(int argc, char** argv);

// Standard output and error take bytes as they are, and a terminal shows them
// as UTF-8. On POSIX one that is closed stays unusable: no file that is opened
// later takes its place.
VORN_EXPORT void prepareStandardStreams();

}  // namespace VornPlatform
