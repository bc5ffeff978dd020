#include "runtime/platform/Environment.h"

#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

using namespace VornPlatform;

namespace {

constexpr char kName[] = "RUVO_ENVIRONMENT_TEST";

class EnvironmentTest : public testing::Test {
protected:
    ~EnvironmentTest() override { setEnv(kName, std::nullopt); }
};

TEST_F(EnvironmentTest, ReadsWhatWasSet) {
    EXPECT_EQ(getEnv(kName), std::nullopt);
    ASSERT_FALSE(setEnv(kName,
                        "gr\xC3\xBC\xC3\x9F"
                        "e"));
    EXPECT_EQ(getEnv(kName),
              "gr\xC3\xBC\xC3\x9F"
              "e");
    ASSERT_FALSE(setEnv(kName, "other"));
    EXPECT_EQ(getEnv(kName), "other");
    ASSERT_FALSE(setEnv(kName, std::nullopt));
    EXPECT_EQ(getEnv(kName), std::nullopt);
}

TEST_F(EnvironmentTest, TellsEmptyFromUnset) {
    ASSERT_FALSE(setEnv(kName, ""));
    EXPECT_EQ(getEnv(kName), "");
}

TEST_F(EnvironmentTest, ReadsLongValues) {
    const std::string value(20'000, 'v');
    ASSERT_FALSE(setEnv(kName, value));
    EXPECT_EQ(getEnv(kName), value);
}

TEST_F(EnvironmentTest, RemovingWhatIsNotThereIsNoError) {
    EXPECT_FALSE(setEnv(kName, std::nullopt));
}

TEST_F(EnvironmentTest, RefusesImpossibleNames) {
    EXPECT_EQ(setEnv("", "x").condition(), OsCondition::InvalidArgument);
    EXPECT_EQ(getEnv(""), std::nullopt);
}

TEST(WorkingDirectory, CanBeChangedAndRead) {
    const TestSupport::TemporaryDirectory directory;
    const std::string folder = directory.file("W\xC3\xBCste");
    std::filesystem::create_directory(TestSupport::toPath(folder));
    std::string before;
    ASSERT_FALSE(currentDirectory(before));
    ASSERT_FALSE(changeDirectory(folder));
    std::string now;
    EXPECT_FALSE(currentDirectory(now));
    EXPECT_TRUE(std::filesystem::equivalent(TestSupport::toPath(now), TestSupport::toPath(folder)));
    ASSERT_FALSE(changeDirectory(before));
    EXPECT_FALSE(currentDirectory(now));
    EXPECT_EQ(now, before);
}

TEST(WorkingDirectory, StaysWhenTheNewOneIsMissing) {
    const TestSupport::TemporaryDirectory directory;
    std::string before;
    ASSERT_FALSE(currentDirectory(before));
    EXPECT_EQ(changeDirectory(directory.file("missing")).condition(), OsCondition::NotFound);
    EXPECT_TRUE(changeDirectory(""));
    std::string now;
    EXPECT_FALSE(currentDirectory(now));
    EXPECT_EQ(now, before);
}

TEST(Executable, IsThisProgramInItsFolder) {
    const auto path = TestSupport::toPath(executablePath());
    EXPECT_TRUE(path.is_absolute());
    EXPECT_TRUE(std::filesystem::is_regular_file(path));
    EXPECT_EQ(path.stem(), "platform_tests");
    EXPECT_EQ(TestSupport::toPath(executableFolder()), path.parent_path());
}

}  // namespace
