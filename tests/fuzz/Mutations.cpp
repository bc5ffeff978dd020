#include "tests/fuzz/Mutations.h"

#include "runtime/net/WireCodec.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace FuzzTests {
namespace {

constexpr std::uint32_t kNumbers[] = {0,          1,          2,          0x7F,       0xFF,
                                      0x100,      0xFFFF,     0x10000,    0x100000,   0x100001,
                                      0x3FFFFFF,  0x4000001,  0x7FFFFFFE, 0x7FFFFFFF, 0x80000000,
                                      0x80000001, 0xFFFFFFFE, 0xFFFFFFFF};
constexpr std::size_t kLongestPiece = 64;

}  // namespace

Mutations::Mutations(std::vector<std::string> inputs) : inputs_(std::move(inputs)) {}

// Not <random>: its distributions differ from library to library.
std::size_t Mutations::below(std::size_t limit) {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return limit == 0 ? 0 : static_cast<std::size_t>((state_ >> 11) % limit);
}

std::string Mutations::piece() {
    const std::string& from = inputs_[below(inputs_.size())];
    return from.substr(below(from.size()), 1 + below(kLongestPiece));
}

void Mutations::change(std::string& text) {
    const std::size_t at = below(text.size() + 1);
    const std::size_t length = 1 + below(kLongestPiece);
    switch (below(10)) {
        case 0:
            if (at < text.size()) text[at] = static_cast<char>(text[at] ^ (1 << below(8)));
            break;
        case 1:
            if (at < text.size()) text[at] = static_cast<char>(below(256));
            break;
        case 2: text.erase(at, length); break;
        case 3: text.resize(at); break;
        case 4: text.insert(at, std::string(text, at, length)); break;
        case 5: text.insert(at, piece()); break;
        case 6: {
            std::string number;
            VornNet::append32(number, kNumbers[below(std::size(kNumbers))]);
            text.replace(at, below(2) == 0 ? 0 : number.size(), number);
            break;
        }
        case 7: text.insert(at, std::string(length * 8, static_cast<char>(below(256)))); break;
        case 8: {
            const std::size_t digit = text.find_first_of("0123456789", at);
            if (digit != text.npos) text.insert(digit, std::string(length, '9'));
            break;
        }
        default: {
            constexpr std::string_view kSigns("\0\n\r\t %=:$-+.*()[]{}|\\\"\x7F\x80\xFF", 25);
            text.insert(at, 1, kSigns[below(kSigns.size())]);
        }
    }
}

std::string Mutations::next() {
    std::string text = inputs_[below(inputs_.size())];
    for (std::size_t changes = 1 + below(4); changes > 0; --changes) change(text);
    text.resize(std::min(text.size(), kLongest));
    return text;
}

std::string printable(std::string_view input) {
    std::string text;
    for (const char c : input) {
        if (c >= ' ' && c <= '~' && c != '"' && c != '\\') {
            text += c;
        } else {
            // Three octal digits: what follows is never taken for a part of them.
            char code[8];
            std::snprintf(code, sizeof code, "\\%03o", static_cast<unsigned char>(c));
            text += code;
        }
    }
    return text;
}

}  // namespace FuzzTests
