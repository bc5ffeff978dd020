#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornProperties.h"

#include <string>

namespace VornSupport {

// `text` with every reference ${key} replaced by the value of the key, and the
// references in that value likewise. A reference stays as it stands when its
// key is unknown, when it leads back to itself, when it is nested more than
// 100 values deep, and when the values put in before it already come to 4 MiB:
// no table makes the call run long or its result grow without bound. Any
// thread; a table that changes meanwhile is read key by key.
VORN_EXPORT std::string VornExpandString(const std::string& text,
                                         const VornProperties<std::string>& properties);

}  // namespace VornSupport
