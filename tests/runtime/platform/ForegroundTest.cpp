#include "runtime/platform/Foreground.h"

#include "runtime/platform/Environment.h"
#include "tests/support/ChildMain.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace VornPlatform;

namespace {

using Words = std::vector<std::string>;

constexpr int kPatienceMs = 20'000;

// This program as a child that does one thing.
Words childWords(const Words& arguments) {
    Words words = {executablePath(), "--child"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

class ForegroundTest : public testing::Test {
protected:
    std::string file(std::string_view name) { return directory_.file(name); }
    std::string read(std::string_view name) { return TestSupport::readFile(file(name)); }

    // Runs a program to its end.
    int run(const Words& words) {
        ProcessHandle process;
        const OsError error = startInForeground(words, process);
        EXPECT_FALSE(error) << words[0] << ": " << error.text();
        EXPECT_TRUE(error || process.wait(kPatienceMs));
        return process.exitCode();
    }

    TestSupport::TemporaryDirectory directory_;
};

OsCondition refusalOf(const Words& words) {
    ProcessHandle process;
    const OsError error = startInForeground(words, process);
    EXPECT_TRUE(error);
    EXPECT_FALSE(process.isOpen());
    return error.condition();
}

TEST_F(ForegroundTest, GivesTheExitCode) {
    for (const int code : {0, 1, 42, 255}) {
        EXPECT_EQ(run(childWords({"exit", std::to_string(code)})), code);
    }
}

TEST_F(ForegroundTest, HandsOverArgumentsAsTheyAre) {
    const Words odd = {
        "", " ", "two  words", "a\"b", "\"", "\"\"", "\\", "a\\", "a\\\\", "a\\\"b", "a b\\",
        "\\\\x y\\\\", "tab\tx", "*", "$HOME", "%PATH%", "`x`", "gr\xC3\xBC\xC3\x9F", "'",
        "a'b c'd", "&|<>^();", "-x", "--", "[a,b]", "\xE2\x82\xAC"};
    Words arguments = {"args", file("out")};
    arguments.insert(arguments.end(), odd.begin(), odd.end());
    EXPECT_EQ(run(childWords(arguments)), 0);
    std::string expected;
    for (const std::string& word : odd) expected += word + '\n';
    EXPECT_EQ(read("out"), expected);
}

TEST_F(ForegroundTest, SharesEnvironmentAndWorkingDirectory) {
    ASSERT_FALSE(setEnv("RUVO_FOREGROUND_TEST", "gr\xC3\xBC\xC3\x9F"));
    const TestSupport::WorkingDirectory inDirectory(directory_.text());
    EXPECT_EQ(run(childWords({"env", "RUVO_FOREGROUND_TEST", "out"})), 0);
    setEnv("RUVO_FOREGROUND_TEST", std::nullopt);
    EXPECT_EQ(read("out"), "gr\xC3\xBC\xC3\x9F");
}

TEST_F(ForegroundTest, SaysThatThereIsNoSuchProgram) {
    EXPECT_EQ(refusalOf({"no-program-of-this-name-anywhere"}), OsCondition::NotFound);
    EXPECT_EQ(refusalOf({file("missing"), "x"}), OsCondition::NotFound);
    EXPECT_EQ(refusalOf({file("no/such/folder/x")}), OsCondition::NotFound);
}

TEST_F(ForegroundTest, TellsWhatIsNoProgramFromWhatIsNotThere) {
    TestSupport::writeFile(file("text"), "x");
    const OsCondition condition = refusalOf({file("text")});
    EXPECT_NE(condition, OsCondition::NotFound);
    EXPECT_NE(condition, OsCondition::InvalidArgument);
}

TEST_F(ForegroundTest, RefusesWhatIsNoCommand) {
    const std::string zero("x\0y", 3);
    for (const Words& words : {Words{}, Words{""}, Words{"", "x"}, Words{zero},
                               childWords({"exit", std::string("0\0", 2)})}) {
        EXPECT_EQ(refusalOf(words), OsCondition::InvalidArgument);
    }
}

TEST_F(ForegroundTest, FailedStartLeavesTheHandleAlone) {
    ProcessHandle process;
    ASSERT_FALSE(startInForeground(childWords({"exit", "7"}), process));
    EXPECT_TRUE(startInForeground({file("missing")}, process));
    EXPECT_TRUE(process.wait(kPatienceMs));
    EXPECT_EQ(process.exitCode(), 7);
}

TEST_F(ForegroundTest, HandsOnWhatDidNotReachTheProgram) {
    ProcessHandle process;
    ASSERT_FALSE(startInForeground(childWords({"until", file("go")}), process));
    handOn({.signal = 15, .reachedOthers = true}, process);
    EXPECT_FALSE(process.wait(0));
    handOn({.signal = 15}, process);
    ASSERT_TRUE(process.wait(kPatienceMs));
    EXPECT_EQ(process.exitCode(), 128 + 15);
}

TEST_F(ForegroundTest, HandingOnToNobodyDoesNothing) {
    ProcessHandle process;
    handOn({.signal = 15}, process);
    ASSERT_FALSE(startInForeground(childWords({"exit", "3"}), process));
    ASSERT_TRUE(process.wait(kPatienceMs));
    handOn({.signal = 15}, process);
    EXPECT_EQ(process.exitCode(), 3);
}

}  // namespace
