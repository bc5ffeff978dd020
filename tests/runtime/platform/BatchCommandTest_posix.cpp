#include "runtime/platform/BatchCommand.h"

#include "runtime/platform/CommandLine_posix.h"
#include "runtime/platform/Environment.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

using namespace VornPlatform;

namespace {

class PathVariable {
public:
    explicit PathVariable(const std::optional<std::string>& value) { setEnv("PATH", value); }
    ~PathVariable() { setEnv("PATH", before_); }

private:
    const std::optional<std::string> before_ = getEnv("PATH");
};

void makeProgram(const std::string& file) {
    TestSupport::writeFile(file, "#!/bin/sh\n");
    ::chmod(file.c_str(), 0755);
}

}  // namespace

TEST(BatchCommand, NamesThePlainFile) {
    EXPECT_EQ(batchCommand("/tmp/0123.bat"), "cmd /c /tmp/0123.bat");
    EXPECT_EQ(batchCommand("0123.bat"), "cmd /c 0123.bat");
}

TEST(BatchCommand, ReachesTheProgramAsOneArgumentWhateverTheName) {
    for (const std::string file :
         {"/a b/c.bat", "/it's.bat", "/say \"x\".bat", "/back\\slash.bat", "/\t\n", "", "/$HOME*"}) {
        std::vector<std::string> arguments;
        ASSERT_TRUE(splitCommandLine(batchCommand(file), arguments)) << file;
        EXPECT_EQ(arguments, (std::vector<std::string>{"cmd", "/c", file}));
    }
}

TEST(BatchCommand, PutsTheFolderOfTheInterpreterFirstOnThePath) {
    TestSupport::TemporaryDirectory folder;
    const PathVariable path("/nowhere:/nothing");
    EXPECT_FALSE(provideInterpreter(folder.text()));
    EXPECT_FALSE(provideInterpreter(""));
    EXPECT_EQ(getEnv("PATH"), "/nowhere:/nothing");
    EXPECT_EQ(interpreterPath(), "");

    makeProgram(folder.file("cmd"));
    EXPECT_TRUE(provideInterpreter(folder.text()));
    EXPECT_EQ(getEnv("PATH"), folder.text() + ":/nowhere:/nothing");
    EXPECT_TRUE(provideInterpreter(folder.text()));
    EXPECT_EQ(getEnv("PATH"), folder.text() + ":/nowhere:/nothing");
    EXPECT_EQ(interpreterPath(), folder.file("cmd"));
}

// Once it is found it stays that one, until it is gone; what PATH names without
// a whole path is whatever lies where we happen to be.
TEST(BatchCommand, FindsTheInterpreterThatWasProvidedAndThenAlongThePath) {
    TestSupport::TemporaryDirectory ours;
    TestSupport::TemporaryDirectory other;
    TestSupport::TemporaryDirectory here;
    const TestSupport::WorkingDirectory there(here.text());
    makeProgram(ours.file("cmd"));
    makeProgram(here.file("cmd"));
    const PathVariable before(std::nullopt);
    EXPECT_TRUE(provideInterpreter(ours.text()));
    {
        const PathVariable path(":.:" + other.text());
        EXPECT_EQ(interpreterPath(), ours.file("cmd"));
        std::filesystem::remove(ours.file("cmd"));
        EXPECT_EQ(interpreterPath(), "");
        ProcessHandle process;
        EXPECT_EQ(startBatch("x.bat", process).condition(), OsCondition::NotFound);
        TestSupport::writeFile(other.file("cmd"), "no program");
        EXPECT_EQ(interpreterPath(), "");
        makeProgram(other.file("cmd"));
        EXPECT_EQ(interpreterPath(), other.file("cmd"));
        EXPECT_TRUE(provideInterpreter(ours.text()));  // there is one elsewhere
    }
    EXPECT_TRUE(provideInterpreter("."));
    EXPECT_EQ(interpreterPath(), here.file("./cmd"));
}

TEST(BatchCommand, StartsTheInterpreterWhateverLiesInTheWorkingDirectory) {
    TestSupport::TemporaryDirectory ours;
    TestSupport::TemporaryDirectory here;
    const TestSupport::WorkingDirectory there(here.text());
    const auto program = [](const std::string& file, const std::string& text) {
        makeProgram(file);
        TestSupport::writeFile(file, "#!/bin/sh\n" + text + "\n");
    };
    program(ours.file("cmd"), "test \"$1 $2\" = '/c a b.bat' && exit 7");
    program(here.file("cmd"), "exit 66");
    const PathVariable path(here.text() + ":/usr/bin:/bin");
    EXPECT_TRUE(provideInterpreter(ours.text()));
    ProcessHandle process;
    ASSERT_FALSE(startBatch("a b.bat", process));
    ASSERT_TRUE(process.wait(20'000));
    EXPECT_EQ(process.exitCode(), 7);
}

TEST(BatchCommand, LeavesTheUsualFoldersWhenThereIsNoPath) {
    TestSupport::TemporaryDirectory folder;
    makeProgram(folder.file("cmd"));
    const PathVariable path(std::nullopt);
    EXPECT_TRUE(provideInterpreter(folder.text()));
    EXPECT_EQ(getEnv("PATH"), folder.text() + ":/bin:/usr/bin");
}
