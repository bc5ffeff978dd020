#include "tests/scheduler/cmd/BatchSteps.h"

#include <gtest/gtest.h>

#include <ostream>
#include <random>
#include <string>
#include <vector>

namespace CmdTests {

using RuvoCmd::BatchScript;
using RuvoCmd::BatchStep;

void PrintTo(const Step& step, std::ostream* out) {
    *out << (step.kind == BatchStep::Kind::Command ? "run " : "cd ") << step.text;
}

namespace {

Step cd(const std::string& directory) { return {BatchStep::Kind::ChangeDirectory, directory}; }
Step run(const std::string& line) { return {BatchStep::Kind::Command, line}; }

TEST(BatchScript, ReadsWhatTheSchedulerWrites) {
    EXPECT_EQ(readBatch("\nprog -x \n"), Steps{run("prog -x ")});
    EXPECT_EQ(readBatch("cd /d /work\nprog -x \n"), (Steps{cd("/work"), run("prog -x ")}));
    EXPECT_EQ(readBatch("\nprog -x >out.txt 2>&1 \r\n\n"),
              Steps{run("prog -x >out.txt 2>&1 ")});
    EXPECT_EQ(readBatch("\n  \n"), Steps{});
    EXPECT_EQ(readBatch(""), Steps{});
}

TEST(BatchScript, EndsLinesInEitherWay) {
    EXPECT_EQ(readBatch("a\r\nb\nc"), (Steps{run("a"), run("b"), run("c")}));
    EXPECT_EQ(readBatch("a\r"), Steps{run("a")});
    EXPECT_EQ(readBatch("a\rb\n"), Steps{run("a\rb")});
}

TEST(BatchScript, PassesOverLinesOfBlanks) {
    EXPECT_EQ(readBatch("\n \n\t\n\r\n \r\n\v\f\na\n\n\n"), Steps{run("a")});
}

TEST(BatchScript, KeepsCommandsAsTheyStand) {
    for (const std::string line : {"  indented", "echo \"a  b\" 'c' \\", "@echo off", "rem x",
                                   "cd elsewhere", "cd", "cdx /d a", "xcd /d a", "cd /dx a",
                                   "-x", "# a", "echo %PATH%"}) {
        EXPECT_EQ(readBatch(line + "\n"), Steps{run(line)}) << line;
    }
}

TEST(BatchScript, KnowsTheChangeOfDirectoryInAnyForm) {
    for (const std::string line : {"cd /d /a", "CD /D /a", "Cd  /d\t/a", "  cd /d /a  ",
                                   "cd /d \"/a\"", "cd /d /a\r"}) {
        EXPECT_EQ(readBatch(line), Steps{cd("/a")}) << line;
    }
    EXPECT_EQ(readBatch("cd /d /a b"), Steps{cd("/a b")});
    EXPECT_EQ(readBatch("cd /d \"/a b\" "), Steps{cd("/a b")});
    EXPECT_EQ(readBatch("cd /d \""), Steps{cd("\"")});
    EXPECT_EQ(readBatch("cd /d \"\""), Steps{cd("")});
    EXPECT_EQ(readBatch("cd /d"), Steps{cd("")});
}

TEST(BatchScript, EndsALineAtAZeroByte) {
    const std::string zero(1, '\0');
    EXPECT_EQ(readBatch("a" + zero + "b\nc\n"), (Steps{run("a"), run("c")}));
    EXPECT_EQ(readBatch(zero + "b\n"), Steps{});
}

TEST(BatchScript, HasNoMoreStepsOnceItHadNone) {
    char text[] = "a\n";
    BatchScript script(text, 2);
    BatchStep step;
    EXPECT_TRUE(script.next(step));
    for (int i = 0; i < 2; ++i) EXPECT_FALSE(script.next(step));
    EXPECT_STREQ(step.text, "a");
}

TEST(BatchScript, TakesAnyBytes) {
    std::mt19937 random(5);
    for (int round = 0; round < 2000; ++round) {
        std::string text(random() % 100, '\0');
        for (char& c : text) c = "cCdD/ \t\r\n\"\0a"[random() % 12];
        for (const Step& step : readBatch(text)) {
            EXPECT_EQ(step.text.find('\n'), std::string::npos);
            EXPECT_LE(step.text.size(), text.size());
        }
    }
}

}  // namespace
}  // namespace CmdTests
