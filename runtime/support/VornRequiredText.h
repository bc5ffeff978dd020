#pragma once

#include "runtime/platform/Export.h"

#include <string>
#include <string_view>

namespace VornSupport {

// A text that every match of a good regular expression (of the dialect of
// VornRegularExpression) holds: the longest that is plain to see. Empty when
// there is none, or none is found.
VORN_EXPORT std::string requiredText(std::string_view pattern);

}  // namespace VornSupport
