// Any bytes through the form in which texts stand in the store, both ways.

#include "scheduler/RuvoTSEscape.h"
#include "tests/fuzz/Check.h"
#include "tests/fuzz/Replay.h"

#include <algorithm>
#include <string>
#include <string_view>

using namespace RuvoService;
using FuzzTests::check;

namespace {

bool isPlain(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);

    const std::string escaped = escapeText(input);
    check(std::all_of(escaped.begin(), escaped.end(),
                      [](char c) { return isPlain(c) || c == '%'; }),
          "an escaped text holds letters, digits and percent signs");
    check(escaped.ends_with("%00"), "an escaped text has its end");
    check(escaped.size() <= 3 * input.size() + 3, "three characters a byte at most");
    check(unescapeText(escaped) == input.substr(0, input.find('\0')),
          "a text comes back up to its first zero byte");

    // The input as something that claims to be escaped.
    const std::string text = unescapeText(input);
    check(text.size() <= input.size(), "a text is no longer than its escaped form");
    check(text.find('\0') == text.npos, "a zero byte ends the text");
    check(unescapeText(escapeText(text)) == text, "a text that was read comes back whole");
    return 0;
}
