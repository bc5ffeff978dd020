// The real client's tasks in the real daemon.

#include "runtime/platform/Environment.h"
#include "tests/support/ClientLauncher.h"
#include "tests/support/DaemonLauncher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace IntegrationTests {
namespace {

using namespace TestSupport;
using ::testing::HasSubstr;
using Arguments = std::vector<std::string>;

class RuvoctlTasks : public ::testing::Test {
protected:
    RuvoctlTasks() : temp_(VornPlatform::getEnv("TEMP")) {
        VornPlatform::setEnv("TEMP", folder_.text());
        daemon_.emplace(
            Daemon::Options{.properties = "ruvod.load-monitors=SchedulerFollow\n"});
    }
    ~RuvoctlTasks() override {
        daemon_.reset();
        VornPlatform::setEnv("TEMP", temp_);
    }

    Arguments line(const Arguments& arguments) const {
        Arguments all = {"--port", std::to_string(daemon_->tcpPort()), "task"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }
    ClientRun run(const Arguments& arguments) const { return runRuvoctl(line(arguments)); }
    std::string done(const Arguments& arguments) const {
        const ClientRun result = run(arguments);
        EXPECT_EQ(result.status, 0) << ::testing::PrintToString(arguments) << result.errors;
        return result.output;
    }
    nlohmann::json json(Arguments arguments) const {
        arguments.push_back("--json");
        return nlohmann::json::parse(done(arguments));
    }
    std::string file(std::string_view name) const { return folder_.file(name); }

private:
    const TemporaryDirectory folder_;
    const std::optional<std::string> temp_;
    std::optional<Daemon> daemon_;
};

TEST_F(RuvoctlTasks, RunACommandAndEndWithItsStatus) {
    // Each word reaches the program as it was typed.
    EXPECT_THAT(done({"schedule", "print", "--at", "+2s", "--log", file("a log.txt"), "--", "printf",
                      "%s|", "two  words", "it's", "$HOME", "*", ""}),
                HasSubstr("task print has handle "));
    const ClientRun waited = run({"wait", "print", "--for", "60"});
    EXPECT_EQ(waited.status, 0) << waited.errors;
    EXPECT_EQ(waited.output, "task print ended with status 0\n");
    EXPECT_EQ(readFile(file("a log.txt")), "two  words|it's|$HOME|*||");
    EXPECT_TRUE(waitUntil([&] { return run({"state", "print"}).status == 1; }));

    done({"schedule", "fails", "--at", "+2s", "--shell", "--", "exit 42"});
    EXPECT_EQ(run({"wait", "fails", "--for", "60"}).status, 42);
}

TEST_F(RuvoctlTasks, RunInAFolder) {
    const TemporaryDirectory work;
    done({"schedule", "pwd", "--at", "+2s", "--in", work.text(), "--shell", "--log",
          file("here"), "--", "pwd -P"});
    EXPECT_EQ(run({"wait", "pwd", "--for", "60"}).status, 0);
    EXPECT_EQ(readFile(file("here")),
              toText(std::filesystem::canonical(work.path())) + "\n");
}

TEST_F(RuvoctlTasks, AreShownAndCancelled) {
    done({"schedule", "nightly", "--daily", "--at", "2033-05-18T03:33:20Z", "--", "true"});
    const auto shown = json({"show", "nightly"});
    EXPECT_EQ(shown["name"], "nightly");
    EXPECT_EQ(shown["state"], "waiting");
    EXPECT_EQ(shown["frequency"], "daily");
    EXPECT_EQ(shown["nextRun"]["utc"], "2033-05-18T03:33:20Z");
    EXPECT_TRUE(shown["lastRun"].is_null());
    EXPECT_EQ(json({"list"})["names"], nlohmann::json({"nightly"}));
    EXPECT_EQ(done({"exit-code", "nightly"}), "-999\n");
    EXPECT_EQ(run({"schedule", "nightly", "--soon", "--", "true"}).status, 1);

    ClientProcess watcher(ruvoctlLine(line({"watch", "nightly"})));
    ASSERT_TRUE(watcher.complains("watching task nightly")) << watcher.errors();
    ClientProcess waiter(ruvoctlLine(line({"wait", "nightly", "--for", "60"})));
    done({"cancel", "nightly"});
    EXPECT_EQ(watcher.waitForExit(), 0) << watcher.errors();
    EXPECT_EQ(watcher.output(), "nightly: finished\n");
    EXPECT_EQ(waiter.waitForExit(), 1) << waiter.errors();
    EXPECT_EQ(done({"list"}), "");
    EXPECT_EQ(run({"cancel", "nightly"}).status, 1);
}

TEST_F(RuvoctlTasks, KeepBytes) {
    std::string bytes;
    for (int i = 0; i < 100'000; ++i) bytes += static_cast<char>(i);
    writeFile(file("in"), bytes);
    done({"schedule-blob", "order", file("in"), "--weekly", "--at", "+1h"});
    done({"retrieve", "order", "--output", file("out")});
    EXPECT_EQ(readFile(file("out")), bytes);
    EXPECT_EQ(done({"list-blobs"}), "order\n");
    EXPECT_EQ(json({"show", "order"})["kind"], "bytes");
    EXPECT_EQ(run({"exit-code", "order"}).status, 1);
}

TEST_F(RuvoctlTasks, AreWatchedThroughARun) {
    const auto scheduled = json({"schedule-blob", "blob", "/dev/null", "--daily", "--at", "+3s"});
    EXPECT_GE(scheduled["handle"], 0);
    ClientProcess watcher(ruvoctlLine(line({"watch", "blob", "--count", "3"})));
    EXPECT_EQ(watcher.waitForExit(), 0) << watcher.errors();
    EXPECT_EQ(watcher.output(), "blob: running\nblob: ended\nblob: waiting\n");
}

}  // namespace

}  // namespace IntegrationTests
