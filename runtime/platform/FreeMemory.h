#pragma once

#include "runtime/platform/Export.h"

namespace VornPlatform {

// Gives memory that the process has freed, and its allocator has kept, back to
// the system as far as it can be. Takes milliseconds: for the end of a time of
// much work. Any thread.
VORN_EXPORT void giveFreeMemoryBack();

}  // namespace VornPlatform
