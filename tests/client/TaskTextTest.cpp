#include "client/ruvoctl/TaskText.h"

#include "client/ruvoctl/Session.h"
#include "runtime/platform/BatchQuote.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>

using namespace Ruvoctl;
using VornPlatform::quoteForBatch;

TEST(TaskText, NamesFrequencies) {
    using Ruvo::RuvoFrequency;
    EXPECT_EQ(frequencyText(RuvoFrequency::Daily), "daily");
    EXPECT_EQ(frequencyText(RuvoFrequency::Weekly), "weekly");
    EXPECT_EQ(frequencyText(RuvoFrequency::Monthly), "every 28 days");
    EXPECT_EQ(frequencyText(RuvoFrequency::Once), "once");
    EXPECT_EQ(frequencyText(RuvoFrequency::Soon), "once, soon");
    EXPECT_EQ(frequencyText(static_cast<RuvoFrequency>(-1)), "frequency 4294967295, runs once");
}

TEST(TaskText, QuotesEachWord) {
    const auto command = commandOf({.words = {"/a prog", "-x", "two words", ""}});
    EXPECT_EQ(command.program, quoteForBatch("/a prog"));
    EXPECT_EQ(command.parameters, "-x " + quoteForBatch("two words") + ' ' + quoteForBatch(""));
    EXPECT_EQ(command.directory, "");
    EXPECT_EQ(command.logFile, "");
}

TEST(TaskText, LeavesShellTextAlone) {
    const auto command = commandOf({.words = {"ls | wc", "-l >&2"}, .isShellText = true});
    EXPECT_EQ(command.program, "ls | wc");
    EXPECT_EQ(command.parameters, "-l >&2");
}

TEST(TaskText, GivesTheOutputOfAllOfAShellTextToTheLogFile) {
    const auto command =
        commandOf({.words = {"ls;", "ls | wc"}, .isShellText = true, .logFile = "log"});
    EXPECT_EQ(command.program, VornPlatform::groupForBatch("ls; ls | wc"));
    EXPECT_EQ(command.parameters, "");
}

TEST(TaskText, CountsFoldersFromTheWorkingDirectory) {
    const TestSupport::TemporaryDirectory here;
    const TestSupport::WorkingDirectory there(here.text());
    const std::string work = TestSupport::toText(std::filesystem::current_path());
    const auto command = commandOf({.words = {"p"}, .directory = "sub", .logFile = "a b.txt"});
    const auto path = [&](const char* name) {
        return TestSupport::toText(TestSupport::toPath(work) / name);
    };
    EXPECT_EQ(command.directory, VornPlatform::directoryForBatch(path("sub")));
    EXPECT_EQ(command.logFile, quoteForBatch(path("a b.txt")));
}

// It is looked for where it runs.
TEST(TaskText, LeavesTheProgramAsItStands) {
    const auto command = commandOf({.words = {"./p", "./a"}, .directory = "sub"});
    EXPECT_EQ(command.program, quoteForBatch("./p"));
    EXPECT_EQ(command.parameters, quoteForBatch("./a"));
}

TEST(TaskText, RefusesWhatNoBatchFileCanHold) {
    for (const std::string& bad : {std::string("a\nb"), std::string("a\r"), std::string("\0", 1)}) {
        EXPECT_THROW(commandOf({.words = {"p", bad}}), UsageError);
        EXPECT_THROW(commandOf({.words = {"p"}, .directory = bad}), UsageError);
        EXPECT_THROW(commandOf({.words = {"p"}, .logFile = bad}), UsageError);
    }
}

TEST(TaskText, EndsWithTheStatusOfTheTask) {
    EXPECT_EQ(exitStatusOf(0), 0);
    EXPECT_EQ(exitStatusOf(7), 7);
    EXPECT_EQ(exitStatusOf(255), 255);
    EXPECT_EQ(exitStatusOf(-1), 255);
    EXPECT_NE(exitStatusOf(256), 0);
    EXPECT_NE(exitStatusOf(-9999), 0);
    EXPECT_NE(exitStatusOf(1 << 20), 0);
}
