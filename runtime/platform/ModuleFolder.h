#pragma once

#include "runtime/platform/Export.h"

#include <string>

namespace VornPlatform {

// The folder of the program or library whose code or data `address` is,
// absolute, UTF-8, without a separator at its end. Empty when the address
// belongs to none. Any thread.
VORN_EXPORT std::string folderOfModuleAt(const void* address);

}  // namespace VornPlatform
