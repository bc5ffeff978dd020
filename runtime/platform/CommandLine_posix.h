#pragma once

// For the POSIX sources of this folder and their tests only.

#include "runtime/platform/Export.h"

#include <string>
#include <vector>

namespace VornPlatform {

// Takes a command line apart as startProcess() promises. False when quotes or
// a last backslash are left open.
VORN_EXPORT bool splitCommandLine(const std::string& line, std::vector<std::string>& arguments);

}  // namespace VornPlatform
