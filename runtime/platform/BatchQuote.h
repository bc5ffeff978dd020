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

// A text of several commands as one command, so that what follows it in the line,
// a redirection, is that of all of them.
VORN_EXPORT std::string groupForBatch(const std::string& text);

// A directory as it must stand behind "cd /d ".
VORN_EXPORT std::string directoryForBatch(const std::string& directory);

}  // namespace VornPlatform
