#include "runtime/support/VornWildcard.h"

#include <algorithm>
#include <cstddef>

namespace VornSupport {
namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool isSame(char a, char b, bool ignoreCase) {
    return a == b || (ignoreCase && lower(a) == lower(b));
}

// The bytes of the first character of a text that is not empty.
std::size_t characterLength(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    const std::size_t stated = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC0 ? 2 : 1;
    std::size_t length = 1;
    while (length < std::min(stated, text.size()) &&
           (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) {
        ++length;
    }
    return length;
}

}  // namespace

// On a mismatch the last star takes one character more; earlier stars need
// never be looked at again.
bool matchesWildcard(std::string_view name, std::string_view pattern, bool ignoreCase) {
    constexpr std::size_t kNone = std::string_view::npos;
    std::size_t n = 0;
    std::size_t p = 0;
    std::size_t afterStar = kNone;
    std::size_t starTakesTo = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            afterStar = ++p;
            starTakesTo = n;
        } else if (p < pattern.size() && pattern[p] == '?') {
            ++p;
            n += characterLength(name.substr(n));
        } else if (p < pattern.size() && isSame(pattern[p], name[n], ignoreCase)) {
            ++p;
            ++n;
        } else if (afterStar != kNone) {
            p = afterStar;
            starTakesTo += characterLength(name.substr(starTakesTo));
            n = starTakesTo;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == kNone;
}

}  // namespace VornSupport
