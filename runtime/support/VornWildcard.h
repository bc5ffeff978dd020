#pragma once

#include "runtime/platform/Export.h"

#include <string_view>

namespace VornSupport {

// Whether the whole name matches a pattern of "*" and "?", of which "?" stands
// for one UTF-8 character (or one byte that belongs to none). `ignoreCase`
// makes no difference between "a" and "A"; other letters than those of ASCII
// are always told apart. Takes time proportional to the product of the lengths
// at worst. Any thread.
VORN_EXPORT bool matchesWildcard(std::string_view name, std::string_view pattern, bool ignoreCase);

}  // namespace VornSupport
