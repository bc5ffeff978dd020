#pragma once

#include "runtime/platform/Export.h"

#include <string>
#include <string_view>

namespace VornSupport {

// UTF-8 to wide text (UTF-16 or UTF-32, as the platform's wchar_t is) and back.
// What is not valid becomes U+FFFD: one for each byte that begins no valid
// sequence, and one for each lone surrogate. Any thread.
VORN_EXPORT std::wstring wideFromUtf8(std::string_view text);
VORN_EXPORT std::string utf8FromWide(std::wstring_view text);

}  // namespace VornSupport
