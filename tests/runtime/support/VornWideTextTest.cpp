#include "runtime/support/VornWideText.h"

#include <gtest/gtest.h>

#include <string>

using namespace VornSupport;

namespace {

const std::wstring kBad = L"\xFFFD";
const std::string kBadUtf8 = "\xEF\xBF\xBD";

TEST(VornWideText, LeadsThereAndBack) {
    const std::string utf8 =
        "a\x7F\xC2\x80\xC3\xA4\xDF\xBF\xE0\xA0\x80\xE2\x82\xAC\xEF\xBF\xBF"
        "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
    const std::wstring wide = L"a\x7F\x80\u00E4\u07FF\u0800\u20AC\xFFFF\U00010000\U0010FFFF";
    EXPECT_EQ(wideFromUtf8(utf8), wide);
    EXPECT_EQ(utf8FromWide(wide), utf8);
    EXPECT_EQ(wideFromUtf8(""), L"");
    EXPECT_EQ(utf8FromWide(L""), "");
}

TEST(VornWideText, KeepsZeroCharacters) {
    EXPECT_EQ(wideFromUtf8(std::string("a\0b", 3)), std::wstring(L"a\0b", 3));
    EXPECT_EQ(utf8FromWide(std::wstring(L"a\0b", 3)), std::string("a\0b", 3));
}

TEST(VornWideText, ReplacesWhatIsNotUtf8) {
    EXPECT_EQ(wideFromUtf8("\xFFx"), kBad + L"x");
    EXPECT_EQ(wideFromUtf8("\x80x"), kBad + L"x");
    EXPECT_EQ(wideFromUtf8("\xC3"), kBad);
    EXPECT_EQ(wideFromUtf8("\xC3x"), kBad + L"x");
    EXPECT_EQ(wideFromUtf8("\xE2\x82x"), kBad + kBad + L"x");
    EXPECT_EQ(wideFromUtf8("\xF0\x9F\x98"), kBad + kBad + kBad);
}

TEST(VornWideText, RefusesOverlongFormsSurrogatesAndTooLargeNumbers) {
    EXPECT_EQ(wideFromUtf8("\xC0\x80"), kBad + kBad);
    EXPECT_EQ(wideFromUtf8("\xC1\xBF"), kBad + kBad);
    EXPECT_EQ(wideFromUtf8("\xE0\x80\x80"), kBad + kBad + kBad);
    EXPECT_EQ(wideFromUtf8("\xED\xA0\x80"), kBad + kBad + kBad);
    EXPECT_EQ(wideFromUtf8("\xF0\x80\x80\x80"), kBad + kBad + kBad + kBad);
    EXPECT_EQ(wideFromUtf8("\xF4\x90\x80\x80"), kBad + kBad + kBad + kBad);
    EXPECT_EQ(wideFromUtf8("\xF5\x80\x80\x80"), kBad + kBad + kBad + kBad);
}

TEST(VornWideText, ReplacesLoneSurrogates) {
    const std::wstring high(1, static_cast<wchar_t>(0xD800));
    const std::wstring low(1, static_cast<wchar_t>(0xDC00));
    EXPECT_EQ(utf8FromWide(high + L"x"), kBadUtf8 + "x");
    EXPECT_EQ(utf8FromWide(low), kBadUtf8);
    EXPECT_EQ(utf8FromWide(high), kBadUtf8);
    EXPECT_EQ(utf8FromWide(high + high), kBadUtf8 + kBadUtf8);
}

}  // namespace
