#include "runtime/platform/Process.h"

#include "runtime/platform/Environment.h"
#include "tests/support/ChildMain.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace VornPlatform;
using TestSupport::childCommand;
using TestSupport::inQuotes;

namespace {

constexpr int kPatienceMs = 20'000;

class ProcessTest : public testing::Test {
protected:
    std::string fileArgument(std::string_view name) { return inQuotes(directory_.file(name)); }

    // Runs a child to its end.
    int run(std::string_view arguments) {
        ProcessHandle process;
        const OsError error = startProcess(childCommand(arguments), process);
        EXPECT_FALSE(error) << error.text();
        EXPECT_TRUE(process.wait(kPatienceMs));
        return process.exitCode();
    }

    TestSupport::TemporaryDirectory directory_;
};

TEST_F(ProcessTest, GivesTheExitCode) {
    for (const int code : {0, 1, 42, 255}) EXPECT_EQ(run("exit " + std::to_string(code)), code);
}

TEST_F(ProcessTest, WaitsNoLongerThanAsked) {
    ProcessHandle process;
    ASSERT_FALSE(startProcess(childCommand("until " + fileArgument("go")), process));
    EXPECT_TRUE(process.isOpen());
    EXPECT_NE(process.processId(), 0);
    EXPECT_FALSE(process.wait(0));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(process.wait(50));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(45));
    EXPECT_EQ(process.exitCode(), -1);
    TestSupport::writeFile(directory_.file("go"), "");
    EXPECT_TRUE(process.wait(ProcessHandle::kForever));
    EXPECT_EQ(process.exitCode(), 0);
    EXPECT_TRUE(process.wait(0));
    EXPECT_EQ(process.exitCode(), 0);
}

TEST_F(ProcessTest, WaitsForTheEndOrForASignal) {
    NativeSignal signal;
    ASSERT_FALSE(signal.open());
    ProcessHandle process;
    EXPECT_FALSE(process.waitUnless(signal.handle()));

    ASSERT_FALSE(startProcess(childCommand("exit 7"), process));
    EXPECT_TRUE(process.waitUnless(signal.handle()));
    EXPECT_EQ(process.exitCode(), 7);
    EXPECT_TRUE(process.waitUnless(signal.handle()));

    ASSERT_FALSE(startProcess(
        childCommand("touch " + fileArgument("go") + " " + fileArgument("done")), process));
    std::jthread other([&] { signal.on(); });
    EXPECT_FALSE(process.waitUnless(signal.handle()));
    EXPECT_EQ(process.exitCode(), -1);
    // It goes on, and can be waited for again.
    TestSupport::writeFile(directory_.file("go"), "");
    EXPECT_TRUE(process.wait(kPatienceMs));
    EXPECT_EQ(process.exitCode(), 0);
    EXPECT_TRUE(TestSupport::exists(directory_.file("done")));
}

TEST_F(ProcessTest, HandsOverArguments) {
    EXPECT_EQ(run("args " + fileArgument("out") +
                  "  one \"two  three\" \"\" gr\xC3\xBC\xC3\x9F"
                  "e a\"b c\"d \"with \\\" quote\"  \n"),
              0);
    EXPECT_EQ(TestSupport::readFile(directory_.file("out")),
              "one\ntwo  three\n\ngr\xC3\xBC\xC3\x9F"
              "e\nab cd\nwith \" quote\n");
}

TEST_F(ProcessTest, DoesNotLetAShellReadTheLine) {
    EXPECT_EQ(run("args " + fileArgument("out") + " $HOME %PATH% * > x.txt & ;"), 0);
    EXPECT_EQ(TestSupport::readFile(directory_.file("out")), "$HOME\n%PATH%\n*\n>\nx.txt\n&\n;\n");
}

TEST_F(ProcessTest, RefusesWhatIsNoCommandLine) {
    ProcessHandle process;
    const std::string zero = childCommand("exit 0") + std::string("\0x", 2);
    for (const std::string& line : {std::string(), std::string(" \t "), std::string("\n"), zero}) {
        EXPECT_EQ(startProcess(line, process).condition(), OsCondition::InvalidArgument) << line;
        EXPECT_FALSE(process.isOpen());
    }
}

