#include "runtime/platform/BatchQuote.h"

#include <gtest/gtest.h>

using namespace VornPlatform;

TEST(BatchQuote, LeavesPlainWordsAlone) {
    for (const std::string plain : {"a", "C:\\Windows\\notepad.exe", "-x", "a/b", "7"}) {
        EXPECT_EQ(quoteForBatch(plain), plain);
    }
    EXPECT_EQ(quoteForBatch(""), "\"\"");
    EXPECT_EQ(quoteForBatch("a b"), "\"a b\"");
}

TEST(BatchQuote, KeepsTheInterpreterFromExpanding) {
    EXPECT_EQ(quoteForBatch("%TEMP%"), "\"%%TEMP%%\"");
    EXPECT_EQ(quoteForBatch("a&b"), "\"a&b\"");
    EXPECT_EQ(directoryForBatch("C:\\100% a"), "\"C:\\100%% a\"");
}

TEST(BatchQuote, GroupsForOneRedirection) {
    EXPECT_EQ(groupForBatch("echo a & echo b"), "(echo a & echo b)");
}

TEST(BatchQuote, DoublesBackslashesInFrontOfQuotesOnly) {
    EXPECT_EQ(quoteForBatch("C:\\a b\\"), "\"C:\\a b\\\\\"");
    EXPECT_EQ(quoteForBatch("C:\\a b\\c"), "\"C:\\a b\\c\"");
    EXPECT_EQ(quoteForBatch("say \"x\""), "\"say \"\"x\"\"\"");
}
