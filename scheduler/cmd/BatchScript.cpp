#include "scheduler/cmd/BatchScript.h"

namespace RuvoCmd {
namespace {

constexpr std::string_view kBlanks = " \t\r\v\f";

std::string_view trimmed(std::string_view text) {
    const auto begin = text.find_first_not_of(kBlanks);
    if (begin == text.npos) return {};
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

// Takes the first word off `text`; true when it is `word`, which is lower case.
bool takeWord(std::string_view& text, std::string_view word) {
    const auto end = text.find_first_of(kBlanks);
    const std::string_view first = text.substr(0, end);
    if (first.size() != word.size()) return false;
    for (std::size_t i = 0; i < word.size(); ++i) {
        const char c = first[i];
        if ((c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c) != word[i]) return false;
    }
    text = trimmed(text.substr(first.size()));
    return true;
}

bool isChangeOfDirectory(std::string_view line, std::string_view& directory) {
    directory = trimmed(line);
    if (!takeWord(directory, "cd") || !takeWord(directory, "/d")) return false;
    if (directory.size() >= 2 && directory.front() == '"' && directory.back() == '"') {
        directory = directory.substr(1, directory.size() - 2);
    }
    return true;
}

}  // namespace

std::vector<BatchStep> readBatch(std::string_view text) {
    std::vector<BatchStep> steps;
    while (!text.empty()) {
        const auto end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
        line = line.substr(0, line.find('\0'));
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (trimmed(line).empty()) continue;
        std::string_view directory;
        if (isChangeOfDirectory(line, directory)) {
            steps.push_back({BatchStep::Kind::ChangeDirectory, std::string(directory)});
        } else {
            steps.push_back({BatchStep::Kind::Command, std::string(line)});
        }
    }
    return steps;
}

}  // namespace RuvoCmd
