#include "runtime/platform/BatchCommand.h"

#include "runtime/platform/Process.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>

using namespace VornPlatform;

TEST(BatchCommand, NamesThePlainFile) {
    EXPECT_EQ(batchCommand("C:\\temp\\0123.bat"), "cmd /c C:\\temp\\0123.bat");
}

TEST(BatchCommand, RunsFilesWhateverTheirName) {
    TestSupport::TemporaryDirectory folder;
    for (const std::string name : {"plain.bat", "with blank.bat", "a&b.bat", "a(1).bat"}) {
        TestSupport::writeFile(folder.file(name), "@exit 7\r\n");
        ProcessHandle process;
        ASSERT_FALSE(startBatch(folder.file(name), process)) << name;
        ASSERT_TRUE(process.wait(20'000)) << name;
        EXPECT_EQ(process.exitCode(), 7) << name;
    }
}

TEST(BatchCommand, HasTheInterpreterOfTheSystem) {
    EXPECT_TRUE(provideInterpreter(""));
    EXPECT_TRUE(TestSupport::exists(interpreterPath()));
    EXPECT_TRUE(interpreterPath().ends_with("\\cmd.exe"));
}

TEST(BatchCommand, StartsTheInterpreterWhateverLiesInTheWorkingDirectory) {
    TestSupport::TemporaryDirectory folder;
    const TestSupport::WorkingDirectory there(folder.text());
    TestSupport::writeFile(folder.file("cmd.exe"), "no program");
    TestSupport::writeFile(folder.file("cmd"), "no program");
    TestSupport::writeFile(folder.file("a.bat"), "@exit 7\r\n");
    ProcessHandle process;
    ASSERT_FALSE(startBatch("a.bat", process));
    ASSERT_TRUE(process.wait(20'000));
    EXPECT_EQ(process.exitCode(), 7);
}
