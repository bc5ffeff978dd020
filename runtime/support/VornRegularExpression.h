#pragma once

#include "runtime/platform/Export.h"

#include <cstddef>
#include <memory>
#include <string>

namespace VornSupport {

template <class StringType>
class VornRegularExpression;

// A pattern that texts are searched for, case-sensitive. The dialect is RE2's:
// Perl's without back references and look-around; "^" and "$" stand for the
// beginning and the end of the text only. A search takes time proportional to
// the text whatever the pattern, and a pattern at most 8 MiB of memory; patterns
// that need more, or are not plain text and longer than 64 KiB, are refused.
//
// Patterns and texts are bytes; none is ever refused in a text. A pattern that
// holds characters beyond ASCII, in valid UTF-8, is matched character by
// character, so that "." and "[ä]" stand for whole characters, none of them
// for bytes that are not UTF-8. Any other pattern is matched byte by byte.
//
// Plain text between optional anchors (`^disk\.failed$`), and such a text with
// `.*` after it, is compared without the regular-expression machinery and costs
// no memory beyond the pattern. Objects of one pattern share what was made of
// it. All const functions may be called on one object
// from several threads at once.
template <>
class VORN_EXPORT VornRegularExpression<std::string> {
public:
    static constexpr std::size_t npos = static_cast<std::size_t>(-1);  // no match

    VornRegularExpression();  // the empty pattern, which is found everywhere
    ~VornRegularExpression();
    VornRegularExpression(VornRegularExpression&& other) noexcept;
    VornRegularExpression& operator=(VornRegularExpression&& other) noexcept;

    // False when the pattern is refused; getErrorText() then says why, and
    // nothing is found until another pattern is set.
    bool setPattern(const std::string& pattern);
    const std::string& getPattern() const { return pattern_; }
    // Empty while the pattern is good.
    const std::string& getErrorText() const { return errorText_; }

    // The position of the leftmost match at or after `start`, or npos. Of
    // several matches there, the one that the pattern names first. `length`,
    // when given, receives its length, or 0.
    std::size_t find(const std::string& text, std::size_t start,
                     std::size_t* length = nullptr) const;
    // Whether the text holds a match at all: the cheapest question.
    bool isFoundIn(const std::string& text) const;
    // The longest text, in bytes, in which a search is sure to end within about a
    // fifth of a second: npos for plain text, a megabyte for common patterns,
    // kilobytes for those with large counted repetitions. Longer ones may take
    // seconds.
    std::size_t longestQuickText() const;
    // Whether the leftmost match in the text exists and is not empty.
    bool isNonEmptyFoundIn(const std::string& text) const;

private:
    struct Plain;
    struct Machine;

    std::string pattern_;
    std::string errorText_;
    std::unique_ptr<Plain> plain_;            // exactly one of the two exists,
    std::shared_ptr<const Machine> machine_;  // neither after a refusal
};

}  // namespace VornSupport
