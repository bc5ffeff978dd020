#pragma once

#include "runtime/platform/Export.h"

#include <string>
#include <string_view>

namespace RuvoService {

// The form in which strings stand in the store and in lists of names. Every
// byte but ASCII letters and digits becomes "%" and two upper-case hexadecimal
// digits, and "%00" follows: no text is empty or holds a blank. Any thread.
VORN_EXPORT std::string escapeText(std::string_view text);

// The text of an escaped one. Takes anything: a byte of zero, written out or
// not, and a "%" without two characters behind it end the text; of characters
// that are no digits the code minus 55 counts, so lower case gives other bytes
// than upper case. A text with a zero byte comes back shortened.
VORN_EXPORT std::string unescapeText(std::string_view escaped);

}  // namespace RuvoService
