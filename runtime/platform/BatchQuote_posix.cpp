#include "runtime/platform/BatchQuote.h"

#include <string_view>

namespace VornPlatform {

std::string quoteForBatch(const std::string& word) {
    constexpr std::string_view kPlain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_./:@%+,-";
    if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) return word;
    std::string quoted = "'";
    for (const char c : word) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    return quoted + '\'';
}

// A shell of its own: braces would take a comment at the end for more of the line.
std::string groupForBatch(const std::string& text) { return "sh -c " + quoteForBatch(text); }

// "cmd" takes the rest of the line, less one pair of quotes around it.
std::string directoryForBatch(const std::string& directory) { return '"' + directory + '"'; }

}  // namespace VornPlatform
