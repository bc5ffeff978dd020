#include "benchmarks/bare/BareMatching.h"

#include <re2/re2.h>

#include <algorithm>
#include <utility>

namespace RuvoBench {
namespace {

struct PlainPattern {
    std::string text;
    bool atBegin = false;
    bool atEnd = false;

    bool matches(std::string_view name) const {
        if (atBegin && atEnd) return name == text;
        if (atBegin) return name.starts_with(text);
        if (atEnd) return name.ends_with(text);
        return name.find(text) != std::string_view::npos;
    }
};

PlainPattern plainPattern(std::string_view pattern) {
    PlainPattern plain;
    plain.atBegin = pattern.starts_with('^');
    plain.atEnd = pattern.ends_with('$');
    if (plain.atBegin) pattern.remove_prefix(1);
    if (plain.atEnd) pattern.remove_suffix(1);
    plain.text = pattern;
    return plain;
}

}  // namespace

struct BareMatching::Plain {
    std::vector<PlainPattern> patterns;
};

struct BareMatching::Expressions {
    std::vector<std::unique_ptr<const RE2>> patterns;
};

BareMatching::BareMatching(const std::vector<std::string>& patterns, bool plain) {
    if (plain) {
        plain_ = std::make_unique<Plain>();
        for (const auto& pattern : patterns) {
            plain_->patterns.push_back(plainPattern(pattern));
        }
        return;
    }
    expressions_ = std::make_unique<Expressions>();
    for (const auto& pattern : patterns) {
        expressions_->patterns.push_back(std::make_unique<const RE2>(pattern));
    }
}

BareMatching::~BareMatching() = default;

std::size_t BareMatching::countMatches(std::string_view text) const {
    std::ptrdiff_t count = 0;
    if (plain_) {
        count = std::count_if(plain_->patterns.begin(), plain_->patterns.end(),
                              [text](const auto& pattern) { return pattern.matches(text); });
    } else {
        const re2::StringPiece piece(text.data(), text.size());
        count = std::count_if(expressions_->patterns.begin(), expressions_->patterns.end(),
                              [&piece](const auto& pattern) {
                                  return RE2::PartialMatch(piece, *pattern);
                              });
    }
    return static_cast<std::size_t>(count);
}

}  // namespace RuvoBench
