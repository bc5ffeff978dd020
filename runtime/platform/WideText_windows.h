#pragma once

// For the Windows sources of this folder only.

#include <string>
#include <string_view>

namespace VornPlatform {

// UTF-8 to UTF-16 and back; what cannot be read becomes U+FFFD.
std::wstring toWide(std::string_view utf8);
std::string toUtf8(std::wstring_view wide);

}  // namespace VornPlatform
