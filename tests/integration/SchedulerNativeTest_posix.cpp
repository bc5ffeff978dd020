// What only a native scheduler can be asked: commands of this system's shell.

#include "tests/integration/SchedulerScene.h"

#include <gtest/gtest.h>

#include <string>

namespace IntegrationTests {

TEST_F(Scheduler, LeavesTheLineToTheShell) {
    const std::string log = file("log");
    const std::int32_t task =
        schedule("echo", "echo hello;", "exit 7", now() + 2, kDaily, '"' + log + '"');
    ASSERT_TRUE(waitUntil([&] { return exitCode(task) == 7; }, kRunPatience));
    EXPECT_EQ(readFile(log), "");  // the redirection is that of "exit" alone
}

TEST_F(Scheduler, LetsACommandRunOnWhenItStops) {
    const std::string go = file("go");
    const std::string done = file("done");
    const std::int32_t task = schedule(
        "long", "while [ ! -e '" + go + "' ]; do sleep 0.05; done; echo x >'" + done + "'", "",
        now() + 2, kOnce);
    ASSERT_GE(task, 0);
    ASSERT_TRUE(waitUntil([&] { return state(task) == 0; }, kRunPatience));
    stop();
    EXPECT_FALSE(exists(done));
    writeFile(go, "");
    EXPECT_TRUE(waitUntil([&] { return exists(done); }));
    start();  // it did not see the end, so it runs it again two minutes from now
    EXPECT_GE(lookup("long"), 0);
}

}  // namespace IntegrationTests
