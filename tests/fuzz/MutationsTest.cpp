#include "tests/fuzz/Mutations.h"

#include "tests/fuzz/Check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

using FuzzTests::Mutations;
using FuzzTests::printable;

TEST(Mutations, AreTheSameEveryTime) {
    Mutations first({"one input", "another"});
    Mutations second({"one input", "another"});
    for (int i = 0; i < 1000; ++i) EXPECT_EQ(first.next(), second.next());
}

TEST(Mutations, GoFarFromTheirInputs) {
    Mutations mutations({"line 12 of a text\n", "second"});
    std::set<std::string> seen;
    std::set<std::size_t> sizes;
    bool hostileNumber = false;
    bool spliced = false;
    for (int i = 0; i < 3000; ++i) {
        const std::string text = mutations.next();
        EXPECT_LE(text.size(), Mutations::kLongest);
        seen.insert(text);
        sizes.insert(text.size());
        if (text.find(std::string("\x7F\xFF\xFF\xFF", 4)) != text.npos) hostileNumber = true;
        if (text.starts_with("sec") && text.find("of a") != text.npos) spliced = true;
    }
    EXPECT_GT(seen.size(), 2000u);
    EXPECT_GT(sizes.size(), 100u);
    EXPECT_TRUE(sizes.contains(0));
    EXPECT_TRUE(hostileNumber);
    EXPECT_TRUE(spliced);
}

TEST(Mutations, ManageWithNothing) {
    Mutations mutations({""});
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) seen.insert(mutations.next());
    EXPECT_GT(seen.size(), 100u);
}

TEST(Mutations, NeverGrowBeyondTheLongest) {
    Mutations mutations({std::string(Mutations::kLongest, 'x')});
    std::size_t longest = 0;
    for (int i = 0; i < 200; ++i) longest = std::max(longest, mutations.next().size());
    EXPECT_EQ(longest, Mutations::kLongest);
}

TEST(Mutations, PrintEveryByte) {
    EXPECT_EQ(printable("plain text"), "plain text");
    EXPECT_EQ(printable(std::string_view("a\0" "1\n\"\\\xFF", 7)), "a\\0001\\012\\042\\134\\377");
}

TEST(Check, ThrowsWhatDoesNotHold) {
    EXPECT_NO_THROW(FuzzTests::check(true, "fine"));
    try {
        FuzzTests::check(false, "one is two");
        FAIL() << "nothing was thrown";
    } catch (const FuzzTests::Broken& broken) {
        EXPECT_STREQ(broken.what(), "does not hold: one is two");
    }
}
