#pragma once

#include "runtime/platform/Export.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace VornSupport {

// The text as it is shown to people: one of more than `most` bytes is cut there,
// or a little before, never within a UTF-8 character, and ends in "...". Any
// thread.
VORN_EXPORT std::string shortText(std::string_view text, std::size_t most = 200);

}  // namespace VornSupport
