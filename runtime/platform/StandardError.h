#pragma once

#include "runtime/platform/Export.h"

#include <string_view>

namespace VornPlatform {

// Writes to the process's standard error, with one call of the system as far
// as that takes the bytes. False when they could not be written whole. On POSIX
// a reader that has stopped reading (a paused terminal, a full pipe) is given
// half a second once, and then nothing is written until it reads again. One
// thread at a time.
VORN_EXPORT bool writeStandardError(std::string_view text);

}  // namespace VornPlatform
