#include "runtime/platform/Process.h"

#include "tests/support/ChildMain.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <string>

using namespace VornPlatform;
using TestSupport::childCommand;
using TestSupport::inQuotes;

namespace {

constexpr int kPatienceMs = 20'000;

TEST(ProcessWindows, InheritsNoHandle) {
    const TestSupport::TemporaryDirectory directory;
    const auto path = TestSupport::toPath(directory.file("open"));
    SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
    const HANDLE file =
        ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, &inheritable, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    ProcessHandle process;
    const std::string go = directory.file("go");
    ASSERT_FALSE(startProcess(childCommand("until " + inQuotes(go)), process));
    ::CloseHandle(file);
    // Nobody shares the file, so a handle that the child holds would be in the way.
    EXPECT_TRUE(::DeleteFileW(path.c_str())) << ::GetLastError();
    TestSupport::writeFile(go, "");
    EXPECT_TRUE(process.wait(kPatienceMs));
}

TEST(ProcessWindows, TerminatedProcessHasTheGivenExitCode) {
    const TestSupport::TemporaryDirectory directory;
    ProcessHandle process;
    ASSERT_FALSE(startProcess(childCommand("until " + inQuotes(directory.file("never"))), process));
    EXPECT_FALSE(process.terminate(0));
    EXPECT_TRUE(process.wait(kPatienceMs));
    EXPECT_EQ(process.exitCode(), 0);
}

TEST(ProcessWindows, RunsTheCommandInterpreter) {
    ProcessHandle process;
    ASSERT_FALSE(startProcess("cmd /c exit 6", process));
    EXPECT_TRUE(process.wait(kPatienceMs));
    EXPECT_EQ(process.exitCode(), 6);
}

}  // namespace
