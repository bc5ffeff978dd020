#include "scheduler/RuvoTSExecTask.h"

#include "runtime/platform/FreshFile.h"
#include "scheduler/RuvoTSRecord.h"
#include "scheduler/RuvoTSRuns.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/ChildMain.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

using namespace RuvoService;
using TestSupport::exists;
using TestSupport::kNoon;
using TestSupport::LogCapture;
using TestSupport::readFile;
using TestSupport::waitUntil;

namespace {

using ExecTask = VornSupport::VornSmartPointer<RuvoTSExecTask>;

struct Command {
    std::string appName = "prog.exe";
    std::string params{};
    std::string path{};
    std::string logFile{};
};

class RuvoTSExecTaskTest : public testing::Test {
protected:
    RuvoTSExecTaskTest() { TestSupport::provideCommandInterpreter(); }

    static ExecTask make(const Command& command, const std::string& name = "task") {
        return RuvoTSTask::make<RuvoTSExecTask>(name, kNoon + 10, RuvoTSTask::Daily,
                                                command.appName, command.path, command.params,
                                                command.logFile);
    }
    // The run alone, on this thread.
    static std::int32_t run(const Command& command) {
        const auto task = make(command);
        const auto status = task->runtaskonsystem();
        task->retire();
        return status.value_or(-12345);
    }
    // Files with the ending of batch files in the folder.
    std::vector<std::string> batchFiles() const {
        std::vector<std::string> found;
        for (const auto& entry :
             std::filesystem::directory_iterator(TestSupport::toPath(folder_.text()))) {
            if (entry.path().extension() == ".bat") {
                found.push_back(TestSupport::toText(entry.path().filename()));
            }
        }
        return found;
    }

