// A pattern and, behind the first line end, a text that it is searched in. The
// ways that are kept for plain patterns find what the general one finds.

#include "runtime/support/VornRegularExpression.h"
#include "runtime/support/VornRequiredText.h"
#include "tests/fuzz/Check.h"
#include "tests/fuzz/Replay.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <string_view>

using FuzzTests::check;
using Expression = VornSupport::VornRegularExpression<std::string>;

namespace {

// Far more than a search in such a text takes, under a sanitizer on a busy machine.
constexpr std::chrono::seconds kBound{10};

struct Match {
    std::size_t at = 0;
    std::size_t length = 0;
    bool operator==(const Match&) const = default;
};

Match matchOf(const Expression& expression, const std::string& text, std::size_t start) {
    Match match;
    match.at = expression.find(text, start, &match.length);
    return match;
}

void checkMatch(const std::string& pattern, const std::string& text, std::size_t start,
                const Match& match) {
    if (match.at == Expression::npos) {
        check(match.length == 0, "what is not found has no length");
        return;
    }
    check(match.at >= start && match.at <= text.size() && match.length <= text.size() - match.at,
          "a match is within the text");
    const std::string required = VornSupport::requiredText(pattern);
    const std::string_view found = std::string_view(text).substr(match.at, match.length);
    check(found.find(required) != found.npos, "a match holds what every match is to hold");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t end = std::min(input.find('\n'), input.size());
    const std::string pattern = input.substr(0, end);
    const std::string text = input.substr(std::min(end + 1, input.size()));

    const auto begun = std::chrono::steady_clock::now();
    Expression expression;
    const bool good = expression.setPattern(pattern);
    check(good == expression.getErrorText().empty(),
          "a refused pattern, and no other, has a reason");
    check(good || !expression.isFoundIn(text), "a refused pattern is found nowhere");
    if (!good) return 0;

    // In a group of its own a pattern means the same and is never taken for plain,
    // unless it quotes the end of the group.
    Expression general;
    const bool comparable = pattern.find("\\Q") == pattern.npos &&
                            general.setPattern("(?:" + pattern + ")");
    for (const std::size_t start : {std::size_t{0}, text.size() / 3, text.size()}) {
        const Match match = matchOf(expression, text, start);
        checkMatch(pattern, text, start, match);
        if (comparable) {
            check(match == matchOf(general, text, start), "every way finds the same match");
        }
    }
    const Match first = matchOf(expression, text, 0);
    check(expression.isFoundIn(text) == (first.at != Expression::npos),
          "a text holds a match where one can be found");
    check(expression.isNonEmptyFoundIn(text) == (first.length > 0),
          "the leftmost match is told from an empty one");
    check(std::chrono::steady_clock::now() - begun < kBound, "a search comes to its end");
    return 0;
}
