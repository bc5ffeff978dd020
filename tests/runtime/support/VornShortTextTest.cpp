#include "runtime/support/VornShortText.h"

#include <gtest/gtest.h>

using VornSupport::shortText;

TEST(VornShortText, LeavesWhatIsShortEnough) {
    EXPECT_EQ(shortText(""), "");
    EXPECT_EQ(shortText("", 0), "");
    EXPECT_EQ(shortText("abc", 3), "abc");
    EXPECT_EQ(shortText(std::string(200, 'x')), std::string(200, 'x'));
    EXPECT_EQ(shortText("\xc3\xa9", 2), "\xc3\xa9");
}

TEST(VornShortText, CutsWhatIsLonger) {
    EXPECT_EQ(shortText("abcd", 3), "abc...");
    EXPECT_EQ(shortText("abcd", 0), "...");
    EXPECT_EQ(shortText(std::string(1000000, 'x')), std::string(200, 'x') + "...");
}

TEST(VornShortText, CutsNoCharacterInTwo) {
    for (const std::string character : {"\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80"}) {
        const std::string text = "a" + character + "z";
        for (std::size_t most = 1; most <= character.size(); ++most) {
            EXPECT_EQ(shortText(text, most), "a...") << most;
        }
        EXPECT_EQ(shortText(text, character.size() + 1), "a" + character + "...");
    }
    EXPECT_EQ(shortText("\xe2\x82\xac\xe2\x82\xac", 2), "...");
}

TEST(VornShortText, CutsBytesThatAreNoTextAnywhere) {
    const std::string bytes(300, '\x80');
    EXPECT_EQ(shortText(bytes), bytes.substr(0, 200) + "...");
    EXPECT_EQ(shortText(bytes, 2), bytes.substr(0, 2) + "...");
}
