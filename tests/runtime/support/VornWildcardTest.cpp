#include "runtime/support/VornWildcard.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

using namespace VornSupport;

namespace {

bool matches(std::string_view name, std::string_view pattern) {
    return matchesWildcard(name, pattern, false);
}

TEST(VornWildcard, PlainTextMatchesItself) {
    EXPECT_TRUE(matches("name.txt", "name.txt"));
    EXPECT_TRUE(matches("", ""));
    for (const char* other : {"", "name.tx", "name.txtx", "Name.txt", "xname.txt", "name_txt"}) {
        EXPECT_FALSE(matches(other, "name.txt")) << other;
    }
    EXPECT_FALSE(matches("a", ""));
}

TEST(VornWildcard, StarStandsForAnyText) {
    for (const char* name : {"", "a", "a.txt", ".hidden", "\xC3\xA4"}) {
        EXPECT_TRUE(matches(name, "*")) << name;
        EXPECT_TRUE(matches(name, "***")) << name;
    }
    EXPECT_TRUE(matches("a.txt", "*.txt"));
    EXPECT_TRUE(matches(".txt", "*.txt"));
    EXPECT_TRUE(matches("a.txt.txt", "*.txt"));
    EXPECT_FALSE(matches("a.txt.bak", "*.txt"));
    EXPECT_TRUE(matches("prefix-1-suffix", "prefix*suffix"));
    EXPECT_FALSE(matches("prefixsuffi", "prefix*suffix"));
    EXPECT_TRUE(matches("abcabcabd", "*abcabd"));
    EXPECT_TRUE(matches("aXbXc", "a*b*c"));
    EXPECT_FALSE(matches("aXcXb", "a*b*c"));
}

TEST(VornWildcard, QuestionMarkStandsForOneCharacter) {
    EXPECT_TRUE(matches("a1", "a?"));
    EXPECT_FALSE(matches("a", "a?"));
    EXPECT_FALSE(matches("a12", "a?"));
    EXPECT_TRUE(matches("a\xE2\x82\xAC", "a?"));
    EXPECT_TRUE(matches("\xF0\x9F\x98\x80x", "?x"));
    EXPECT_FALSE(matches("\xC3\xA4", "??"));
    EXPECT_TRUE(matches("\xFF\xC3", "??")) << "bytes of no character count one each";
    EXPECT_TRUE(
        matches("\xC3"
                "a",
                "??"));
    EXPECT_TRUE(matches("abc", "?*?"));
    EXPECT_FALSE(matches("a", "?*?"));
}

TEST(VornWildcard, StarTakesWholeCharacters) {
    EXPECT_FALSE(matches("\xC3\xA4", "*??"));
    EXPECT_TRUE(matches("\xC3\xA4\xC3\xB6", "*?\xC3\xB6"));
}

TEST(VornWildcard, IgnoresCaseOfAsciiWhenAsked) {
    EXPECT_TRUE(matchesWildcard("SETUP.EXE", "set*.exe", true));
    EXPECT_TRUE(matchesWildcard("az@[`{", "AZ@[`{", true));
    EXPECT_FALSE(matchesWildcard("@", "`", true));
    EXPECT_FALSE(matchesWildcard("[", "{", true));
    EXPECT_FALSE(matchesWildcard("\xC3\xA4", "\xC3\x84", true));
}

TEST(VornWildcard, EndsSoonOnHostilePatterns) {
    std::string pattern;
    for (int i = 0; i < 500; ++i) pattern += "*a";
    pattern += "b";
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(matches(std::string(5000, 'a'), pattern));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

}  // namespace
