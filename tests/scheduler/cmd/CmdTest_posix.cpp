// The interpreter as the scheduler starts it: a program, a batch file, a status.

#include "runtime/platform/BatchCommand.h"
#include "runtime/platform/Environment.h"
#include "runtime/platform/Process.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

using TestSupport::exists;
using TestSupport::readFile;
using TestSupport::writeFile;

namespace {

constexpr int kPatienceMs = 60'000;

class CmdTest : public testing::Test {
protected:
    CmdTest() {
        const auto bin = VornPlatform::getEnv("RUVO_BIN");
        const std::string folder =
            bin ? *bin : VornPlatform::executableFolder() + "/../bin";
        EXPECT_TRUE(VornPlatform::provideInterpreter(folder)) << folder;
    }

    int start(const std::string& commandLine) {
        VornPlatform::ProcessHandle process;
        const auto error = VornPlatform::startProcess(commandLine, process);
        EXPECT_FALSE(error) << error.text();
        EXPECT_TRUE(process.wait(kPatienceMs));
        return process.exitCode();
    }
    // Runs a batch file of this text.
    int run(const std::string& text) {
        writeFile(file("x.bat"), text);
        VornPlatform::ProcessHandle process;
        const auto error = VornPlatform::startBatch(file("x.bat"), process);
        EXPECT_FALSE(error) << error.text();
        EXPECT_TRUE(process.wait(kPatienceMs));
        return process.exitCode();
    }
    std::string file(std::string_view name) const { return directory_.file(name); }

