#include "runtime/support/VornHex.h"

namespace VornSupport {
namespace {

constexpr int kNoDigit = -1;

int valueOf(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    return kNoDigit;
}

}  // namespace

std::string VornBytesToHex(const void* bytes, std::size_t length) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    const auto* from = static_cast<const unsigned char*>(bytes);
    std::string text(2 * length, '\0');
    for (std::size_t i = 0; i < length; ++i) {
        text[2 * i] = kDigits[from[i] >> 4];
        text[2 * i + 1] = kDigits[from[i] & 0x0F];
    }
    return text;
}

std::size_t VornHexToBytes(void* buffer, std::size_t size, const std::string& text) {
    auto* to = static_cast<unsigned char*>(buffer);
    std::size_t count = 0;
    for (; count < size && 2 * count + 1 < text.size(); ++count) {
        const int high = valueOf(text[2 * count]);
        const int low = valueOf(text[2 * count + 1]);
        if (high == kNoDigit || low == kNoDigit) break;
        to[count] = static_cast<unsigned char>(high << 4 | low);
    }
    return count;
}

}  // namespace VornSupport
