#include "scheduler/RuvoTSEscape.h"

namespace RuvoService {
namespace {

constexpr std::string_view kEnd = "%00";
constexpr char kDigits[] = "0123456789ABCDEF";
constexpr unsigned kLetterOffset = 55;  // 'A' is 10

// Not isalnum(): the locale has no say.
bool isPlain(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

unsigned valueOf(char c) {
    if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
    return static_cast<unsigned char>(c) - kLetterOffset;
}

}  // namespace

std::string escapeText(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size() + kEnd.size());
    for (const char c : text) {
        if (isPlain(c)) {
            escaped += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        escaped += '%';
        escaped += kDigits[byte >> 4];
        escaped += kDigits[byte & 0x0F];
    }
    escaped += kEnd;
    return escaped;
}

std::string unescapeText(std::string_view escaped) {
    std::string text;
    text.reserve(escaped.size());
    for (std::size_t i = 0; i < escaped.size(); ++i) {
        char c = escaped[i];
        if (c == '%') {
            if (escaped.size() - i < 3) break;
            c = static_cast<char>(valueOf(escaped[i + 1]) * 16 + valueOf(escaped[i + 2]));
            i += 2;
        }
        if (c == '\0') break;
        text += c;
    }
    return text;
}

}  // namespace RuvoService
