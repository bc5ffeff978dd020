#include "runtime/platform/CommandLine_posix.h"

#include <cstddef>
#include <string_view>
#include <utility>

namespace VornPlatform {
namespace {

constexpr std::string_view kBlanks = " \t\r\n\v\f";

class Splitter {
public:
    explicit Splitter(const std::string& line) : line_(line) {}

    bool run(std::vector<std::string>& arguments) {
        for (skipBlanks(); at_ < line_.size(); skipBlanks()) {
            std::string argument;
            if (!readArgument(argument)) return false;
            arguments.push_back(std::move(argument));
        }
        return true;
    }

private:
    bool atBlank() const { return kBlanks.find(line_[at_]) != std::string_view::npos; }

    void skipBlanks() {
        while (at_ < line_.size() && atBlank()) ++at_;
    }

    bool readArgument(std::string& argument) {
        while (at_ < line_.size() && !atBlank()) {
            const char c = line_[at_++];
            if (c == '"' || c == '\'') {
                if (!readQuoted(c, argument)) return false;
            } else if (c != '\\') {
                argument += c;
            } else if (at_ == line_.size()) {
                return false;
            } else {
                argument += line_[at_++];
            }
        }
        return true;
    }

    bool readQuoted(char quote, std::string& argument) {
        while (at_ < line_.size()) {
            char c = line_[at_++];
            if (c == quote) return true;
            const bool escape = quote == '"' && c == '\\' && at_ < line_.size() &&
                                (line_[at_] == '"' || line_[at_] == '\\');
            if (escape) c = line_[at_++];
            argument += c;
        }
        return false;
    }

    const std::string& line_;
    std::size_t at_ = 0;
};

}  // namespace

bool splitCommandLine(const std::string& line, std::vector<std::string>& arguments) {
    return Splitter(line).run(arguments);
}

}  // namespace VornPlatform
