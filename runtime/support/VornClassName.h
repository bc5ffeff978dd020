#pragma once

#include "runtime/platform/Export.h"

#include <string>
#include <typeinfo>

namespace VornSupport {

// The class's own name without namespaces, outer classes or template
// arguments. Any thread; the result of each type is remembered.
VORN_EXPORT std::string classNameOf(const std::type_info& type);

// True when `className` names the type or one of its bases, direct or not.
VORN_EXPORT bool classIsA(const std::type_info& type, const std::string& className);

}  // namespace VornSupport
