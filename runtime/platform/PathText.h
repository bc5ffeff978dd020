#pragma once

#include "runtime/platform/Export.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace VornPlatform {

// Paths are UTF-8 text everywhere above this folder; these lead into the
// standard library's paths and back. Nothing is refused: on POSIX the bytes
// pass through as they are, on Windows what is not UTF-8 becomes U+FFFD.
VORN_EXPORT std::filesystem::path pathFromUtf8(std::string_view text);
VORN_EXPORT std::string utf8FromPath(const std::filesystem::path& path);

// True for what can be opened and read without waiting for somebody else: a
// regular file or a device such as /dev/null, but no named pipe. Follows links.
VORN_EXPORT bool isReadableAtOnce(const std::filesystem::path& path);

// True where names that differ in case only mean the same file.
VORN_EXPORT bool fileNamesIgnoreCase();

}  // namespace VornPlatform
