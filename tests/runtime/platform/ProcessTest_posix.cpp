#include "runtime/platform/Process.h"

#include "runtime/platform/CommandLine_posix.h"
#include "runtime/platform/Environment.h"
#include "tests/support/ChildMain.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

using namespace VornPlatform;
using TestSupport::childCommand;
using TestSupport::inQuotes;

namespace {

using Arguments = std::vector<std::string>;

constexpr int kPatienceMs = 20'000;

Arguments split(const std::string& line) {
    Arguments arguments;
    EXPECT_TRUE(splitCommandLine(line, arguments)) << line;
    return arguments;
}

bool isRefused(const std::string& line) {
    Arguments arguments;
    return !splitCommandLine(line, arguments);
}

int run(const std::string& line) {
    ProcessHandle process;
    const OsError error = startProcess(line, process);
    EXPECT_FALSE(error) << line << ": " << error.text();
    EXPECT_TRUE(process.wait(kPatienceMs));
    return process.exitCode();
}

void writeScript(const std::string& path, const std::string& body) {
    TestSupport::writeFile(path, "#!/bin/sh\n" + body + '\n');
    ASSERT_EQ(::chmod(path.c_str(), 0700), 0);
}

// No process, or a zombie of ours, has this number any more.
bool isGone(std::int64_t process) {
    return ::kill(static_cast<pid_t>(process), 0) != 0 && errno == ESRCH;
}

std::string field(const std::string& status, const std::string& name) {
    const std::size_t at = status.find("\n" + name + ":\t");
    if (at == std::string::npos) return "missing";
    const std::size_t begin = at + name.size() + 3;
    return status.substr(begin, status.find('\n', begin) - begin);
}

TEST(ProcessPosix, StartsNothingThatItCouldNotWatch) {
    const TestSupport::TemporaryDirectory folder;
    const std::string script = folder.file("script");
    writeScript(script, "echo started >>" + inQuotes(folder.file("trace")));
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit low = before;
    low.rlim_cur = 100;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
    std::vector<int> taken;
    for (int each = ::dup(0); each >= 0; each = ::dup(0)) taken.push_back(each);
    ProcessHandle process;
    const OsError refused = startProcess(inQuotes(script), process);
    ::close(taken.back());
    const OsError started = startProcess(inQuotes(script), process);
    taken.pop_back();
    for (const int each : taken) ::close(each);
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(refused.code(), EMFILE);
    ASSERT_FALSE(started) << started.text();
    ASSERT_TRUE(process.wait(kPatienceMs));
    EXPECT_EQ(process.exitCode(), 0);
    EXPECT_EQ(TestSupport::readFile(folder.file("trace")), "started\n");
}

TEST(CommandLine, SeparatesArgumentsAtBlanks) {
    EXPECT_EQ(split("a b\tc\nd\r\ne"), (Arguments{"a", "b", "c", "d", "e"}));
    EXPECT_EQ(split("  a   b  "), (Arguments{"a", "b"}));
    EXPECT_EQ(split(""), Arguments{});
    EXPECT_EQ(split(" \n\t\r\v\f"), Arguments{});
}

TEST(CommandLine, KeepsQuotedTextTogether) {
    EXPECT_EQ(split("\"a b\" 'c  d'"), (Arguments{"a b", "c  d"}));
    EXPECT_EQ(split("x\"a b\"'c d'y"), (Arguments{"xa bc dy"}));
    EXPECT_EQ(split("-logc=\"/var/log/x.\" -enc=\"UTF-8\""),
              (Arguments{"-logc=/var/log/x.", "-enc=UTF-8"}));
    EXPECT_EQ(split("'\"' \"'\""), (Arguments{"\"", "'"}));
    EXPECT_EQ(split("\"\" '' a"), (Arguments{"", "", "a"}));
}

TEST(CommandLine, ReadsBackslashesAsPromised) {
    EXPECT_EQ(split(R"(a\ b \" \' \\ \n)"), (Arguments{"a b", "\"", "'", "\\", "n"}));
    EXPECT_EQ(split(R"("a\"b" "a\\" "a\n\$")"), (Arguments{"a\"b", "a\\", "a\\n\\$"}));
    EXPECT_EQ(split(R"('a\' 'b\\')"), (Arguments{"a\\", "b\\\\"}));
}

TEST(CommandLine, RefusesWhatIsLeftOpen) {
    for (const char* line : {"\"", "'", "a \"b", "a 'b\"", "a\\", "\"a\\\""}) {
        EXPECT_TRUE(isRefused(line)) << line;
        ProcessHandle process;
        EXPECT_EQ(startProcess(line, process).condition(), OsCondition::InvalidArgument);
    }
}

TEST(ProcessPosix, RefusesAnEmptyProgramName) {
    ProcessHandle process;
    EXPECT_EQ(startProcess("\"\" x", process).condition(), OsCondition::InvalidArgument);
}

TEST(ProcessPosix, FindsProgramsInTheWorkingDirectoryThenAlongThePath) {
    const TestSupport::TemporaryDirectory directory;
    const TestSupport::WorkingDirectory inDirectory(directory.text());
    EXPECT_EQ(run("sh -c \"exit 4\""), 4);
    writeScript("sh", "exit 5");
    EXPECT_EQ(run("sh"), 5);
    // What cannot be run does not hide what can.
    std::filesystem::remove("sh");
    std::filesystem::create_directory("sh");
    EXPECT_EQ(run("sh -c \"exit 6\""), 6);
    std::filesystem::remove("sh");
    TestSupport::writeFile("sh", "not executable");
    EXPECT_EQ(run("sh -c \"exit 7\""), 7);
}

