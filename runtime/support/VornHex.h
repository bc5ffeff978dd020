#pragma once

#include "runtime/platform/Export.h"

#include <cstddef>
#include <string>

namespace VornSupport {

// Two upper-case hexadecimal digits a byte, nothing between them. Any thread.
VORN_EXPORT std::string VornBytesToHex(const void* bytes, std::size_t length);

// The bytes that `text` stands for, in either case, at most `size` of them.
// Ends at the first pair that is not two hexadecimal digits: a lone last digit
// is no byte. Returns the number of bytes written. Any thread.
VORN_EXPORT std::size_t VornHexToBytes(void* buffer, std::size_t size, const std::string& text);

}  // namespace VornSupport
