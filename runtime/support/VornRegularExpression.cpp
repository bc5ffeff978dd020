#include "runtime/support/VornRegularExpression.h"

#include "runtime/support/VornMutex.h"
#include "runtime/support/VornRequiredText.h"

#include <re2/re2.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace VornSupport {
namespace {

constexpr std::int64_t kMemory = 8 * 1024 * 1024;
// Steps of the search that a pattern without a small automaton is left with, at
// most this many a byte as its program has instructions, of some 5 ns each.
constexpr std::size_t kMostWork = 32 * 1024 * 1024;
constexpr std::size_t kLongestPattern = 64 * 1024;  // RE2 complains aloud of far longer ones

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// What may stand escaped for itself. Letters, digits and "_" mean other things.
bool isEscapable(char c) {
    return c > ' ' && c < 0x7F && c != '_' && std::isalnum(static_cast<unsigned char>(c)) == 0;
}

bool isSpecial(char c) { return c != '\0' && std::strchr("\\^$.|?*+()[]{}", c) != nullptr; }

// Whether the pattern ends in `tail` and that is not escaped.
bool endsIn(std::string_view pattern, std::string_view tail) {
    if (!pattern.ends_with(tail)) return false;
    pattern.remove_suffix(tail.size());
    const std::size_t other = pattern.find_last_not_of('\\');
    const std::size_t begin = other == std::string_view::npos ? 0 : other + 1;
    return (pattern.size() - begin) % 2 == 0;
}

}  // namespace

// ^? text (.* | $)?
struct VornRegularExpression<std::string>::Plain {
    bool atBegin = false;
    bool atEnd = false;
    bool rest = false;  // ".*" follows: the match goes on to the end of the line
    std::string text;

    static std::unique_ptr<Plain> of(std::string_view pattern);

    std::size_t find(std::string_view in, std::size_t start) const {
        if (atBegin) {
            const bool found =
                start == 0 && in.starts_with(text) && (!atEnd || in.size() == text.size());
            return found ? 0 : npos;
        }
        if (!atEnd) return in.find(text, start);
        const bool found = in.size() - start >= text.size() && in.ends_with(text);
        return found ? in.size() - text.size() : npos;
    }

    std::size_t lengthAt(std::string_view in, std::size_t position) const {
        if (!rest) return text.size();
        return std::min(in.find('\n', position + text.size()), in.size()) - position;
    }
};

std::unique_ptr<VornRegularExpression<std::string>::Plain>
VornRegularExpression<std::string>::Plain::of(std::string_view pattern) {
    auto plain = std::make_unique<Plain>();
    if (pattern.starts_with('^')) {
        plain->atBegin = true;
        pattern.remove_prefix(1);
    }
    if (endsIn(pattern, "$")) {
        plain->atEnd = true;
        pattern.remove_suffix(1);
    } else if (endsIn(pattern, ".*")) {
        plain->rest = true;
        pattern.remove_suffix(2);
    }
    // With characters beyond ASCII ".*" ends at bytes that are not UTF-8.
    if (plain->rest && !isAscii(pattern)) return nullptr;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        char c = pattern[i];
        if (c == '\\') {
            if (++i == pattern.size() || !isEscapable(pattern[i])) return nullptr;
            c = pattern[i];
        } else if (isSpecial(c)) {
            return nullptr;
        }
        plain->text += c;
    }
    return plain;
}

struct VornRegularExpression<std::string>::Machine {
    Machine(const std::string& pattern, const re2::RE2::Options& options)
        : expression(pattern, options) {
        if (!expression.ok()) return;
        required = requiredText(pattern);
        longestQuickText = kMostWork / static_cast<std::size_t>(expression.ProgramSize());
    }

    static std::shared_ptr<const Machine> make(const std::string& pattern);
    static std::shared_ptr<const Machine> shared(const std::string& pattern);

    // A machine costs hundreds of nanoseconds and much of the processor's
    // cache to ask, so the texts that cannot match are kept away from it.
    bool mayMatch(std::string_view text, std::size_t start) const {
        return required.empty() || text.find(required, start) != npos;
    }
    bool search(const std::string& text, std::size_t start, re2::StringPiece* match) const {
        return expression.Match(text, start, text.size(), re2::RE2::UNANCHORED, match,
                                match == nullptr ? 0 : 1);
    }

    const re2::RE2 expression;
    std::string required;
    std::size_t longestQuickText = 0;
};

