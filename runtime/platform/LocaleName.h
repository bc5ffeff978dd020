#pragma once

#include "runtime/platform/Export.h"

#include <string>

namespace VornPlatform {

// The language and region that texts are wanted in, as the system writes it:
// "de_DE.UTF-8", "de-DE", "C". POSIX: from LC_ALL, LC_MESSAGES or LANG, the
// first that is not empty. Windows: the language of the user that the process
// runs as, or of the system; the same three variables, when set, come first.
// Empty when none is known.
VORN_EXPORT std::string localeName(bool ofUser);

}  // namespace VornPlatform
