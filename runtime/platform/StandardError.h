#pragma once

#include "runtime/platform/Export.h"

#include <chrono>
#include <cstddef>
#include <string_view>

namespace VornPlatform {

// Writes to the process's standard error, with one call of the system as far
// as that takes the bytes. False when they have not been written whole. A reader
// that has stopped reading (a paused terminal, a full pipe) is given half a
// second once, and then nobody waits until it reads again. On POSIX what comes
// meanwhile is lost. On Windows, where only a thread of its own can do without
// waiting, up to kMostKeptOfStandardError bytes are kept and written in order
// later, and a line tells how many texts beyond that were lost. One thread at a
// time.
VORN_EXPORT bool writeStandardError(std::string_view text);
inline constexpr std::size_t kMostKeptOfStandardError = std::size_t{256} * 1024;

// Waits until what is kept has been written: at the orderly end of the process,
// with which it is lost. False when `patience` did not suffice. Any thread.
VORN_EXPORT bool flushStandardError(std::chrono::milliseconds patience);

}  // namespace VornPlatform