std::shared_ptr<const VornRegularExpression<std::string>::Machine>
VornRegularExpression<std::string>::Machine::make(const std::string& pattern) {
    re2::RE2::Options options;
    options.set_max_mem(kMemory);
    options.set_log_errors(false);
    if (isAscii(pattern)) options.set_encoding(re2::RE2::Options::EncodingLatin1);
    auto machine = std::make_shared<const Machine>(pattern, options);
    if (machine->expression.error_code() == re2::RE2::ErrorBadUTF8) {
        options.set_encoding(re2::RE2::Options::EncodingLatin1);
        machine = std::make_shared<const Machine>(pattern, options);
    }
    return machine;
}

// Thousands of clients tend to register a handful of patterns: those in use
// are shared.
std::shared_ptr<const VornRegularExpression<std::string>::Machine>
VornRegularExpression<std::string>::Machine::shared(const std::string& pattern) {
    struct Pool {
        VornMutex mutex;
        std::unordered_map<std::string, std::weak_ptr<const Machine>> machines
            VORN_GUARDED_BY(mutex);
        std::size_t sweepAt VORN_GUARDED_BY(mutex) = 64;
    };
    static Pool* const pool = new Pool;  // patterns may be set until the very end
    {
        VornMutexLock lock(pool->mutex);
        const auto found = pool->machines.find(pattern);
        if (found != pool->machines.end()) {
            if (auto machine = found->second.lock()) return machine;
        }
    }
    auto machine = make(pattern);
    if (!machine->expression.ok()) return machine;
    VornMutexLock lock(pool->mutex);
    auto& kept = pool->machines[pattern];
    if (auto earlier = kept.lock()) return earlier;
    kept = machine;
    if (pool->machines.size() > pool->sweepAt) {
        std::erase_if(pool->machines, [](const auto& entry) { return entry.second.expired(); });
        pool->sweepAt = 2 * pool->machines.size() + 64;
    }
    return machine;
}

VornRegularExpression<std::string>::VornRegularExpression() : plain_(std::make_unique<Plain>()) {}
VornRegularExpression<std::string>::~VornRegularExpression() = default;
VornRegularExpression<std::string>::VornRegularExpression(VornRegularExpression&&) noexcept =
    default;
VornRegularExpression<std::string>& VornRegularExpression<std::string>::operator=(
    VornRegularExpression&&) noexcept = default;

bool VornRegularExpression<std::string>::setPattern(const std::string& pattern) {
    pattern_ = pattern;
    errorText_.clear();
    machine_.reset();
    plain_ = Plain::of(pattern_);
    if (plain_) return true;
    if (pattern_.size() > kLongestPattern) {
        errorText_ = "pattern too long: more than " + std::to_string(kLongestPattern) + " bytes";
        return false;
    }
    auto machine = Machine::shared(pattern_);
    if (!machine->expression.ok()) {
        errorText_ = machine->expression.error();
        return false;
    }
    machine_ = std::move(machine);
    return true;
}

std::size_t VornRegularExpression<std::string>::find(const std::string& text, std::size_t start,
                                                     std::size_t* length) const {
    if (length != nullptr) *length = 0;
    if (start > text.size()) return npos;
    if (plain_) {
        const std::size_t position = plain_->find(text, start);
        if (length != nullptr && position != npos) *length = plain_->lengthAt(text, position);
        return position;
    }
    re2::StringPiece match;
    if (!machine_ || !machine_->mayMatch(text, start) || !machine_->search(text, start, &match)) {
        return npos;
    }
    if (length != nullptr) *length = match.size();
    return static_cast<std::size_t>(match.data() - text.data());
}

bool VornRegularExpression<std::string>::isFoundIn(const std::string& text) const {
    if (plain_) return plain_->find(text, 0) != npos;
    return machine_ && machine_->mayMatch(text, 0) && machine_->search(text, 0, nullptr);
}

std::size_t VornRegularExpression<std::string>::longestQuickText() const {
    return machine_ ? machine_->longestQuickText : npos;
}

bool VornRegularExpression<std::string>::isNonEmptyFoundIn(const std::string& text) const {
    const bool everyMatchIsNonEmpty =
        plain_ ? !plain_->text.empty() : machine_ && !machine_->required.empty();
    if (!isFoundIn(text)) return false;
    if (everyMatchIsNonEmpty) return true;
    std::size_t length = 0;
    find(text, 0, &length);
    return length > 0;
}

}  // namespace VornSupport
