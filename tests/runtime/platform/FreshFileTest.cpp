#include "runtime/platform/FreshFile.h"

#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <string>
#include <thread>

using namespace VornPlatform;
using TestSupport::exists;
using TestSupport::readFile;
using TestSupport::writeFile;

namespace {

class FreshFileTest : public testing::Test {
protected:
    std::string file(std::string_view name) { return directory_.file(name); }
    OsError replace() { return replaceFile(file("new"), file("current"), file("previous")); }

    TestSupport::TemporaryDirectory directory_;
};

using ReplaceFile = FreshFileTest;

TEST_F(FreshFileTest, HoldsWhatWasWritten) {
    FreshFile fresh;
    EXPECT_FALSE(fresh.isOpen());
    ASSERT_FALSE(fresh.create(file("a")));
    EXPECT_TRUE(fresh.isOpen());
    const std::string bytes("one\r\n\0\x1A two\n", 12);
    ASSERT_FALSE(fresh.write(bytes));
    ASSERT_FALSE(fresh.write(""));
    ASSERT_FALSE(fresh.write("three"));
    ASSERT_FALSE(fresh.flushToDisk());
    EXPECT_EQ(readFile(file("a")), bytes + "three");
    ASSERT_FALSE(fresh.close());
    EXPECT_FALSE(fresh.isOpen());
    EXPECT_FALSE(fresh.close());
    EXPECT_EQ(readFile(file("a")), bytes + "three");
}

TEST_F(FreshFileTest, EmptiesTheFileThatIsThere) {
    writeFile(file("a"), "a long text from before");
    FreshFile fresh;
    ASSERT_FALSE(fresh.create(file("a")));
    EXPECT_EQ(readFile(file("a")), "");
    ASSERT_FALSE(fresh.write("short"));
    ASSERT_FALSE(fresh.close());
    EXPECT_EQ(readFile(file("a")), "short");
}

// Written over, it would be a file that somebody else prepared.
TEST_F(FreshFileTest, LeavesTheOtherNamesOfTheFileThatIsThereAlone) {
    writeFile(file("theirs"), "theirs");
    std::filesystem::create_hard_link(TestSupport::toPath(file("theirs")),
                                      TestSupport::toPath(file("a")));
    FreshFile fresh;
    ASSERT_FALSE(fresh.create(file("a")));
    ASSERT_FALSE(fresh.write("ours"));
    ASSERT_FALSE(fresh.close());
    EXPECT_EQ(readFile(file("a")), "ours");
    EXPECT_EQ(readFile(file("theirs")), "theirs");
}

TEST_F(FreshFileTest, WritesManyMegabytes) {
    const std::string bytes(20'000'000, 'x');
    FreshFile fresh;
    ASSERT_FALSE(fresh.create(file("a")));
    ASSERT_FALSE(fresh.write(bytes));
    ASSERT_FALSE(fresh.close());
    EXPECT_EQ(readFile(file("a")), bytes);
}

TEST_F(FreshFileTest, TakesNamesInUtf8) {
    FreshFile fresh;
    ASSERT_FALSE(fresh.create(file("gr\xC3\xBC\xC3\x9F")));
    ASSERT_FALSE(fresh.close());
    EXPECT_TRUE(exists(file("gr\xC3\xBC\xC3\x9F")));
}

TEST_F(FreshFileTest, ReportsAFileThatCannotBeCreated) {
    FreshFile fresh;
    EXPECT_EQ(fresh.create(file("nowhere/a")).condition(), OsCondition::NotFound);
    EXPECT_FALSE(fresh.isOpen());
    EXPECT_TRUE(fresh.create(directory_.text()));
    EXPECT_FALSE(fresh.isOpen());
}

TEST_F(FreshFileTest, ClosesTheOneThatWasOpen) {
    FreshFile fresh;
    ASSERT_FALSE(fresh.create(file("a")));
    ASSERT_FALSE(fresh.write("a"));
    ASSERT_FALSE(fresh.create(file("b")));
    ASSERT_FALSE(fresh.write("b"));
    ASSERT_FALSE(fresh.close());
    EXPECT_EQ(readFile(file("a")), "a");
    EXPECT_EQ(readFile(file("b")), "b");
}

TEST_F(ReplaceFile, KeepsTheOldOneUnderTheOtherName) {
    writeFile(file("new"), "new");
    writeFile(file("current"), "old");
    writeFile(file("previous"), "older");
    ASSERT_FALSE(replace());
    EXPECT_EQ(readFile(file("current")), "new");
    EXPECT_EQ(readFile(file("previous")), "old");
    EXPECT_FALSE(exists(file("new")));
}

TEST_F(ReplaceFile, MakesTheFirstOneWithoutAPreviousOne) {
    writeFile(file("new"), "new");
    ASSERT_FALSE(replace());
    EXPECT_EQ(readFile(file("current")), "new");
    EXPECT_FALSE(exists(file("previous")));

    writeFile(file("new"), "newer");
    ASSERT_FALSE(replace());
    EXPECT_EQ(readFile(file("current")), "newer");
    EXPECT_EQ(readFile(file("previous")), "new");
}

TEST_F(ReplaceFile, DropsAPreviousOneWhenThereIsNoCurrentOne) {
    writeFile(file("new"), "new");
    writeFile(file("previous"), "older");
    ASSERT_FALSE(replace());
    EXPECT_EQ(readFile(file("current")), "new");
    EXPECT_FALSE(exists(file("previous")));
}

TEST_F(ReplaceFile, KeepsTheCurrentOneWhenThereIsNoNewOne) {
    writeFile(file("current"), "old");
    EXPECT_EQ(replace().condition(), OsCondition::NotFound);
    EXPECT_EQ(readFile(file("current")), "old");
}

TEST_F(ReplaceFile, KeepsTheCurrentOneWhenItCannotBeReplaced) {
    writeFile(file("new"), "new");
    std::filesystem::create_directory(TestSupport::toPath(file("current")));
    writeFile(file("current/inside"), "");
    EXPECT_TRUE(replace());
    EXPECT_TRUE(exists(file("current/inside")));
    EXPECT_EQ(readFile(file("new")), "new");
}

TEST_F(ReplaceFile, ReplacesAlthoughThePreviousOneCannotGo) {
    writeFile(file("new"), "new");
    writeFile(file("current"), "old");
    std::filesystem::create_directory(TestSupport::toPath(file("previous")));
    ASSERT_FALSE(replace());
    EXPECT_EQ(readFile(file("current")), "new");
}

TEST_F(ReplaceFile, FlushesTheFolder) {
    writeFile(file("a"), "");
    EXPECT_FALSE(flushFolderOf(file("a")));
    EXPECT_FALSE(flushFolderOf("a"));
    const OsError missing = flushFolderOf(file("nowhere/a"));
    EXPECT_TRUE(!missing || missing.condition() == OsCondition::NotFound);
}

// Who looks at any moment finds a current file, and a whole one.
TEST_F(ReplaceFile, LeavesNoMomentWithoutACurrentFile) {
    const std::string first(5000, 'a');
    const std::string second(5000, 'b');
    writeFile(file("current"), first);
    std::atomic<bool> done{false};
    std::atomic<int> looks{0};
    std::atomic<int> bad{0};
    std::jthread watcher([&] {
        while (!done) {
            std::FILE* const current = std::fopen(file("current").c_str(), "rb");
            if (current == nullptr) {
                // Windows refuses it for the moment in which it gets its name.
                if (errno == ENOENT) ++bad;
                continue;
            }
            std::string seen(first.size() + 1, '\0');
            seen.resize(std::fread(seen.data(), 1, seen.size(), current));
            std::fclose(current);
            if (seen != first && seen != second) ++bad;
            ++looks;
        }
    });
    int replaced = 0;
    for (int i = 0; i < 300 || looks < 100; ++i) {
        writeFile(file("new"), i % 2 == 0 ? second : first);
        if (!replace()) ++replaced;
    }
    done = true;
    watcher.join();
    EXPECT_GT(replaced, 0);
    EXPECT_EQ(bad, 0);
}

TEST(FreshFile, KnowsTheSystemsLineEnd) {
    TestSupport::TemporaryDirectory directory;
    // What the C library makes of a line in a text file.
    std::FILE* const stream = std::fopen(directory.file("a").c_str(), "w");
    ASSERT_NE(stream, nullptr);
    std::fputs("\n", stream);
    std::fclose(stream);
    EXPECT_EQ(readFile(directory.file("a")), lineEnd());
}

TEST(FreshFile, KnowsTheSystemsPathSeparator) {
    const std::filesystem::path path = std::filesystem::path("a") / "b";
    EXPECT_EQ(TestSupport::toText(path), std::string("a") + pathSeparator() + "b");
}

}  // namespace
