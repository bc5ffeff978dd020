#include "runtime/platform/BatchQuote.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

using namespace VornPlatform;

TEST(BatchQuote, LeavesPlainWordsAlone) {
    for (const std::string plain : {"a", "/usr/bin/find", "-mtime", "+7", "x@y:1,2%", "7"}) {
        EXPECT_EQ(quoteForBatch(plain), plain);
    }
    EXPECT_EQ(quoteForBatch("a=b"), "'a=b'");  // the first word would be an assignment
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

TEST(BatchQuote, GroupsForOneRedirection) {
    const TestSupport::TemporaryDirectory folder;
    for (const std::string text : {"echo a; echo 'b c' # d", "{ echo a; echo 'b c'; }",
                                   "echo a && (echo 'b c') || exit 1"}) {
        const std::string out = folder.file("out");
        const std::string line = groupForBatch(text) + "  >" + quoteForBatch(out) + " 2>&1 ";
        ASSERT_EQ(std::system(line.c_str()), 0) << line;
        EXPECT_EQ(TestSupport::readFile(out), "a\nb c\n") << line;
    }
}

TEST(BatchQuote, PutsFoldersInOnePairOfQuotes) {
    EXPECT_EQ(directoryForBatch("/a b"), "\"/a b\"");
    EXPECT_EQ(directoryForBatch("/it's \"x\""), "\"/it's \"x\"\"");
}
