#include "runtime/support/VornExecuteProgram.h"

#include "runtime/support/VornLogging.h"
#include "tests/support/ChildMain.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>

using namespace VornSupport;
using TestSupport::childCommand;
using TestSupport::inQuotes;

namespace {

constexpr int kPatienceMs = 20'000;

TEST(VornExecuteProgram, WaitsForTheExitCode) {
    int exitCode = -5;
    EXPECT_TRUE(VornExecuteProgram(childCommand("exit 42"), true, nullptr, &exitCode));
    EXPECT_EQ(exitCode, 42);
    EXPECT_TRUE(VornExecuteProgram(childCommand("exit 1"), true));
}

TEST(VornExecuteProgram, ReturnsAtOnceWhenItIsNotToWait) {
    const TestSupport::TemporaryDirectory directory;
    const std::string go = directory.file("go");
    VornProcessHandle process;
    int exitCode = -5;
    ASSERT_TRUE(
        VornExecuteProgram(childCommand("until " + inQuotes(go)), false, &process, &exitCode));
    EXPECT_EQ(exitCode, -5);
    EXPECT_FALSE(process.wait(0));
    TestSupport::writeFile(go, "");
    EXPECT_TRUE(process.wait(kPatienceMs));
    EXPECT_EQ(process.exitCode(), 0);
}

TEST(VornExecuteProgram, StartsAndForgets) {
    const TestSupport::TemporaryDirectory directory;
    const std::string out = directory.file("out");
    EXPECT_TRUE(VornExecuteProgram(childCommand("args " + inQuotes(out) + " a b"), false));
    EXPECT_TRUE(TestSupport::waitUntil([&] { return TestSupport::exists(out); }));
    EXPECT_EQ(TestSupport::readFile(out), "a\nb\n");
}

TEST(VornExecuteProgram, GivesTheHandleAlsoAfterWaiting) {
    VornProcessHandle process;
    EXPECT_TRUE(VornExecuteProgram(childCommand("exit 7"), true, &process, nullptr));
    EXPECT_TRUE(process.isOpen());
    EXPECT_EQ(process.exitCode(), 7);
    EXPECT_FALSE(process.terminate(0));
}

TEST(VornExecuteProgram, FailsWhenThereIsNothingToStart) {
    for (const char* line : {"", "\n", "\r\n", "  ", "no-program-of-this-name-anywhere -x"}) {
        VornProcessHandle process;
        int exitCode = -5;
        EXPECT_FALSE(VornExecuteProgram(line, true, &process, &exitCode)) << line;
        EXPECT_FALSE(VornExecuteProgram(line, false, &process, &exitCode)) << line;
        EXPECT_FALSE(process.isOpen());
        EXPECT_EQ(exitCode, -5);
    }
}

// It may hold passwords.
TEST(VornExecuteProgram, NeverLogsTheCommandLine) {
    const TestSupport::LogCapture log(9);
    VORN_LOG(9, "all is logged");
    for (const bool wait : {false, true}) {
        VornProcessHandle process;
        EXPECT_TRUE(VornExecuteProgram(childCommand("exit 0 --password secret"), wait, &process));
        EXPECT_TRUE(process.wait(kPatienceMs));
        EXPECT_FALSE(VornExecuteProgram("no-program-of-this-name --password secret", wait));
        EXPECT_FALSE(VornExecuteProgram("\"no end of quotes --password secret", wait));
    }
    EXPECT_TRUE(log.has(9, "all is logged"));
    for (const std::string& text : log.texts()) {
        EXPECT_EQ(text.find("secret"), std::string::npos) << text;
        EXPECT_EQ(text.find("no-program"), std::string::npos) << text;
    }
}

TEST(VornExecuteProgram, IgnoresALineEndAfterTheCommand) {
    int exitCode = -5;
    EXPECT_TRUE(VornExecuteProgram(childCommand("exit 3\r\n"), true, nullptr, &exitCode));
    EXPECT_EQ(exitCode, 3);
}

}  // namespace
