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
        ASSERT_FALSE(startProcess(batchCommand(folder.file(name)), process)) << name;
        ASSERT_TRUE(process.wait(20'000)) << name;
        EXPECT_EQ(process.exitCode(), 7) << name;
    }
}

TEST(BatchCommand, HasTheInterpreterOfTheSystem) { EXPECT_TRUE(provideInterpreter("")); }
