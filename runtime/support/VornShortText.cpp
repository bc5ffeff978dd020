#include "runtime/support/VornShortText.h"

namespace VornSupport {

std::string shortText(std::string_view text, std::size_t most) {
    if (text.size() <= most) return std::string(text);
    constexpr std::size_t kLongestTail = 3;  // of a character; bytes that are none are cut anywhere
    const auto isTail = [text](std::size_t at) {
        return (static_cast<unsigned char>(text[at]) & 0xc0) == 0x80;
    };
    std::size_t end = most;
    while (end > 0 && most - end < kLongestTail && isTail(end)) --end;
    if (isTail(end)) end = most;
    return std::string(text.substr(0, end)) + "...";
}

}  // namespace VornSupport
