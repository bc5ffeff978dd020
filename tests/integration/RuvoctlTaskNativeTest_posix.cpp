// Commands of this system's shell, typed here and run there.

#include "tests/integration/TaskCommands.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>

namespace IntegrationTests {

TEST_F(RuvoctlTasks, ReachTheirProgramAsTyped) {
    // Each word reaches the program as it was typed.
    const std::string handle =
        soon("print", {"--log", file("a log.txt"), "--", "printf", "%s|", "two  words", "it's",
                       "$HOME", "*", ""});
    const ClientRun waited = waitFor(handle);
    EXPECT_EQ(waited.status, 0) << waited.errors;
    EXPECT_EQ(waited.output, "task " + handle + " ended with status 0\n");
    EXPECT_EQ(readFile(file("a log.txt")), "two  words|it's|$HOME|*||");
    EXPECT_TRUE(waitUntil([&] { return run({"state", "print"}).status == 1; }));
}

TEST_F(RuvoctlTasks, LogTheOutputOfAllOfAShellText) {
    const std::string handle = soon("two", {"--shell", "--log", file("log"), "--",
                                            "echo a; echo 'b c' >&2; exit 3 # done"});
    EXPECT_EQ(waitFor(handle).status, 3);
    EXPECT_EQ(readFile(file("log")), "a\nb c\n");
}

TEST_F(RuvoctlTasks, RunInAFolder) {
    const TemporaryDirectory work;
    const std::string handle = soon(
        "pwd", {"--in", work.text(), "--shell", "--log", file("here"), "--", "pwd -P"});
    EXPECT_EQ(waitFor(handle).status, 0);
    EXPECT_EQ(readFile(file("here")), toText(std::filesystem::canonical(work.path())) + "\n");
}

// By name, while there is one: the command ends when it is waited for.
TEST_F(RuvoctlTasks, AreWaitedForByTheirNames) {
    soon("named", {"--shell", "--", "until [ -e '" + file("go") + "' ]; do sleep 0.05; done; exit 5"});
    ClientProcess waiter(ruvoctlLine(line({"wait", "named", "--for", "180"})));
    ASSERT_TRUE(waitUntil([&] { return followers() == 1; })) << waiter.errors();
    writeFile(file("go"), "");
    EXPECT_EQ(waiter.waitForExit(std::chrono::seconds(200)), 5) << waiter.errors();
    EXPECT_EQ(waiter.output(), "task named ended with status 5\n");
}

}  // namespace IntegrationTests