TEST_F(ProcessTest, SaysThatThereIsNoSuchProgram) {
    ProcessHandle process;
    EXPECT_TRUE(startProcess(fileArgument("missing") + " x", process));
    EXPECT_TRUE(startProcess("no-program-of-this-name-anywhere", process));
    EXPECT_TRUE(startProcess(inQuotes(directory_.text()), process));
    EXPECT_FALSE(process.isOpen());
}

TEST_F(ProcessTest, FailedStartLeavesTheHandleAlone) {
    ProcessHandle process;
    ASSERT_FALSE(startProcess(childCommand("exit 7"), process));
    EXPECT_TRUE(startProcess("", process));
    EXPECT_TRUE(process.wait(kPatienceMs));
    EXPECT_EQ(process.exitCode(), 7);
}

TEST_F(ProcessTest, GivesTheNullDeviceAsStandardStreams) {
    EXPECT_EQ(run("read " + fileArgument("out")), 0);
    EXPECT_EQ(TestSupport::readFile(directory_.file("out")), "0");
}

TEST_F(ProcessTest, InheritsTheWorkingDirectoryAndTheEnvironment) {
    ASSERT_FALSE(setEnv("RUVO_PROCESS_TEST",
                        "gr\xC3\xBC\xC3\x9F"
                        "e"));
    const TestSupport::WorkingDirectory inDirectory(directory_.text());
    EXPECT_EQ(run("env RUVO_PROCESS_TEST out"), 0);
    setEnv("RUVO_PROCESS_TEST", std::nullopt);
    EXPECT_EQ(TestSupport::readFile(directory_.file("out")),
              "gr\xC3\xBC\xC3\x9F"
              "e");
}

TEST_F(ProcessTest, TerminatesAProcess) {
    ProcessHandle process;
    ASSERT_FALSE(startProcess(childCommand("until " + fileArgument("never")), process));
    EXPECT_FALSE(process.wait(0));
    EXPECT_FALSE(process.terminate(5));
    EXPECT_TRUE(process.wait(kPatienceMs));
    EXPECT_TRUE(process.exitCode() == 5 || process.exitCode() > 128) << process.exitCode();
    EXPECT_FALSE(process.terminate(0));
}

TEST_F(ProcessTest, TerminatingWhatHasEndedChangesNothing) {
    ProcessHandle process;
    ASSERT_FALSE(startProcess(childCommand("exit 3"), process));
    EXPECT_TRUE(process.wait(kPatienceMs));
    EXPECT_FALSE(process.terminate(5));
    EXPECT_EQ(process.exitCode(), 3);
    ProcessHandle none;
    EXPECT_FALSE(none.terminate(0));
    EXPECT_FALSE(none.wait(0));
    none.close();
}

TEST_F(ProcessTest, RunsOnWhenTheHandleIsClosed) {
    {
        ProcessHandle process;
        const std::string files = fileArgument("go") + ' ' + fileArgument("done");
        ASSERT_FALSE(startProcess(childCommand("touch " + files), process));
    }
    TestSupport::writeFile(directory_.file("go"), "");
    EXPECT_TRUE(
        TestSupport::waitUntil([&] { return TestSupport::exists(directory_.file("done")); }));
}

TEST_F(ProcessTest, HandleMayBeMoved) {
    ProcessHandle first;
    ASSERT_FALSE(startProcess(childCommand("exit 9"), first));
    ProcessHandle second(std::move(first));
    EXPECT_FALSE(first.isOpen());
    EXPECT_FALSE(first.wait(0));
    ProcessHandle third;
    ASSERT_FALSE(startProcess(childCommand("exit 8"), third));
    third = std::move(second);
    EXPECT_TRUE(third.wait(kPatienceMs));
    EXPECT_EQ(third.exitCode(), 9);
}

TEST_F(ProcessTest, SeveralRunAtOnce) {
    std::vector<ProcessHandle> processes(8);
    for (std::size_t i = 0; i < processes.size(); ++i) {
        const std::string code = std::to_string(i + 10);
        ASSERT_FALSE(startProcess(childCommand("exit " + code), processes[i]));
    }
    for (std::size_t i = processes.size(); i-- > 0;) {
        EXPECT_TRUE(processes[i].wait(kPatienceMs));
        EXPECT_EQ(processes[i].exitCode(), static_cast<int>(i) + 10);
    }
}

}  // namespace
