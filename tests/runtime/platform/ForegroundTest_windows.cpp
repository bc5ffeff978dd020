#include "runtime/platform/Foreground.h"

#include "runtime/platform/CommandLine_windows.h"
#include "runtime/platform/Environment.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <shellapi.h>

#include <optional>
#include <string>
#include <vector>

using namespace VornPlatform;

namespace {

using Words = std::vector<std::string>;
using WideWords = std::vector<std::wstring>;

constexpr int kPatienceMs = 20'000;

WideWords splitBySystem(const std::wstring& line) {
    int count = 0;
    wchar_t** const found = ::CommandLineToArgvW(line.c_str(), &count);
    const WideWords words(found, found + count);
    ::LocalFree(found);
    return words;
}

class ForegroundWindowsTest : public testing::Test {
protected:
    ~ForegroundWindowsTest() override { setEnv("PATH", path_); }

    std::string file(std::string_view name) { return directory_.file(name); }
    std::string read(std::string_view name) {
        std::string text = TestSupport::readFile(file(name));
        std::erase(text, '\r');
        return text;
    }

    int run(const Words& words) {
        ProcessHandle process;
        const OsError error = startInForeground(words, process);
        EXPECT_FALSE(error) << words[0] << ": " << error.text();
        EXPECT_TRUE(error || process.wait(kPatienceMs));
        return process.exitCode();
    }

    OsCondition refusalOf(const Words& words) {
        ProcessHandle process;
        return startInForeground(words, process).condition();
    }

    const std::optional<std::string> path_ = getEnv("PATH");
    TestSupport::TemporaryDirectory directory_;
};

TEST(CommandLineWindows, IsTakenApartByTheSystemAsItWasPutTogether) {
    const std::vector<WideWords> lines = {
        {L"a"},
        {L"C:\\with blank\\a.exe", L"x"},
        {L"a", L""},
        {L"a", L"", L"", L"b"},
        {L"a", L"\"", L"\\", L"\\\\", L"\\\"", L"\\\\\""},
        {L"a", L"x\\", L"x y\\", L"x y\\\\", L"x\\y z", L"x\\\\\"y"},
        {L"a", L"tab\tin", L"line\nend", L" ", L"\"quoted\"", L"a\"b c\"d"},
        {L"a", L"%PATH%", L"^&|<>()!", L"*", L"--", L"/c"}};
    for (const WideWords& words : lines) {
        EXPECT_EQ(splitBySystem(joinCommandLine(words)), words);
    }
}

TEST(CommandLineWindows, QuotesNothingThatNeedsNoQuotes) {
    EXPECT_EQ(joinCommandLine({L"a", L"/c", L"x=y", L"C:\\b"}), L"\"a\" /c x=y C:\\b");
}

TEST(CommandLineWindows, RefusesWhatABatchFileCannotBeGiven) {
    std::wstring line;
    for (const wchar_t* const word : {L"a\"b", L"%PATH%", L"100%", L"a\nb", L"a\rb"}) {
        EXPECT_FALSE(joinBatchLine(L"cmd.exe", {L"a.bat", word}, line));
        EXPECT_FALSE(joinBatchLine(L"cmd.exe", {word, L"a"}, line));
    }
    EXPECT_TRUE(joinBatchLine(L"C:\\cmd.exe", {L"a b.bat", L"", L"x&y", L"z\\"}, line));
    EXPECT_EQ(line, L"\"C:\\cmd.exe\" /d /e:on /v:off /c \"\"a b.bat\" \"\" \"x&y\" \"z\\\\\"\"");
}

TEST_F(ForegroundWindowsTest, RunsBatchFilesWithTheirArguments) {
    const std::string out = file("out");
    for (const std::string name : {"plain.bat", "with blank.cmd", "a&b(1).BAT"}) {
        TestSupport::writeFile(
            file(name), "@echo %~1> \"" + out + "\"\r\n@echo \"%~2\">> \"" + out +
                            "\"\r\n@exit 7\r\n");
        EXPECT_EQ(run({file(name), "one two", "x&y"}), 7) << name;
        EXPECT_EQ(read("out"), "one two\n\"x&y\"\n") << name;
    }
    EXPECT_EQ(refusalOf({file("plain.bat"), "%PATH%"}), OsCondition::InvalidArgument);
    EXPECT_EQ(refusalOf({file("plain.bat"), "a\"&calc"}), OsCondition::InvalidArgument);
}

TEST_F(ForegroundWindowsTest, FindsProgramsByTheirShortNames) {
    EXPECT_EQ(run({"cmd", "/c", "exit 6"}), 6);
    EXPECT_EQ(run({"cmd.exe", "/c", "exit 5"}), 5);
    EXPECT_EQ(run({"CMD.EXE", "/c", "exit 4"}), 4);
    TestSupport::writeFile(file("tool.bat"), "@exit 9\r\n");
    EXPECT_EQ(run({file("tool")}), 9);
    EXPECT_EQ(refusalOf({"tool"}), OsCondition::NotFound);
    setEnv("PATH", "C:\\none;;\"" + directory_.text() + "\";C:\\none");
    EXPECT_EQ(run({"tool"}), 9);
    EXPECT_EQ(run({"tool.bat"}), 9);
    setEnv("PATH", "C:\\none");
    const TestSupport::WorkingDirectory inDirectory(directory_.text());
    EXPECT_EQ(run({"tool"}), 9);
    EXPECT_EQ(run({".\\tool"}), 9);
    EXPECT_EQ(run({"./tool.bat"}), 9);
}

TEST_F(ForegroundWindowsTest, DoesNotRunWhatIsNoProgramByItsName) {
    TestSupport::writeFile(file("text.txt"), "x");
    EXPECT_EQ(refusalOf({file("text.txt")}), OsCondition::Other);
    EXPECT_EQ(refusalOf({directory_.text()}), OsCondition::NotFound);
    EXPECT_EQ(refusalOf({"a\"b"}), OsCondition::NotFound);
    TestSupport::writeFile(file("not.exe"), "text");
    EXPECT_EQ(refusalOf({file("not.exe")}), OsCondition::Other);
}

TEST_F(ForegroundWindowsTest, InheritsTheStandardStreamsAndNothingElse) {
    SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
    const auto create = [&](const std::string& name) {
        return ::CreateFileW(TestSupport::toPath(file(name)).c_str(), GENERIC_WRITE,
                             FILE_SHARE_READ, &inheritable, CREATE_ALWAYS, 0, nullptr);
    };
    const HANDLE other = create("other");
    const HANDLE output = create("out");
    const HANDLE before = ::GetStdHandle(STD_OUTPUT_HANDLE);
    ::SetStdHandle(STD_OUTPUT_HANDLE, output);
    ProcessHandle process;
    const OsError error = startInForeground({"cmd", "/c", "echo text& pause"}, process);
    ::SetStdHandle(STD_OUTPUT_HANDLE, before);
    ::CloseHandle(output);
    ::CloseHandle(other);
    ASSERT_FALSE(error) << error.text();
    // Nobody shares it for deletion: a handle that the child holds would be in the way.
    EXPECT_TRUE(::DeleteFileW(TestSupport::toPath(file("other")).c_str())) << ::GetLastError();
    EXPECT_TRUE(TestSupport::waitUntil([&] { return read("out").rfind("text\n", 0) == 0; }))
        << read("out");
    process.terminate(0);
    EXPECT_TRUE(process.wait(kPatienceMs));
}

}  // namespace
