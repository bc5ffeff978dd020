#include "runtime/support/VornTokenizer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace VornSupport;

namespace {

using Fields = std::vector<std::string>;

Fields split(const std::string& text, const std::string& separators) {
    Fields fields{"left over"};
    VornTokenizer(text, separators, fields);
    return fields;
}

TEST(VornTokenizer, SplitsAtEveryCharacterOfTheSet) {
    EXPECT_EQ(split("a:b,c", ":,"), (Fields{"a", "b", "c"}));
}

TEST(VornTokenizer, KeepsEmptyFieldsBetweenSeparators) {
    EXPECT_EQ(split("a.exe;;dir", ";"), (Fields{"a.exe", "", "dir"}));
}

TEST(VornTokenizer, KeepsEmptyFieldsAtBothEnds) {
    EXPECT_EQ(split(";a;", ";"), (Fields{"", "a", ""}));
    EXPECT_EQ(split(";", ";"), (Fields{"", ""}));
}

TEST(VornTokenizer, EmptyTextHasNoFields) { EXPECT_EQ(split("", ";"), Fields{}); }

TEST(VornTokenizer, TextWithoutSeparatorsIsOneField) {
    EXPECT_EQ(split("plain text", ";"), Fields{"plain text"});
    EXPECT_EQ(split("a;b", ""), Fields{"a;b"});
}

TEST(VornTokenizer, LeavesTheLineEndInTheLastField) {
    EXPECT_EQ(split("a.exe;true\n", ";"), (Fields{"a.exe", "true\n"}));
    EXPECT_EQ(split("\n", ";"), Fields{"\n"});
}

TEST(VornTokenizer, MayOverwriteTheVectorThatHoldsItsText) {
    Fields fields{"x;y"};
    VornTokenizer(fields[0], ";", fields);
    EXPECT_EQ(fields, (Fields{"x", "y"}));
}

TEST(VornTokenizer, SplitsAtZeroBytes) {
    EXPECT_EQ(split(std::string("a\0b", 3), std::string(1, '\0')), (Fields{"a", "b"}));
}

TEST(VornExtractFirstString, TakesTheFirstWord) {
    EXPECT_EQ(VornExtractFirstString("tool -a -b"), "tool");
    EXPECT_EQ(VornExtractFirstString("  tool\n"), "tool");
    EXPECT_EQ(VornExtractFirstString("tool"), "tool");
}

TEST(VornExtractFirstString, OfNothingIsEmpty) {
    std::string rest = "left over";
    EXPECT_EQ(VornExtractFirstString("", " ", &rest), "");
    EXPECT_EQ(rest, "");
    EXPECT_EQ(VornExtractFirstString(" \t\r\n", " ", &rest), "");
    EXPECT_EQ(rest, "");
}

TEST(VornExtractFirstString, GivesTheRestAfterOneSeparator) {
    std::string rest;
    EXPECT_EQ(VornExtractFirstString("tool  a b", " ", &rest), "tool");
    EXPECT_EQ(rest, " a b");
    EXPECT_EQ(VornExtractFirstString("tool", " ", &rest), "tool");
    EXPECT_EQ(rest, "");
}

TEST(VornExtractFirstString, SplitsAtOtherSeparators) {
    std::string rest;
    EXPECT_EQ(VornExtractFirstString("a b;c", ";", &rest), "a b");
    EXPECT_EQ(rest, "c");
    EXPECT_EQ(VornExtractFirstString(";c", ";", &rest), "");
    EXPECT_EQ(rest, "c");
}

TEST(VornExtractFirstString, RestMayBeTheText) {
    std::string text = "first second";
    EXPECT_EQ(VornExtractFirstString(text, " ", &text), "first");
    EXPECT_EQ(text, "second");
}

TEST(VornStringToChar, CopiesAndEndsTheText) {
    char buffer[8] = {'#', '#', '#', '#', '#', '#', '#', '#'};
    EXPECT_TRUE(VornStringToChar("abc", buffer, sizeof buffer));
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(buffer[4], '#');
}

TEST(VornStringToChar, CutsWhatDoesNotFit) {
    char buffer[5] = {'#', '#', '#', '#', '#'};
    EXPECT_TRUE(VornStringToChar("abc", buffer, 4));
    EXPECT_STREQ(buffer, "abc");
    EXPECT_FALSE(VornStringToChar("abcd", buffer, 4));
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(buffer[4], '#');
}

TEST(VornStringToChar, WritesNothingIntoNoRoom) {
    char buffer[1] = {'#'};
    EXPECT_FALSE(VornStringToChar("", buffer, 0));
    EXPECT_EQ(buffer[0], '#');
    EXPECT_FALSE(VornStringToChar("a", buffer, 1));
    EXPECT_EQ(buffer[0], '\0');
}

}  // namespace
