#pragma once

// For the Windows sources of this folder and their tests only.

#include "runtime/platform/Export.h"

#include <string>
#include <vector>

namespace VornPlatform {

// The command line from which a program reads these words, the first one its
// name, in the way that the system's own CommandLineToArgvW does. The name has no
// quotes: no file name has.
VORN_EXPORT std::wstring joinCommandLine(const std::vector<std::wstring>& words);

// The command line with which the command interpreter, whose own file is the
// first word of it, runs a batch file, the first of `words`, with the others as its
// arguments. False when one of them has what it cannot hand over.
VORN_EXPORT bool joinBatchLine(const std::wstring& interpreter,
                               const std::vector<std::wstring>& words, std::wstring& line);

}  // namespace VornPlatform
