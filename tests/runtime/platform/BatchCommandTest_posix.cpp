#include "runtime/platform/BatchCommand.h"

#include "runtime/platform/CommandLine_posix.h"
#include "runtime/platform/Environment.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

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
    const PathVariable path("/usr/bin:/bin");
    EXPECT_FALSE(provideInterpreter(folder.text()));
    EXPECT_FALSE(provideInterpreter(""));
    EXPECT_EQ(getEnv("PATH"), "/usr/bin:/bin");

    makeProgram(folder.file("cmd"));
    EXPECT_TRUE(provideInterpreter(folder.text()));
    EXPECT_EQ(getEnv("PATH"), folder.text() + ":/usr/bin:/bin");
    EXPECT_TRUE(provideInterpreter(folder.text()));
    EXPECT_EQ(getEnv("PATH"), folder.text() + ":/usr/bin:/bin");
}

TEST(BatchCommand, LeavesTheUsualFoldersWhenThereIsNoPath) {
    TestSupport::TemporaryDirectory folder;
    makeProgram(folder.file("cmd"));
    const PathVariable path(std::nullopt);
    EXPECT_TRUE(provideInterpreter(folder.text()));
    EXPECT_EQ(getEnv("PATH"), folder.text() + ":/bin:/usr/bin");
}
