#pragma once

#include "runtime/platform/Export.h"

#include <string>
#include <string_view>

namespace VornSupport {

// The name under which the calling thread appears in the log; "main" until one
// is set. Only the first 63 bytes of a name are kept.
VORN_EXPORT void setThreadName(const std::string& name);

// Valid until the calling thread sets another name or ends.
VORN_EXPORT std::string_view threadName();

}  // namespace VornSupport