    TestSupport::TemporaryDirectory directory_;
    TestSupport::WorkingDirectory there_{directory_.text()};
};

TEST_F(CmdTest, GivesTheStatusOfTheLastLine) {
    EXPECT_EQ(run("exit 7\n"), 7);
    EXPECT_EQ(run("exit 7"), 7);
    EXPECT_EQ(run("exit 7\nexit 3\n"), 3);
    EXPECT_EQ(run("exit 7\ntrue\n"), 0);
    EXPECT_EQ(run("false\n\n \n\r\n"), 1);
    EXPECT_EQ(run(""), 0);
    EXPECT_EQ(run("\n \n"), 0);
    EXPECT_EQ(run("exit 255\n"), 255);
}

TEST_F(CmdTest, RunsEveryLine) {
    EXPECT_EQ(run("echo 1 >>out\nfalse\necho 2 >>out\nnosuchprogram\necho 3 >>out\n"), 0);
    EXPECT_EQ(readFile(file("out")), "1\n2\n3\n");
}

TEST_F(CmdTest, ChangesTheDirectory) {
    for (const std::string name : {"plain", "with blank", "it's", "$HOME"}) {
        std::filesystem::create_directory(TestSupport::toPath(file(name)));
        EXPECT_EQ(run("cd /d " + file(name) + "\npwd >here\n"), 0);
        EXPECT_EQ(readFile(file(name + "/here")), file(name) + "\n");
        EXPECT_EQ(run("cd /d \"" + file(name) + "\"\npwd >quoted\n"), 0);
        EXPECT_TRUE(exists(file(name + "/quoted")));
    }
    EXPECT_EQ(run("cd /d plain\npwd >relative\n"), 0);
    EXPECT_TRUE(exists(file("plain/relative")));
    EXPECT_EQ(run("cd /d plain\n"), 0);
    EXPECT_EQ(run("cd /d\n"), 0);
}

// As Windows does it: the lines after it are run where we are.
TEST_F(CmdTest, GoesOnWhereItIsWhenTheDirectoryIsNotThere) {
    EXPECT_EQ(run("cd /d /nowhere/at/all\npwd >here\n"), 0);
    EXPECT_EQ(readFile(file("here")), directory_.text() + "\n");
    EXPECT_EQ(run("cd /d /nowhere/at/all\n"), 1);
    writeFile(file("y.bat"), "cd /d /nowhere/at/all\n");
    EXPECT_EQ(run("cmd /c y.bat 2>err\n"), 1);
    EXPECT_EQ(readFile(file("err")), "cmd: cd: /nowhere/at/all: No such file or directory\n");
}

TEST_F(CmdTest, LeavesQuotingToTheShell) {
    EXPECT_EQ(run("printf '[%s]' \"a  b\" 'c \"d\"' e\\ f $((1+2)) >out\n"), 0);
    EXPECT_EQ(readFile(file("out")), "[a  b][c \"d\"][e f][3]");
    EXPECT_NE(run("echo 'no end\n"), 0);
}

TEST_F(CmdTest, LeavesRedirectionToTheShell) {
    EXPECT_EQ(run("sh -c 'echo out; echo err >&2' >both 2>&1 \r\n\n"), 0);
    EXPECT_EQ(readFile(file("both")), "out\nerr\n");
    EXPECT_EQ(run("echo new >both 2>&1 \r\n\n"), 0);
    EXPECT_EQ(readFile(file("both")), "new\n");
    EXPECT_NE(run("echo x >/nowhere/at/all\n"), 0);
    EXPECT_EQ(run("echo a b | tr a-z A-Z >piped && echo ok >>piped\n"), 0);
    EXPECT_EQ(readFile(file("piped")), "A B\nok\n");
}

TEST_F(CmdTest, SaysWhenAProgramIsNotThere) {
    EXPECT_EQ(run("no-such-program >log 2>&1 \r\n\n"), 127);
    EXPECT_NE(readFile(file("log")).find("no-such-program"), std::string::npos);
    EXPECT_EQ(run("/nowhere/at/all\n"), 127);
    EXPECT_EQ(run(directory_.text() + "\n"), 126);
}

TEST_F(CmdTest, TellsOfSignals) {
    EXPECT_EQ(run("kill -KILL $$\n"), 128 + 9);
    EXPECT_EQ(run("kill -TERM $$\n"), 128 + 15);
    EXPECT_EQ(run("sh -c 'kill -KILL $$'\n"), 128 + 9);
    EXPECT_EQ(run("sh -c 'kill -KILL $$'; exit $?\n"), 128 + 9);
    // In a line before the last one it is not the last word.
    EXPECT_EQ(run("kill -KILL $$\necho on >out\n"), 0);
    EXPECT_EQ(readFile(file("out")), "on\n");
}

TEST_F(CmdTest, LetsLongOutputThrough) {
    constexpr auto kSize = 100 * 1024 * 1024;
    const std::string head = "head -c " + std::to_string(kSize) + " /dev/zero";
    EXPECT_EQ(run(head + " >out 2>&1 \r\n\n"), 0);
    EXPECT_EQ(std::filesystem::file_size(TestSupport::toPath(file("out"))), kSize);
    std::filesystem::remove(TestSupport::toPath(file("out")));
    writeFile(file("y.bat"), "\n" + head + "\n");
    EXPECT_EQ(run("cmd /c y.bat | wc -c >count\n"), 0);
    EXPECT_EQ(std::stol(readFile(file("count"))), kSize);
}

TEST_F(CmdTest, TakesLinesOfAnyLength) {
    // Longer than the system lets one argument be, by itself and in all.
    for (const std::size_t length : {99'990u, 100'010u, 131'072u, 1'000'000u}) {
        const std::string text = "echo '" + std::string(length, 'x') + "' >out; exit 5";
        EXPECT_EQ(run(text + "\n"), 5) << length;
        EXPECT_EQ(readFile(file("out")).size(), length + 1);
        EXPECT_EQ(run(text + "\nexit 6\n"), 6) << length;
    }
}

TEST_F(CmdTest, TakesALineThatLooksLikeAnOption) {
    EXPECT_EQ(run("-x\n"), 127);
    EXPECT_EQ(run("-c 'exit 3'\n"), 127);
}

TEST_F(CmdTest, ReadsTheFileBeforeItsFirstLineRuns) {
    EXPECT_EQ(run("rm x.bat\necho on >out\nexit 4\n"), 4);
    EXPECT_FALSE(exists(file("x.bat")));
    EXPECT_TRUE(exists(file("out")));
}

TEST_F(CmdTest, HandsOnTheEnvironment) {
    VornPlatform::setEnv("RUVO_CMD_TEST", "a value");
    EXPECT_EQ(run("echo \"$RUVO_CMD_TEST\" >out\n"), 0);
    VornPlatform::setEnv("RUVO_CMD_TEST", {});
    EXPECT_EQ(readFile(file("out")), "a value\n");
}

TEST_F(CmdTest, SaysWhenTheFileCannotBeRead) {
    EXPECT_EQ(start("cmd /c /nowhere/x.bat"), 1);
    EXPECT_EQ(start("cmd /c " + directory_.text()), 1);
    EXPECT_EQ(run("cmd /c missing.bat 2>err; exit $?\n"), 1);
    EXPECT_EQ(readFile(file("err")), "cmd: missing.bat: No such file or directory\n");
}

TEST_F(CmdTest, KnowsNoOtherUsage) {
    for (const std::string arguments : {"", "/c", "/k x.bat", "x.bat", "/c x.bat more"}) {
        EXPECT_EQ(start("cmd " + arguments), 2) << arguments;
    }
    EXPECT_EQ(run("cmd 2>err; exit $?\n"), 2);
    EXPECT_EQ(readFile(file("err")), "usage: cmd /c FILE\n");
    writeFile(file("y.bat"), "exit 9\n");
    EXPECT_EQ(start("cmd /C y.bat"), 9);
}

}  // namespace
