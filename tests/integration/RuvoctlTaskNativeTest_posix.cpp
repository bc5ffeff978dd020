// Commands of this system's shell, typed here and run there.

#include "tests/integration/TaskCommands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace IntegrationTests {

using ::testing::HasSubstr;

TEST_F(RuvoctlTasks, ReachTheirProgramAsTyped) {
    // Each word reaches the program as it was typed.
    EXPECT_THAT(done({"schedule", "print", "--at", "+2s", "--log", file("a log.txt"), "--",
                      "printf", "%s|", "two  words", "it's", "$HOME", "*", ""}),
                HasSubstr("task print has handle "));
    const ClientRun waited = run({"wait", "print", "--for", "60"});
    EXPECT_EQ(waited.status, 0) << waited.errors;
    EXPECT_EQ(waited.output, "task print ended with status 0\n");
    EXPECT_EQ(readFile(file("a log.txt")), "two  words|it's|$HOME|*||");
    EXPECT_TRUE(waitUntil([&] { return run({"state", "print"}).status == 1; }));
}

TEST_F(RuvoctlTasks, LogTheOutputOfAllOfAShellText) {
    done({"schedule", "two", "--at", "+2s", "--shell", "--log", file("log"), "--",
          "echo a; echo 'b c' >&2; exit 3 # done"});
    EXPECT_EQ(run({"wait", "two", "--for", "60"}).status, 3);
    EXPECT_EQ(readFile(file("log")), "a\nb c\n");
}

TEST_F(RuvoctlTasks, RunInAFolder) {
    const TemporaryDirectory work;
    done({"schedule", "pwd", "--at", "+2s", "--in", work.text(), "--shell", "--log", file("here"),
          "--", "pwd -P"});
    EXPECT_EQ(run({"wait", "pwd", "--for", "60"}).status, 0);
    EXPECT_EQ(readFile(file("here")), toText(std::filesystem::canonical(work.path())) + "\n");
}

}  // namespace IntegrationTests
