#include "runtime/support/VornExpandString.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

namespace VornSupport {
namespace {

constexpr std::size_t kDeepest = 100;
constexpr std::size_t kMostBytes = 4 * 1024 * 1024;
constexpr std::size_t kCostOfOne = 64;  // so that empty values, too, come to an end

constexpr std::string_view kOpening = "${";

// A text that is being expanded: the outermost one, or the value of a key.
struct Level {
    std::string key;
    std::string text;
    std::size_t position = 0;
};

class Expansion {
public:
    explicit Expansion(const VornProperties<std::string>& properties) : properties_(properties) {}

    std::string run(const std::string& text) {
        levels_.push_back({{}, text});
        while (!levels_.empty()) {
            if (!advance()) levels_.pop_back();
        }
        return std::move(result_);
    }

private:
    // Goes on to the innermost text's next reference, which may open a level
    // of its own. False at the end of the text.
    bool advance() {
        Level& level = levels_.back();
        const std::string_view rest = std::string_view(level.text).substr(level.position);
        const std::size_t close = rest.find('}');
        const std::size_t open = rest.substr(0, close).rfind(kOpening);
        if (close == std::string_view::npos) {
            result_ += rest;
            return false;
        }
        level.position += close + 1;
        if (open == std::string_view::npos) {
            result_ += rest.substr(0, close + 1);
            return true;
        }
        result_ += rest.substr(0, open);
        const std::string_view reference = rest.substr(open, close + 1 - open);
        std::string key(reference.substr(kOpening.size(), reference.size() - kOpening.size() - 1));
        std::string value;
        if (!mayOpen(key) || !properties_.getPropertyValue(key, value) || !afford(value)) {
            result_ += reference;
            return true;
        }
        levels_.push_back({std::move(key), std::move(value)});
        return true;
    }

    bool mayOpen(const std::string& key) const {
        if (levels_.size() > kDeepest || spent_ >= kMostBytes) return false;
        return std::none_of(levels_.begin() + 1, levels_.end(),
                            [&key](const Level& level) { return level.key == key; });
    }

    // What is refused is paid for as well: it had to be copied to be seen.
    bool afford(const std::string& value) {
        spent_ += value.size() + kCostOfOne;
        return spent_ <= kMostBytes;
    }

    const VornProperties<std::string>& properties_;
    std::vector<Level> levels_;  // the outermost text first
    std::string result_;
    std::size_t spent_ = 0;
};

}  // namespace

std::string VornExpandString(const std::string& text,
                             const VornProperties<std::string>& properties) {
    return Expansion(properties).run(text);
}

}  // namespace VornSupport
