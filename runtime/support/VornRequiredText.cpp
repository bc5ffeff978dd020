#include "runtime/support/VornRequiredText.h"

#include <cctype>
#include <cstddef>

namespace VornSupport {
namespace {

// Walks the pattern's top level and gathers runs of characters that stand for
// themselves. Whatever is not understood ends the run or the whole search: a
// required text that is missed costs time, one that is wrong costs matches.
class Search {
public:
    explicit Search(std::string_view pattern) : pattern_(pattern) {}

    std::string run() {
        while (at_ < pattern_.size()) {
            if (!step()) return {};
        }
        endRun();
        return longest_;
    }

private:
    bool step() {
        const char c = pattern_[at_];
        switch (c) {
            case '|': return false;
            case '\\': return escape();
            case '(': return group();
            case '[': endRun(); return skipClass();
            case '{': brace(); return true;
            case '*':
            case '?': dropLast(); [[fallthrough]];
            case '+':
            case '.':
            case '^':
            case '$': endRun(); break;
            default: run_ += c;
        }
        ++at_;
        return true;
    }

    bool escape() {
        const char c = at_ + 1 < pattern_.size() ? pattern_[at_ + 1] : '\0';
        at_ += 2;
        if (std::isalnum(static_cast<unsigned char>(c)) == 0) {
            run_ += c;
            return c != '\0';
        }
        endRun();
        // Others take characters after them, or quote.
        return std::string_view("dDsSwWbBAzafnrtv").find(c) != std::string_view::npos;
    }

    // At "[": goes behind the class.
    bool skipClass() {
        ++at_;
        if (peek() == '^') ++at_;
        if (peek() == ']') ++at_;
        while (at_ < pattern_.size() && pattern_[at_] != ']') {
            if (pattern_.substr(at_, 2) == "[:") {
                const std::size_t end = pattern_.find(":]", at_ + 2);
                if (end == std::string_view::npos) return false;
                at_ = end + 2;
            } else {
                at_ += pattern_[at_] == '\\' ? 2 : 1;
            }
        }
        ++at_;
        return at_ <= pattern_.size();
    }

    // At "(": goes behind the group, which may have any content.
    bool group() {
        endRun();
        int depth = 0;
        do {
            switch (peek()) {
                case '(':
                    // Flags may change what all the rest means.
                    if (pattern_.substr(at_, 2) == "(?" && pattern_.substr(at_, 3) != "(?:") {
                        return false;
                    }
                    ++depth;
                    break;
                case ')': --depth; break;
                case '\\':
                    if (pattern_.substr(at_, 2) == "\\Q") return false;
                    ++at_;
                    break;
                case '[':
                    if (!skipClass()) return false;
                    continue;
                default: break;
            }
            ++at_;
        } while (depth > 0 && at_ < pattern_.size());
        return depth == 0;
    }

    // At "{": passes over a repetition, and over what only looks like one
    // ("{,2}", "{01}"). Any other brace stands for itself.
    void brace() {
        const std::size_t end = pattern_.find_first_not_of("0123456789,", at_ + 1);
        if (end == std::string_view::npos || end == at_ + 1 || pattern_[end] != '}') {
            run_ += '{';
            ++at_;
            return;
        }
        dropLast();
        endRun();
        at_ = end + 1;
    }

    // The run's last character is repeated, perhaps no time at all.
    void dropLast() {
        while (!run_.empty() && (static_cast<unsigned char>(run_.back()) & 0xC0) == 0x80) {
            run_.pop_back();
        }
        if (!run_.empty()) run_.pop_back();
    }

    void endRun() {
        if (run_.size() > longest_.size()) longest_ = run_;
        run_.clear();
    }

    char peek() const { return at_ < pattern_.size() ? pattern_[at_] : '\0'; }

    const std::string_view pattern_;
    std::size_t at_ = 0;
    std::string run_;
    std::string longest_;
};

}  // namespace

std::string requiredText(std::string_view pattern) { return Search(pattern).run(); }

}  // namespace VornSupport
