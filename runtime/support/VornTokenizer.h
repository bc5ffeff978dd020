#pragma once

#include "runtime/platform/Export.h"

#include <cstddef>
#include <string>
#include <vector>

namespace VornSupport {

// Splits `text` at every character that occurs in `separators`, in place of
// what `fields` held. N separators make N + 1 fields, empty ones included; an
// empty text has none. Nothing is trimmed: a line end stays in the last field.
// Any thread.
VORN_EXPORT void VornTokenizer(const std::string& text, const std::string& separators,
                               std::vector<std::string>& fields);

// The first field of `text`: what stands before the first character of
// `separators`, after leading blanks, tabs and line ends. `rest`, when given,
// receives what follows that character (empty when there is none). Any thread.
VORN_EXPORT std::string VornExtractFirstString(const std::string& text,
                                               const std::string& separators = " \t\r\n",
                                               std::string* rest = nullptr);

// Copies `text` into a buffer of `size` bytes, as far as it fits, and ends it
// with a zero byte. A size of 0 writes nothing. False when `text` was cut.
VORN_EXPORT bool VornStringToChar(const std::string& text, char* buffer, std::size_t size);

}  // namespace VornSupport
