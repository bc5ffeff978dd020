#pragma once

#include "runtime/platform/Export.h"

#include <string>

namespace VornPlatform {

// A word as it must stand in a line of a batch file, so that the program that
// the line starts gets it as one argument, whatever is in it. POSIX: for the
// shell; Windows: for the command interpreter and the usual splitting of command
// lines. The word has no line ends and no zero bytes: a batch file cannot hold
// them.
VORN_EXPORT std::string quoteForBatch(const std::string& word);

// A directory as it must stand behind "cd /d ".
VORN_EXPORT std::string directoryForBatch(const std::string& directory);

}  // namespace VornPlatform