TEST(ProcessPosix, SaysWhyAProgramCannotBeStarted) {
    const TestSupport::TemporaryDirectory directory;
    ProcessHandle process;
    EXPECT_EQ(startProcess(directory.file("missing"), process).condition(), OsCondition::NotFound);
    TestSupport::writeFile(directory.file("text"), "x");
    EXPECT_EQ(startProcess(directory.file("text"), process).condition(), OsCondition::AccessDenied);
}

TEST(ProcessPosix, TellsOfTheSignalThatEndedIt) {
    EXPECT_EQ(run("sh -c \"kill -9 $$\""), 128 + SIGKILL);
    EXPECT_EQ(run("sh -c \"kill -15 $$\""), 128 + SIGTERM);
}

TEST(ProcessPosix, KillsWhatDoesNotHeedTheRequest) {
    const TestSupport::TemporaryDirectory directory;
    const std::string ready = directory.file("ready");
    ProcessHandle process;
    ASSERT_FALSE(startProcess(
        "sh -c \"trap '' TERM; : > " + ready + "; while :; do sleep 1; done\"", process));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return TestSupport::exists(ready); }));
    EXPECT_FALSE(process.terminate(0));
    EXPECT_TRUE(process.wait(kPatienceMs));
    EXPECT_EQ(process.exitCode(), 128 + SIGKILL);
}

TEST(ProcessPosix, LetsAProcessEndInGoodOrder) {
    const TestSupport::TemporaryDirectory directory;
    const std::string ready = directory.file("ready");
    ProcessHandle process;
    ASSERT_FALSE(startProcess(
        "sh -c \"trap 'exit 12' TERM; : > " + ready + "; while :; do sleep 0.01; done\"", process));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return TestSupport::exists(ready); }));
    EXPECT_FALSE(process.terminate(0));
    EXPECT_TRUE(process.wait(kPatienceMs));
    EXPECT_EQ(process.exitCode(), 12);
}

TEST(ProcessPosix, InheritsNoDescriptor) {
    const TestSupport::TemporaryDirectory directory;
    // Without close-on-exec, as a careless library would open them.
    const int file = ::open(directory.file("open").c_str(), O_CREAT | O_RDWR, 0600);
    int sockets[2] = {};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
    const int high = ::fcntl(file, F_DUPFD, 700);
    const std::string out = directory.file("out");
    EXPECT_EQ(run(childCommand("list /proc/self/fd " + inQuotes(out))), 0);
    for (const int descriptor : {file, high, sockets[0], sockets[1]}) ::close(descriptor);

    // The listing itself takes the one after the three standard streams.
    std::vector<int> open;
    std::string number;
    for (const char c : TestSupport::readFile(out)) {
        if (c != '\n') {
            number += c;
            continue;
        }
        open.push_back(std::stoi(number));
        number.clear();
    }
    std::sort(open.begin(), open.end());
    EXPECT_EQ(open, (std::vector<int>{0, 1, 2, 3}));
}

TEST(ProcessPosix, StartsWithDefaultSignalHandlingInASessionOfItsOwn) {
    const TestSupport::TemporaryDirectory directory;
    const std::string out = directory.file("out");
    auto* const previous = ::signal(SIGPIPE, SIG_IGN);
    sigset_t blocked;
    sigset_t before;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
    EXPECT_EQ(run(childCommand("copy /proc/self/status " + inQuotes(out))), 0);
    const std::string session = directory.file("session");
    EXPECT_EQ(run(childCommand("copy /proc/self/stat " + inQuotes(session))), 0);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    ::signal(SIGPIPE, previous);

    const std::string status = TestSupport::readFile(out);
    const auto mask = [&](const char* name) {
        return std::stoull(field(status, name), nullptr, 16);
    };
    EXPECT_EQ(mask("SigIgn") & (1ull << (SIGPIPE - 1)), 0u) << status;
    EXPECT_EQ(mask("SigBlk"), 0u) << status;
    // "pid (name) state parent group session ..."
    const std::string stat = TestSupport::readFile(session);
    const std::string id = stat.substr(0, stat.find(' '));
    std::vector<std::string> fields;
    std::string rest = stat.substr(stat.rfind(')') + 2);
    for (int i = 0; i < 4; ++i) {
        fields.push_back(rest.substr(0, rest.find(' ')));
        rest.erase(0, rest.find(' ') + 1);
    }
    EXPECT_EQ(fields[3], id) << stat;
}

TEST(ProcessPosix, LeavesNoZombieOfAForgottenChild) {
    const TestSupport::TemporaryDirectory directory;
    std::vector<std::int64_t> ids;
    for (int i = 0; i < 5; ++i) {
        ProcessHandle process;
        const std::string go = inQuotes(directory.file("go"));
        ASSERT_FALSE(startProcess(childCommand(i < 3 ? "until " + go : "exit 0"), process));
        ids.push_back(process.processId());
    }
    EXPECT_FALSE(isGone(ids[0]));
    TestSupport::writeFile(directory.file("go"), "");
    for (const std::int64_t id : ids) {
        EXPECT_TRUE(TestSupport::waitUntil([&] { return isGone(id); })) << id;
    }
}

TEST(ProcessPosix, CollectsAChildThatWasWaitedFor) {
    ProcessHandle process;
    ASSERT_FALSE(startProcess(childCommand("exit 0"), process));
    const std::int64_t id = process.processId();
    ASSERT_TRUE(process.wait(kPatienceMs));
    EXPECT_TRUE(isGone(id));
}

TEST(ProcessPosix, ClosedHandlesGiveTheirDescriptorsBack) {
    const auto count = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    };
    run(childCommand("exit 0"));
    const auto before = count();
    for (int i = 0; i < 5; ++i) run(childCommand("exit 0"));
    EXPECT_EQ(count(), before);
}

}  // namespace
