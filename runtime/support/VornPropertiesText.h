#pragma once

#include "runtime/platform/Export.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace VornSupport {

// The text form of properties files and message files:
// - one line holds a key, the separator and a value; the first occurrence of
//   the separator counts, so that a value may hold it again;
// - blanks (space, tab, form feed, carriage return) around key and value do
//   not belong to them; a value may be empty;
// - a line whose first character after blanks is "#" or "!" is a comment;
// - lines end in "\n" or "\r\n", the last one needs no end; their length is not
//   limited; a UTF-8 byte-order mark at the very beginning is skipped.

struct VornPropertyLine {
    std::size_t number;      // of the line, from 1
    std::string_view key;    // empty: the line is not of the form above
    std::string_view value;  // the whole line, less blanks around it, when the key is empty
};

// Calls `visit` for every line that is neither blank nor a comment, in order.
// The views are into `text`. A separator that is empty matches nowhere.
VORN_EXPORT void visitPropertyLines(std::string_view text, std::string_view separator,
                                    const std::function<void(const VornPropertyLine&)>& visit);

// Files of this format larger than this are refused.
inline constexpr std::size_t kLargestPropertiesFile = 64 * 1024 * 1024;

// Reads the whole file. False when it cannot be opened or read, is not a file
// or is too large.
VORN_EXPORT bool readPropertiesText(const std::string& fileName, std::string& text);

}  // namespace VornSupport
