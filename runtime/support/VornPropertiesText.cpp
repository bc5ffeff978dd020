#include "runtime/support/VornPropertiesText.h"

#include "runtime/platform/PathText.h"

#include <fstream>

namespace VornSupport {
namespace {

constexpr std::string_view kBlanks = " \t\r\f\v";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string_view trimmed(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

VornPropertyLine split(std::size_t number, std::string_view line, std::string_view separator) {
    const std::size_t at = separator.empty() ? std::string_view::npos : line.find(separator);
    if (at == std::string_view::npos) return {number, {}, line};
    const std::string_view key = trimmed(line.substr(0, at));
    if (key.empty()) return {number, {}, line};
    return {number, key, trimmed(line.substr(at + separator.size()))};
}

}  // namespace

void visitPropertyLines(std::string_view text, std::string_view separator,
                        const std::function<void(const VornPropertyLine&)>& visit) {
    if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t end = text.find('\n');
        const std::string_view line = trimmed(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.empty() || line.front() == '#' || line.front() == '!') continue;
        visit(split(number, line, separator));
    }
}

bool readPropertiesText(const std::string& fileName, std::string& text) {
    const auto path = VornPlatform::pathFromUtf8(fileName);
    if (!VornPlatform::isReadableAtOnce(path)) return false;
    std::ifstream file(path, std::ios::binary);
    if (!file) return false;

    // Read in pieces: the size that the system states may be wrong or unknown.
    std::string content;
    char piece[16 * 1024];
    while (file.read(piece, sizeof piece), file.gcount() > 0) {
        content.append(piece, static_cast<std::size_t>(file.gcount()));
        if (content.size() > kLargestPropertiesFile) return false;
    }
    if (file.bad()) return false;
    text = std::move(content);
    return true;
}

}  // namespace VornSupport
