#include "runtime/platform/Foreground.h"

#include "runtime/platform/Environment.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

using namespace VornPlatform;

namespace {

using Words = std::vector<std::string>;

constexpr int kPatienceMs = 20'000;

class ForegroundPosixTest : public testing::Test {
protected:
    ~ForegroundPosixTest() override { setEnv("PATH", path_); }

    std::string file(std::string_view name) { return directory_.file(name); }
    std::string read(std::string_view name) { return TestSupport::readFile(file(name)); }

    void writeProgram(std::string_view name, const std::string& text, mode_t mode = 0700) {
        TestSupport::writeFile(file(name), text);
        ASSERT_EQ(::chmod(file(name).c_str(), mode), 0);
    }

    static int run(const Words& words) {
        ProcessHandle process;
        const OsError error = startInForeground(words, process);
        EXPECT_FALSE(error) << words[0] << ": " << error.text();
        EXPECT_TRUE(error || process.wait(kPatienceMs));
        return process.exitCode();
    }

    OsCondition refusalOf(const std::string& program) {
        ProcessHandle process;
        return startInForeground({program}, process).condition();
    }

    const std::optional<std::string> path_ = getEnv("PATH");
    TestSupport::TemporaryDirectory directory_;
};

TEST_F(ForegroundPosixTest, FindsProgramsAlongThePathAlone) {
    const TestSupport::WorkingDirectory inDirectory(directory_.text());
    writeProgram("ours", "#!/bin/sh\nexit 4\n");
    EXPECT_EQ(refusalOf("ours"), OsCondition::NotFound);
    EXPECT_EQ(run({"./ours"}), 4);
    std::filesystem::create_directories("first/sh");  // a folder is no program
    setEnv("PATH", file("none") + ':' + file("first") + ":/bin:/usr/bin");
    EXPECT_EQ(run({"sh", "-c", "exit 5"}), 5);
    setEnv("PATH", directory_.text());
    EXPECT_EQ(run({"ours"}), 4);
    for (const std::string here : {"", "/none:", ":/none", "/none::/none", "."}) {
        setEnv("PATH", here);
        EXPECT_EQ(run({"ours"}), 4) << here;
    }
    setEnv("PATH", std::nullopt);
    EXPECT_EQ(run({"sh", "-c", "exit 6"}), 6);
}

TEST_F(ForegroundPosixTest, WhatCannotBeRunHidesNothingFurtherAlongThePath) {
    std::filesystem::create_directories(file("first"));
    writeProgram("first/sh", "#!/bin/sh\nexit 1\n", 0600);
    writeProgram("first/only", "#!/bin/sh\nexit 1\n", 0600);
    setEnv("PATH", file("first") + ":/bin:/usr/bin");
    EXPECT_EQ(run({"sh", "-c", "exit 5"}), 5);
    EXPECT_EQ(refusalOf("only"), OsCondition::AccessDenied);
}

TEST_F(ForegroundPosixTest, RunsTextThatNamesNoInterpreter) {
    writeProgram("text", "echo \"$1-$2\" > \"$3\"\nexit 8\n");
    EXPECT_EQ(run({file("text"), "a b", "", file("out")}), 8);
    EXPECT_EQ(read("out"), "a b-\n");
    // Its name is not an option of the interpreter's.
    const TestSupport::WorkingDirectory inDirectory(directory_.text());
    writeProgram("-c", "exit 9\n");
    setEnv("PATH", ":/bin:/usr/bin");
    EXPECT_EQ(run({"-c"}), 9);
}

TEST_F(ForegroundPosixTest, TellsOfTheSignalThatEndedIt) {
    EXPECT_EQ(run({"sh", "-c", "kill -9 $$"}), 128 + SIGKILL);
    EXPECT_EQ(run({"sh", "-c", "kill -15 $$"}), 128 + SIGTERM);
}

TEST_F(ForegroundPosixTest, StaysInOurProcessGroupAndSession) {
    EXPECT_EQ(run({"sh", "-c", "cat /proc/$$/stat > \"$1\"", "sh", file("out")}), 0);
    const std::string stat = read("out");
    // "pid (name) state parent group session ..."
    std::string rest = stat.substr(stat.rfind(')') + 4);
    std::vector<pid_t> numbers;
    for (int i = 0; i < 3; ++i) {
        std::size_t used = 0;
        numbers.push_back(std::stoi(rest, &used));
        rest.erase(0, used);
    }
    EXPECT_EQ(numbers, (std::vector<pid_t>{::getpid(), ::getpgrp(), ::getsid(0)})) << stat;
}

TEST_F(ForegroundPosixTest, InheritsTheStandardStreamsAndOtherDescriptors) {
    const int saved = ::dup(STDOUT_FILENO);
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    const std::string other = std::to_string(::dup(pipe[1]));
    ::dup2(pipe[1], STDOUT_FILENO);
    const int status = run({"sh", "-c", "echo out; echo other >&" + other});
    ::dup2(saved, STDOUT_FILENO);
    EXPECT_EQ(status, 0);
    char text[64];
    EXPECT_EQ(std::string(text, static_cast<std::size_t>(::read(pipe[0], text, sizeof text))),
              "out\nother\n");
    for (const int descriptor : {saved, pipe[0], pipe[1], std::stoi(other)}) ::close(descriptor);
}

TEST_F(ForegroundPosixTest, StartsNothingThatItCouldNotWatch) {
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit low = before;
    low.rlim_cur = 100;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
    const std::string missing = file("none");  // a sanitizer's look at `this` takes descriptors
    std::vector<int> taken;
    for (int each = ::dup(0); each >= 0; each = ::dup(0)) taken.push_back(each);
    ProcessHandle process;
    // Refused before anybody sees that there is no such program.
    const OsError refused = startInForeground({missing}, process);
    ::close(taken.back());
    taken.pop_back();
    const int status = run({"/bin/sh", "-c", "exit 5"});
    for (const int each : taken) ::close(each);
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(refused.code(), EMFILE);
    EXPECT_EQ(status, 5);
}

TEST_F(ForegroundPosixTest, KnowsTheStatusWhereEndsOfChildrenWereIgnored) {
    auto* const before = ::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(run({"sh", "-c", "exit 11"}), 11);
    ::signal(SIGCHLD, before);
}

TEST_F(ForegroundPosixTest, LeavesIgnoredSignalsIgnored) {
    auto* const before = ::signal(SIGHUP, SIG_IGN);
    EXPECT_EQ(run({"sh", "-c", "kill -HUP $$; exit 3"}), 3);
    ::signal(SIGHUP, before);
}

TEST_F(ForegroundPosixTest, HandsRequestsOnUnlessTheProgramHasBeenTold) {
    const std::string script =
        "trap 'echo INT >> \"$1\"' INT; trap 'echo TERM >> \"$1\"; exit 12' TERM; : > \"$2\"; "
        "while :; do sleep 0.01; done";
    ProcessHandle process;
    ASSERT_FALSE(
        startInForeground({"sh", "-c", script, "sh", file("out"), file("ready")}, process));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return TestSupport::exists(file("ready")); }));
    handOn({.signal = SIGTERM, .reachedOthers = true}, process);
    handOn({.signal = SIGINT}, process);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return read("out") == "INT\n"; })) << read("out");
    EXPECT_FALSE(process.wait(0));
    handOn({.signal = SIGTERM}, process);
    ASSERT_TRUE(process.wait(kPatienceMs));
    EXPECT_EQ(process.exitCode(), 12);
    EXPECT_EQ(read("out"), "INT\nTERM\n");
}

}  // namespace