    const std::string end_{VornPlatform::lineEnd()};
    TestSupport::StoreFolder folder_;
    TestSupport::TestClock clock_;
    TestSupport::OpenTaskSet open_;
};

// ---- the batch file, byte for byte -----------------------------------------------

TEST_F(RuvoTSExecTaskTest, WritesAnEmptyLineAndTheCommand) {
    EXPECT_EQ(make({.params = "-x"})->batchText(), end_ + "prog.exe -x " + end_);
    EXPECT_EQ(make({})->batchText(), end_ + "prog.exe  " + end_);
    EXPECT_EQ(make({.appName = ""})->batchText(), end_ + "  " + end_);
}

TEST_F(RuvoTSExecTaskTest, WritesTheChangeOfDirectory) {
    EXPECT_EQ(make({.params = "-x", .path = "C:\\work"})->batchText(),
              "cd /d C:\\work" + end_ + "prog.exe -x " + end_);
}

// The line ends in CR LF already when there is a log file, so an empty one
// follows.
TEST_F(RuvoTSExecTaskTest, WritesTheRedirection) {
    EXPECT_EQ(make({.params = "-x", .logFile = "out.txt"})->batchText(),
              end_ + "prog.exe -x >out.txt 2>&1 \r" + end_ + end_);
}

TEST_F(RuvoTSExecTaskTest, AddsNoQuotes) {
    const std::string text = make({.appName = "a prog", .params = "\"x y\" %TEMP%",
                                   .path = "a path", .logFile = "a log"})->batchText();
    EXPECT_EQ(text, "cd /d a path" + end_ + "a prog \"x y\" %TEMP% >a log 2>&1 \r" + end_ + end_);
}

TEST_F(RuvoTSExecTaskTest, EndsEachTextAtAZeroByte) {
    const std::string zero(1, '\0');
    EXPECT_EQ(make({.appName = "prog" + zero + "x", .params = "-x", .path = "p" + zero + "q",
                    .logFile = "log" + zero + "y"})->batchText(),
              "cd /d p" + end_ + "prog -x >log 2>&1 \r" + end_ + end_);
    EXPECT_EQ(make({.appName = "prog", .params = "-x" + zero + "y", .path = zero + "q",
                    .logFile = zero + "log"})->batchText(),
              end_ + "prog -x " + end_);
    EXPECT_EQ(make({.params = "two\nlines"})->batchText(),
              end_ + "prog.exe two" + end_ + "lines " + end_);
}

// A restart must not make another command of it.
TEST_F(RuvoTSExecTaskTest, HasTheSameBatchFileAfterARestart) {
    const std::string zero(1, '\0');
    for (const std::string& text : {"a" + zero + "b", zero, zero + "b", std::string("a %41\xff")}) {
        const auto task = make(
            {.appName = "p" + text, .params = "-" + text, .path = text, .logFile = text});
        const auto record = readRecord(recordLine(task->serialize()));
        const auto again = make({.appName = record.appName, .params = record.params,
                                 .path = record.path, .logFile = record.logFile});
        EXPECT_EQ(again->batchText(), task->batchText()) << testing::PrintToString(text);
    }
}

TEST_F(RuvoTSExecTaskTest, IsRecordedWithAllItsFields) {
    const auto task = make({.appName = "a b", .params = "-x", .path = "/w", .logFile = ""}, "n%");
    EXPECT_EQ(task->serialize(),
              "exec n%25%00 2024 06 15 12 00 10 0 a%20b%00 %2Fw%00 %2Dx%00 %00");
    const auto odd = RuvoTSTask::make<RuvoTSExecTask>("", -1, 4'294'967'295u, "", "", "", "");
    EXPECT_EQ(odd->serialize(),
              "exec %00 " + std::string(19, ' ') + " 4294967295 %00 %00 %00 %00");
    odd->retire();
    task->retire();
}

// ---- runs ------------------------------------------------------------------------

TEST_F(RuvoTSExecTaskTest, GivesTheStatusOfTheCommand) {
    EXPECT_EQ(run({.appName = "exit", .params = "0"}), 0);
    EXPECT_EQ(run({.appName = "exit", .params = "7"}), 7);
    EXPECT_EQ(run({.appName = "exit", .params = "255"}), 255);
    EXPECT_NE(run({.appName = "no-such-program-anywhere"}), 0);
    EXPECT_EQ(batchFiles(), std::vector<std::string>{});
}

// While the command runs its file is there, with these bytes.
TEST_F(RuvoTSExecTaskTest, RunsAFileOfThoseBytes) {
    const TestSupport::TemporaryDirectory work;
    const std::string end = work.file("end");
    const Command command{
        .appName = TestSupport::childCommand("until " + TestSupport::inQuotes(end)),
        .params = "-x",
        .path = work.text(),
        .logFile = "out.txt"};
    const LogCapture log(9);
    std::int32_t status = -1;
    std::thread runs([&] { status = run(command); });
    // Logged when the file has been written.
    EXPECT_TRUE(waitUntil([&] {
        return log.beginning("RuvoTSTaskThread::runtaskonsystem script ").size() == 1;
    }));
    const auto files = batchFiles();
    EXPECT_EQ(files.size(), 1u);
    if (!files.empty()) {
        EXPECT_EQ(readFile(folder_.file(files[0])),
                  "cd /d " + work.text() + end_ + command.appName + " -x >out.txt 2>&1 \r" +
                      end_ + end_);
    }
    TestSupport::writeFile(end, "");
    runs.join();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(batchFiles(), std::vector<std::string>{});
}

TEST_F(RuvoTSExecTaskTest, SendsTheOutputToTheLogFile) {
    const std::string log = folder_.file("out.txt");
    TestSupport::writeFile(log, "from before");
    EXPECT_EQ(run({.appName = "echo", .params = "hello", .logFile = log}), 0);
    EXPECT_TRUE(readFile(log).starts_with("hello"));
    EXPECT_EQ(readFile(log).find("from before"), std::string::npos);
    // Errors as well.
    EXPECT_NE(run({.appName = "no-such-program-anywhere", .logFile = log}), 0);
    EXPECT_NE(readFile(log).find("no-such-program-anywhere"), std::string::npos);
}

TEST_F(RuvoTSExecTaskTest, RunsInTheDirectory) {
    TestSupport::TemporaryDirectory work;
    EXPECT_EQ(run({.appName = "echo", .params = "x", .path = work.text(), .logFile = "here.txt"}),
              0);
    EXPECT_TRUE(exists(work.file("here.txt")));
}

TEST_F(RuvoTSExecTaskTest, UsesTheCurrentDirectoryWithoutAFolderForTemporaryFiles) {
    const TestSupport::Variable unset("TEMP", {});
    TestSupport::TemporaryDirectory work;
    const TestSupport::WorkingDirectory there(work.text());
    const LogCapture log(9);
    EXPECT_EQ(run({.appName = "exit", .params = "3"}), 3);
    const auto ready = log.beginning("RuvoTSTaskThread::runtaskonsystem ready  tempfile=");
    ASSERT_EQ(ready.size(), 1u);
    const std::string file = ready[0].substr(ready[0].find('=') + 1, 20);
    EXPECT_TRUE(file.ends_with(".bat")) << file;
    EXPECT_EQ(file.find_first_not_of("0123456789ABCDEF"), 16u) << file;
}

TEST_F(RuvoTSExecTaskTest, SaysWhenTheBatchFileCannotBeWritten) {
    const LogCapture log(9);
    const TestSupport::Variable nowhere("TEMP", folder_.file("nowhere"));
    EXPECT_EQ(run({.appName = "exit", .params = "3"}), -9999);
    EXPECT_TRUE(log.has(9, "RuvoTSExecTask::runtaskonsystem exit  STATUS=-9999"));
    EXPECT_EQ(log.beginning("RuvoTSTaskThread::runtaskonsystem script ").size(), 0u);
}

// An interpreter that somebody left where the daemon works is not ours.
TEST_F(RuvoTSExecTaskTest, RunsWithOurInterpreterWhateverLiesInTheWorkingDirectory) {
    TestSupport::TemporaryDirectory work;
    const TestSupport::WorkingDirectory there(work.text());
    for (const std::string name : {"cmd", "cmd.exe"}) {
        TestSupport::writeFile(work.file(name), "#!/bin/sh\nexit 66\n");
        std::filesystem::permissions(TestSupport::toPath(work.file(name)),
                                     std::filesystem::perms::owner_all);
    }
    EXPECT_EQ(run({.appName = "exit", .params = "3"}), 3);
}

TEST_F(RuvoTSExecTaskTest, RunsInAFolderWhoseNameHasBlanks) {
    std::filesystem::create_directory(TestSupport::toPath(folder_.file("a b")));
    const TestSupport::Variable blanks("TEMP", folder_.file("a b"));
    EXPECT_EQ(run({.appName = "exit", .params = "5"}), 5);
}

TEST_F(RuvoTSExecTaskTest, LogsItsSteps) {
    const LogCapture log(9);
    EXPECT_EQ(run({.appName = "exit", .params = "3"}), 3);
    const auto texts = log.beginning("RuvoTS");
    std::vector<std::string> steps;
    for (const std::string& text : texts) {
        if (text.find("runtaskonsystem") != std::string::npos) steps.push_back(text);
    }
    ASSERT_EQ(steps.size(), 4u);
    EXPECT_EQ(steps[0], "RuvoTSTExecTask::runtaskonsystem enter");
    EXPECT_TRUE(steps[1].starts_with("RuvoTSTaskThread::runtaskonsystem ready  tempfile="));
    EXPECT_NE(steps[1].find(" cmdline=cmd /c "), std::string::npos);
    EXPECT_EQ(steps[2], "RuvoTSTaskThread::runtaskonsystem script  cmdline=exit 3 ");
    EXPECT_EQ(steps[3], "RuvoTSExecTask::runtaskonsystem exit  STATUS=3");
}

// ---- from the timer to the next time ---------------------------------------------

TEST_F(RuvoTSExecTaskTest, RunsAfterItsPauses) {
    // A command that ends when it is told to, so that the state can be seen.
    const std::string end = folder_.file("end");
    const auto task = make(
        {.appName = TestSupport::childCommand("until " + TestSupport::inQuotes(end))});
    open_.set().insert(task, false);
    const auto begin = std::chrono::steady_clock::now();
    clock_.advance(10);
    EXPECT_TRUE(waitUntil([&] { return task->getState() == RuvoTSTask::Running; }));
    // Four on the timer's thread, of which one is after the start, and one on
    // the thread of the run.
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(390));
    TestSupport::writeFile(end, "");
    EXPECT_TRUE(waitUntil([&] { return task->getState() == RuvoTSTask::Waiting; }));
    EXPECT_EQ(task->getStatus(), 0);
    EXPECT_EQ(task->getNextTime(), kNoon + 10 + 86400);
}

// One of them after the thread has been started.
TEST_F(RuvoTSExecTaskTest, PausesFourTimes) {
    const auto task = make({.appName = "exit", .params = "0"});
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(task->performTask(), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(390));
    EXPECT_TRUE(waitUntil([&] { return task->getLastRunTime() != 0; }));
    EXPECT_TRUE(waitUntil([] { return RuvoTSRuns::getInstance().count() == 0; }));
}

TEST_F(RuvoTSExecTaskTest, ComesAgainAfterARunThatFailed) {
    const TestSupport::Variable nowhere("TEMP", folder_.file("nowhere"));
    const auto task = make({.appName = "exit", .params = "0"});
    open_.set().insert(task, false);
    clock_.advance(10);
    EXPECT_TRUE(waitUntil([&] { return task->getStatus() == -9999; }));
    EXPECT_TRUE(waitUntil([&] { return task->getState() == RuvoTSTask::Waiting; }));
    EXPECT_EQ(task->getNextTime(), kNoon + 10 + 86400);
}

TEST_F(RuvoTSExecTaskTest, LogsTheStartOfARun) {
    const LogCapture log(9);
    const auto task = make({.appName = "exit", .params = "0"}, "nightly");
    open_.set().insert(task, false);
    clock_.advance(10);
    EXPECT_TRUE(waitUntil([&] { return log.has(9, "RuvoTSExecTask::performTask exit "); }));
    EXPECT_TRUE(waitUntil([&] { return log.has(9, "RuvoTSTaskThread::run exit "); }));
    EXPECT_TRUE(log.has(9, "RuvoTSExecTask::performTask enter HANDLE=" +
                               std::to_string(task->getHandle()) + "NAME=nightly"));
    const auto created = log.beginning("RuvoTSExecTask::performTask new thread  THREADTHIS=0x");
    ASSERT_EQ(created.size(), 1u);
    EXPECT_TRUE(created[0].ends_with(" NAME=nightly"));
    EXPECT_TRUE(log.has(9, "RuvoTSTaskThread::run "));
    EXPECT_TRUE(log.has(9, "RuvoTSTaskThread::runtaskonsystem enter"));
    EXPECT_TRUE(log.has(9, "RuvoTSTaskThread::runtaskonsystem exit  STATUS=0"));
    // On a thread of the task's name.
    for (const auto& record : log.records()) {
        if (record.text == "RuvoTSTaskThread::run ") {
            EXPECT_EQ(record.thread, "nightly");
        }
    }
}

}  // namespace
