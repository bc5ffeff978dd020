#include "runtime/support/VornWideText.h"

#include <cstddef>
#include <cstdint>

namespace VornSupport {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kLast = 0x10FFFF;
constexpr char32_t kFirstBeyond16Bits = 0x10000;
constexpr bool kWideIs16Bits = sizeof(wchar_t) == 2;

bool isSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDFFF; }
bool isHighSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool isLowSurrogate(char32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// Takes one character, or one byte that begins none, off the front.
char32_t takeUtf8(std::string_view& text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    const std::size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    static constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, kFirstBeyond16Bits};
    static constexpr unsigned char kBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    char32_t c = first & kBits[length];
    bool valid = first < 0x80 || (first >= 0xC2 && first <= 0xF4 && text.size() >= length);
    for (std::size_t i = 1; valid && i < length; ++i) {
        valid = (byte(i) & 0xC0) == 0x80;
        c = c << 6 | (byte(i) & 0x3F);
    }
    valid = valid && c >= kLeast[length] && c <= kLast && !isSurrogate(c);
    text.remove_prefix(valid ? length : 1);
    return valid ? c : kReplacement;
}

void addWide(std::wstring& wide, char32_t c) {
    if (kWideIs16Bits && c >= kFirstBeyond16Bits) {
        c -= kFirstBeyond16Bits;
        wide += static_cast<wchar_t>(0xD800 + (c >> 10));
        wide += static_cast<wchar_t>(0xDC00 + (c & 0x3FF));
    } else {
        wide += static_cast<wchar_t>(c);
    }
}

char32_t takeWide(std::wstring_view& text) {
    const auto c = static_cast<char32_t>(text[0]);
    text.remove_prefix(1);
    if (kWideIs16Bits && isHighSurrogate(c) && !text.empty()) {
        const auto low = static_cast<char32_t>(text[0]);
        if (isLowSurrogate(low)) {
            text.remove_prefix(1);
            return kFirstBeyond16Bits + ((c - 0xD800) << 10 | (low - 0xDC00));
        }
    }
    return isSurrogate(c) || c > kLast ? kReplacement : c;
}

void addUtf8(std::string& utf8, char32_t c) {
    const auto add = [&](char32_t bits) { utf8 += static_cast<char>(bits); };
    const auto addTail = [&](int shift) { add(0x80 | ((c >> shift) & 0x3F)); };
    if (c < 0x80) {
        add(c);
    } else if (c < 0x800) {
        add(0xC0 | c >> 6);
        addTail(0);
    } else if (c < kFirstBeyond16Bits) {
        add(0xE0 | c >> 12);
        addTail(6);
        addTail(0);
    } else {
        add(0xF0 | c >> 18);
        addTail(12);
        addTail(6);
        addTail(0);
    }
}

}  // namespace

std::wstring wideFromUtf8(std::string_view text) {
    std::wstring wide;
    while (!text.empty()) addWide(wide, takeUtf8(text));
    return wide;
}

std::string utf8FromWide(std::wstring_view text) {
    std::string utf8;
    while (!text.empty()) addUtf8(utf8, takeWide(text));
    return utf8;
}

}  // namespace VornSupport
