#include "runtime/platform/BatchQuote.h"

#include <cstddef>
#include <string_view>

namespace VornPlatform {
namespace {

// The interpreter expands %NAME% between quotes as well.
std::string withoutExpansion(const std::string& text) {
    std::string doubled;
    for (const char c : text) doubled.append(c == '%' ? 2 : 1, c);
    return doubled;
}

}  // namespace

std::string quoteForBatch(const std::string& word) {
    constexpr std::string_view kPlain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.\\/:+-";
    if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) return word;
    // Backslashes count only in front of a quote, where each is written twice. A
    // quote within would end the interpreter's own: it is written as two.
    std::string quoted = "\"";
    std::size_t backslashes = 0;
    for (const char c : word) {
        if (c == '"') {
            quoted.append(backslashes, '\\').append("\"\"");
        } else {
            quoted += c;
        }
        backslashes = c == '\\' ? backslashes + 1 : 0;
    }
    quoted.append(backslashes, '\\').append(1, '"');
    return withoutExpansion(quoted);
}

std::string groupForBatch(const std::string& text) { return '(' + text + ')'; }

std::string directoryForBatch(const std::string& directory) {
    return withoutExpansion('"' + directory + '"');
}

}  // namespace VornPlatform
