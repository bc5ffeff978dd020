#include "runtime/platform/AppendFile.h"

#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>

using namespace VornPlatform;
using TestSupport::readFile;

namespace {

class AppendFileTest : public testing::Test {
protected:
    void append(AppendFile& file, std::string_view text) {
        std::size_t written = 0;
        EXPECT_FALSE(file.write(text, written));
        EXPECT_EQ(written, text.size());
    }

    TestSupport::TemporaryDirectory directory_;
    const std::string path_ = directory_.file("l\xC3\xB6g.txt");
    AppendFile file_;
};

TEST_F(AppendFileTest, CreatesTheFileAndAddsToIt) {
    ASSERT_FALSE(file_.open(path_));
    EXPECT_TRUE(file_.isOpen());
    append(file_, "one\n");
    append(file_, "two\r\n");
    EXPECT_EQ(readFile(path_), "one\ntwo\r\n");
    EXPECT_EQ(file_.size(), 9u);
    ASSERT_FALSE(file_.open(path_));
    append(file_, "three");
    EXPECT_EQ(readFile(path_), "one\ntwo\r\nthree");
}

TEST_F(AppendFileTest, TwoWritersNeverOverwriteEachOther) {
    AppendFile other;
    ASSERT_FALSE(file_.open(path_));
    ASSERT_FALSE(other.open(path_));
    append(file_, "a");
    append(other, "b");
    append(file_, "c");
    EXPECT_EQ(readFile(path_), "abc");
}

TEST_F(AppendFileTest, WritesAtTheNewEndAfterTruncation) {
    ASSERT_FALSE(file_.open(path_));
    append(file_, "long text");
    ASSERT_FALSE(file_.truncate());
    EXPECT_EQ(file_.size(), 0u);
    append(file_, "x");
    EXPECT_EQ(readFile(path_), "x");
}

TEST_F(AppendFileTest, KnowsWhetherItsNameStillLeadsToIt) {
    ASSERT_FALSE(file_.open(path_));
    EXPECT_TRUE(file_.isAt(path_));
    ASSERT_FALSE(renameFile(path_, directory_.file("renamed")));
    EXPECT_FALSE(file_.isAt(path_));
    EXPECT_TRUE(file_.isAt(directory_.file("renamed")));
    TestSupport::writeFile(path_, "");
    EXPECT_FALSE(file_.isAt(path_));
    append(file_, "still writable");
    EXPECT_EQ(readFile(directory_.file("renamed")), "still writable");
}

TEST_F(AppendFileTest, MayBeRemovedWhileItIsOpen) {
    ASSERT_FALSE(file_.open(path_));
    ASSERT_FALSE(removeFile(path_));
    // Some systems keep the name until the file is closed.
    EXPECT_EQ(file_.isAt(path_), TestSupport::exists(path_));
    file_.close();
    EXPECT_FALSE(file_.isOpen());
    EXPECT_FALSE(TestSupport::exists(path_));
    ASSERT_FALSE(file_.open(path_));
    EXPECT_TRUE(file_.isAt(path_));
}

TEST_F(AppendFileTest, SaysWhyAFileCannotBeOpened) {
    const OsError error = file_.open(directory_.file("no folder") + "/log");
    EXPECT_EQ(error.condition(), OsCondition::NotFound);
    EXPECT_FALSE(file_.isOpen());
    EXPECT_TRUE(file_.open(directory_.text()));
    EXPECT_FALSE(file_.isOpen());
}

TEST_F(AppendFileTest, RenamingReplacesTheOtherFile) {
    TestSupport::writeFile(path_, "new");
    TestSupport::writeFile(directory_.file("other"), "old");
    ASSERT_FALSE(renameFile(path_, directory_.file("other")));
    EXPECT_EQ(readFile(directory_.file("other")), "new");
    EXPECT_FALSE(TestSupport::exists(path_));
}

TEST_F(AppendFileTest, SaysThatThereIsNothingToRenameOrRemove) {
    EXPECT_EQ(renameFile(path_, directory_.file("other")).condition(), OsCondition::NotFound);
    EXPECT_EQ(removeFile(path_).condition(), OsCondition::NotFound);
}

}  // namespace
