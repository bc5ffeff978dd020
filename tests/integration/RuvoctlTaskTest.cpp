// The real client's tasks in the real daemon.

#include "tests/integration/TaskCommands.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <string>

namespace IntegrationTests {
namespace {

TEST_F(RuvoctlTasks, EndWithTheStatusOfTheirCommand) {
    EXPECT_EQ(waitFor(soon("fails", {"--shell", "--", "exit 42"})).status, 42);
}

TEST_F(RuvoctlTasks, AreShownAndCancelled) {
    done({"schedule", "nightly", "--daily", "--at", "2033-05-18T03:33:20Z", "--", "exit"});
    const auto shown = json({"show", "nightly"});
    EXPECT_EQ(shown["name"], "nightly");
    EXPECT_EQ(shown["state"], "waiting");
    EXPECT_EQ(shown["frequency"], "daily");
    EXPECT_EQ(shown["nextRun"]["utc"], "2033-05-18T03:33:20Z");
    EXPECT_TRUE(shown["lastRun"].is_null());
    EXPECT_EQ(json({"list"})["names"], nlohmann::json({"nightly"}));
    EXPECT_EQ(done({"exit-code", "nightly"}), "-999\n");
    EXPECT_EQ(run({"schedule", "nightly", "--soon", "--", "exit"}).status, 1);

    ClientProcess watcher(ruvoctlLine(line({"watch", "nightly"})));
    ASSERT_TRUE(watcher.complains("watching task nightly")) << watcher.errors();
    // Both follow it, so what they end with is the cancel and not that it is gone.
    ClientProcess waiter(ruvoctlLine(line({"wait", "nightly", "--for", "60"})));
    ASSERT_TRUE(waitUntil([&] { return followers() == 2; })) << waiter.errors();
    done({"cancel", "nightly"});
    EXPECT_EQ(watcher.waitForExit(), 0) << watcher.errors();
    EXPECT_EQ(watcher.output(), "nightly: finished\n");
    EXPECT_EQ(waiter.waitForExit(), 1);
    EXPECT_EQ(waiter.errors(), "ruvoctl: the task was cancelled\n");
    EXPECT_EQ(done({"list"}), "");
    EXPECT_EQ(run({"cancel", "nightly"}).status, 1);
}

TEST_F(RuvoctlTasks, AreListedWithNamesAsLongAsTheyMayBe) {
    const std::string name(1'048'576, '-');  // three times as long in the list
    auto wire = client();
    wire.send(WireText()
                  .shortNumber(1)
                  .request("Scheduler", "RUVO_TS_SCHEDULE")
                  .string(name)
                  .string("exit")
                  .string("")
                  .string("")
                  .number(0)
                  .number(5)
                  .number(18)
                  .number(2033)
                  .number(3)
                  .number(33)
                  .number(20)
                  .string(""));
    ASSERT_GE(wire.readNumber(), 0);
    done({"schedule", "beside", "--daily", "--at", "2033-05-18T03:33:20Z", "--", "exit"});
    const std::string listed = done({"list"});
    EXPECT_TRUE(listed == name + "\nbeside\n" || listed == "beside\n" + name + '\n');
    EXPECT_EQ(json({"list"})["names"].size(), 2U);
}

TEST_F(RuvoctlTasks, EndWithTheStatusOfATaskThatIsGone) {
    const std::string handle = soon("over", {"--shell", "--", "exit 9"});
    EXPECT_EQ(waitFor(handle).status, 9);
    ASSERT_TRUE(waitUntil([&] { return run({"state", "over"}).status == 1; }));
    EXPECT_EQ(run({"wait", "--handle", handle}).status, 9);
}

TEST_F(RuvoctlTasks, KeepBytes) {
    std::string bytes;
    for (int i = 0; i < 100'000; ++i) bytes += static_cast<char>(i);
    writeFile(file("in"), bytes);
    done({"schedule-blob", "order", clientPath(file("in")), "--weekly", "--at", "+1h"});
    done({"retrieve", "order", "--output", clientPath(file("out"))});
    EXPECT_EQ(readFile(file("out")), bytes);
    EXPECT_EQ(done({"list-blobs"}), "order\n");
    EXPECT_EQ(json({"show", "order"})["kind"], "bytes");
    EXPECT_EQ(run({"exit-code", "order"}).status, 1);
}

TEST_F(RuvoctlTasks, AreWatchedThroughARun) {
    writeFile(file("empty"), "");
    const auto scheduled =
        json({"schedule-blob", "blob", clientPath(file("empty")), "--daily", "--at", "+6s"});
    EXPECT_GE(scheduled["handle"], 0);
    ClientProcess watcher(ruvoctlLine(line({"watch", "blob", "--count", "3"})));
    EXPECT_EQ(watcher.waitForExit(), 0) << watcher.errors();
    EXPECT_EQ(watcher.output(), "blob: running\nblob: ended\nblob: waiting\n");
}

}  // namespace
}  // namespace IntegrationTests
