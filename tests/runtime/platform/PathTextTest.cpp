#include "runtime/platform/PathText.h"

#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

using namespace VornPlatform;

namespace {

TEST(PathText, LeadsThereAndBack) {
    for (const std::string text : {"", "plain",
                                   "gr\xC3\xB6\xC3\x9F"
                                   "e/\xE2\x82\xAC",
                                   "\xF0\x9F\x98\x80"}) {
        EXPECT_EQ(utf8FromPath(pathFromUtf8(text)), text);
    }
}

TEST(PathText, NamesTheFileThatItsCharactersSay) {
    const TestSupport::TemporaryDirectory directory;
    const auto path = pathFromUtf8(directory.file("\xC3\xA4\xF0\x9F\x98\x80.txt"));
    std::ofstream(path) << "x";
    EXPECT_TRUE(path.filename().u8string() == u8"\u00E4\U0001F600.txt");
    EXPECT_TRUE(TestSupport::exists(directory.file("\xC3\xA4\xF0\x9F\x98\x80.txt")));
}

TEST(PathText, RefusesNoBytes) {
    const std::string invalid = "a\xFF\xC3";
    const std::string back = utf8FromPath(pathFromUtf8(invalid));
    EXPECT_TRUE(back == invalid || back == "a\xEF\xBF\xBD\xEF\xBF\xBD") << back;
}

TEST(PathText, KnowsWhetherCaseCounts) {
    const TestSupport::TemporaryDirectory directory;
    TestSupport::writeFile(directory.file("Name"), "");
    EXPECT_EQ(TestSupport::exists(directory.file("nAME")), fileNamesIgnoreCase());
}

}  // namespace
