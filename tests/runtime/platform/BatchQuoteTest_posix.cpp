#include "runtime/platform/BatchQuote.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

using namespace VornPlatform;

TEST(BatchQuote, LeavesPlainWordsAlone) {
    for (const std::string plain : {"a", "/usr/bin/find", "-mtime", "+7", "a=b", "x@y:1,2%", "7"}) {
        EXPECT_EQ(quoteForBatch(plain), plain);
    }
    EXPECT_EQ(quoteForBatch(""), "''");
    EXPECT_EQ(quoteForBatch("a b"), "'a b'");
}

// Through the shell, as the words go that stand in a batch file.
TEST(BatchQuote, BringsEveryByteThrough) {
    const TestSupport::TemporaryDirectory folder;
    const std::string out = folder.file("out");
    std::string all;
    for (int c = 1; c < 256; ++c) {
        if (c != '\n' && c != '\r') all += static_cast<char>(c);
    }
    for (const std::string& word :
         {all, std::string("it's"), std::string("'"), std::string("''"), std::string("$HOME `id`"),
          std::string("*"), std::string("~"), std::string("a;b&c|d>e"), std::string("\\\"")}) {
        const std::string line =
            "printf %s " + quoteForBatch(word) + " >" + quoteForBatch(out);
        ASSERT_EQ(std::system(line.c_str()), 0);
        EXPECT_EQ(TestSupport::readFile(out), word);
    }
}

TEST(BatchQuote, PutsFoldersInOnePairOfQuotes) {
    EXPECT_EQ(directoryForBatch("/a b"), "\"/a b\"");
    EXPECT_EQ(directoryForBatch("/it's \"x\""), "\"/it's \"x\"\"");
}
