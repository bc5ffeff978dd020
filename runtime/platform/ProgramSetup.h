#pragma once

#include "runtime/platform/Export.h"

#include <optional>
#include <string>
#include <vector>

namespace VornPlatform {

// What a command-line program asks of the system before it begins. From main's
// thread, before there are others.

// The arguments of main without the program's name, as UTF-8.
VORN_EXPORT std::vector<std::string> programArguments(int argc, char** argv);

// A variable of the environment as UTF-8. Empty when it is not set.
VORN_EXPORT std::optional<std::string> environmentVariable(const char* name);

// Standard output and error take bytes as they are, and a terminal shows them
// as UTF-8.
VORN_EXPORT void prepareStandardStreams();

}  // namespace VornPlatform
