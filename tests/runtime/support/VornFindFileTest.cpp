#include "runtime/support/VornFindFile.h"

#include "runtime/platform/PathText.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

using namespace VornSupport;

namespace {

using Names = std::vector<std::string>;

class VornFindFileTest : public testing::Test {
protected:
    VornFindFileTest() {
        for (const char* name : {"b.txt", "a.txt", "c.log", ".hidden",
                                 "gr\xC3\xB6\xC3\x9F"
                                 "e.txt"}) {
            TestSupport::writeFile(directory_.file(name), "x");
        }
        std::filesystem::create_directory(TestSupport::toPath(directory_.file("folder.txt")));
        TestSupport::writeFile(directory_.file("folder.txt") + "/inner.txt", "x");
    }

    Names find(std::string_view pattern,
               VornFindFile::Entries entries = VornFindFile::Entries::Files) {
        return all(VornFindFile(directory_.file(pattern), entries));
    }
    static Names all(VornFindFile find) {
        Names names;
        while (find.hasMore()) names.push_back(find.next());
        EXPECT_EQ(find.next(), "");
        EXPECT_FALSE(find.hasMore());
        return names;
    }

    TestSupport::TemporaryDirectory directory_;
};

TEST_F(VornFindFileTest, ListsMatchingFilesInOrder) {
    EXPECT_EQ(find("*.txt"), (Names{"a.txt", "b.txt",
                                    "gr\xC3\xB6\xC3\x9F"
                                    "e.txt"}));
    EXPECT_EQ(find("?.*"), (Names{"a.txt", "b.txt", "c.log"}));
    EXPECT_EQ(find("c.log"), Names{"c.log"});
    EXPECT_EQ(find("gr??e.txt"), Names{"gr\xC3\xB6\xC3\x9F"
                                       "e.txt"});
}

TEST_F(VornFindFileTest, ListsNamesThatBeginWithAPoint) {
    EXPECT_EQ(find("*").front(), ".hidden");
    EXPECT_EQ(find("*").size(), 5u);
}

TEST_F(VornFindFileTest, ListsDirectoriesWhenAsked) {
    EXPECT_EQ(find("*", VornFindFile::Entries::All),
              (Names{".", "..", ".hidden", "a.txt", "b.txt", "c.log", "folder.txt",
                     "gr\xC3\xB6\xC3\x9F"
                     "e.txt"}));
    EXPECT_EQ(find("folder*", VornFindFile::Entries::All), Names{"folder.txt"});
    EXPECT_EQ(find("folder*"), Names{});
}

TEST_F(VornFindFileTest, FindsNothingWhereNothingIs) {
    EXPECT_EQ(find("*.exe"), Names{});
    EXPECT_EQ(find("missing/*"), Names{});
    EXPECT_EQ(find("missing/*", VornFindFile::Entries::All), Names{});
    EXPECT_EQ(find("a.txt/*"), Names{});
    EXPECT_EQ(find("folder.txt/"), Names{});
    EXPECT_EQ(all(VornFindFile("")), Names{});
}

TEST_F(VornFindFileTest, LooksIntoNamedFolders) {
    EXPECT_EQ(find("folder.txt/*"), Names{"inner.txt"});
}

TEST_F(VornFindFileTest, WildcardsInTheFolderStandForThemselves) {
    EXPECT_EQ(find("fold*/inner.txt"), Names{});
}

TEST_F(VornFindFileTest, PatternWithoutFolderMeansTheWorkingDirectory) {
    const TestSupport::WorkingDirectory inDirectory(directory_.text());
    EXPECT_EQ(all(VornFindFile("*.log")), Names{"c.log"});
}

TEST_F(VornFindFileTest, CaseCountsAsForTheSystem) {
    EXPECT_EQ(find("*.LOG"), VornPlatform::fileNamesIgnoreCase() ? Names{"c.log"} : Names{});
}

TEST_F(VornFindFileTest, ShowsTheMomentOfConstruction) {
    VornFindFile find(directory_.file("*.log"));
    TestSupport::writeFile(directory_.file("d.log"), "");
    std::filesystem::remove(TestSupport::toPath(directory_.file("c.log")));
    EXPECT_EQ(all(std::move(find)), Names{"c.log"});
}

}  // namespace
