#include "scheduler/RuvoTSEscape.h"

#include <gtest/gtest.h>

#include <cctype>
#include <random>
#include <string>

using namespace RuvoService;

namespace {

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (const int value : values) text += static_cast<char>(value);
    return text;
}

}  // namespace

TEST(RuvoTSEscape, KeepsLettersAndDigitsAndEndsInZero) {
    EXPECT_EQ(escapeText("Backup2024"), "Backup2024%00");
    EXPECT_EQ(escapeText("a b"), "a%20b%00");
    EXPECT_EQ(escapeText(""), "%00");
    EXPECT_EQ(escapeText("100%"), "100%25%00");
    EXPECT_EQ(escapeText("C:\\work"), "C%3A%5Cwork%00");
    EXPECT_EQ(escapeText("\xC3\xBC"), "%C3%BC%00");
    EXPECT_EQ(escapeText(std::string("a\0b", 3)), "a%00b%00");
}

TEST(RuvoTSEscape, TreatsEachByteValueRight) {
    static const char* const digits = "0123456789ABCDEF";
    for (int value = 0; value < 256; ++value) {
        const std::string text = bytes({value});
        const bool plain = (value >= '0' && value <= '9') || (value >= 'A' && value <= 'Z') ||
                           (value >= 'a' && value <= 'z');
        std::string expected = text;
        if (!plain) expected = std::string("%") + digits[value / 16] + digits[value % 16];
        EXPECT_EQ(escapeText(text), expected + "%00") << value;
        if (value != 0) {
            EXPECT_EQ(unescapeText(escapeText(text)), text) << value;
        }
    }
}

TEST(RuvoTSEscape, ComesBackAsItWas) {
    std::string all;
    for (int value = 1; value < 256; ++value) all += static_cast<char>(value);
    EXPECT_EQ(unescapeText(escapeText(all)), all);
    EXPECT_EQ(unescapeText(escapeText("")), "");
    const std::string megabyte(1 << 20, '%');
    EXPECT_EQ(escapeText(megabyte).size(), 3 * megabyte.size() + 3);
    EXPECT_EQ(unescapeText(escapeText(megabyte)), megabyte);
}

TEST(RuvoTSEscape, EndsAtTheFirstZero) {
    EXPECT_EQ(unescapeText("a%00b%00"), "a");
    EXPECT_EQ(unescapeText(std::string("a\0b", 3)), "a");
    EXPECT_EQ(unescapeText("abc"), "abc");
}

// Only upper case is written; what lower case gives is odd and stays so.
TEST(RuvoTSEscape, ReckonsLettersAsUpperCase) {
    EXPECT_EQ(unescapeText("%4A%00"), "J");
    EXPECT_EQ(unescapeText("%4a%00"), bytes({4 * 16 + 'a' - 55}));
    EXPECT_EQ(unescapeText("%fF%00"), bytes({(('f' - 55) * 16 + 15) & 0xFF}));
    EXPECT_EQ(unescapeText("a%G0b%00"), "a");  // 16 times 16 is a zero byte: the end
}

TEST(RuvoTSEscape, EndsAtAPercentSignWithTooLittleBehindIt) {
    EXPECT_EQ(unescapeText("abc%"), "abc");
    EXPECT_EQ(unescapeText("abc%4"), "abc");
    EXPECT_EQ(unescapeText("%"), "");
    EXPECT_EQ(unescapeText(""), "");
    EXPECT_EQ(unescapeText("abc%41"), "abcA");
}

TEST(RuvoTSEscape, TakesAnyBytes) {
    std::mt19937 random(1);
    for (int round = 0; round < 2000; ++round) {
        std::string text(random() % 60, '\0');
        for (char& c : text) c = random() % 3 == 0 ? '%' : static_cast<char>(random());
        EXPECT_LE(unescapeText(text).size(), text.size());
        EXPECT_EQ(unescapeText(escapeText(text)), text.substr(0, text.find('\0')));
    }
}
