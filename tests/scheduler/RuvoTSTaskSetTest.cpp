#include "scheduler/RuvoTSTaskSet.h"

#include "runtime/platform/FreshFile.h"
#include "runtime/support/VornException.h"
#include "scheduler/RuvoTSBlobTask.h"
#include "scheduler/RuvoTSExecTask.h"
#include "scheduler/RuvoTSHandles.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace RuvoService;
using TestSupport::exists;
using TestSupport::kNoon;
using TestSupport::LogCapture;
using TestSupport::readFile;

namespace {

using Task = RuvoTSTaskSet::Task;
using Lines = std::vector<std::string>;

Task exec(const std::string& name, std::uint32_t frequency = RuvoTSTask::Once) {
    return RuvoTSTask::make<RuvoTSExecTask>(name, kNoon + 3600, frequency, "prog", "", "", "");
}

Task blob(const std::string& name, const std::string& bytes = "") {
    return RuvoTSTask::make<RuvoTSBlobTask>(name, kNoon + 3600, RuvoTSTask::Once, bytes);
}

std::string lineOf(const std::string& name) {
    return "78563412 exec " + name + "%00 2024 06 15 13 00 00 3 prog%00 %00 %00 %00";
}

class RuvoTSTaskSetTest : public testing::Test {
protected:
    TestSupport::StoreFolder folder_;
    TestSupport::TestClock clock_;
    TestSupport::OpenTaskSet open_;
    RuvoTSTaskSet& set_ = open_.set();
};

TEST_F(RuvoTSTaskSetTest, KeepsTheOrderOfInsertion) {
    EXPECT_EQ(set_.insert(exec("a"), false), 0u);
    EXPECT_EQ(set_.insert(exec("c"), false), 1u);
    EXPECT_EQ(set_.insert(exec("b"), true), 2u);
    EXPECT_EQ(set_.size(), 3u);
    EXPECT_EQ(folder_.lines(),
              (std::vector<std::string>{lineOf("a"), lineOf("c"), lineOf("b")}));
}

TEST_F(RuvoTSTaskSetTest, WritesTheStoreByteForByte) {
    set_.insert(exec("a b"), false);
    const auto bytes = blob("raw", std::string("\x01\x02\xFF", 3));
    set_.insert(bytes, true);
    const std::string end(VornPlatform::lineEnd());
    const std::string file = static_cast<const RuvoTSBlobTask&>(*bytes).getFileName();
    EXPECT_EQ(file.size(), 20u);
    EXPECT_TRUE(file.ends_with(".blb"));
    EXPECT_EQ(readFile(folder_.store()),
              "78563412 exec a%20b%00 2024 06 15 13 00 00 3 prog%00 %00 %00 %00" + end +
                  "78563412 blob raw%00 2024 06 15 13 00 00 3 " + file + " 3 78563412 0102FF" +
                  end);
}

TEST_F(RuvoTSTaskSetTest, WritesAnEmptyStoreOfAnEmptySet) {
    set_.recordTaskSet();
    EXPECT_TRUE(exists(folder_.store()));
    EXPECT_EQ(readFile(folder_.store()), "");
}

TEST_F(RuvoTSTaskSetTest, WritesTheStoreWhenToldTo) {
    set_.insert(exec("a"), false);
    EXPECT_FALSE(exists(folder_.store()));
    const auto b = exec("b");
    set_.insert(b, true);
    EXPECT_EQ(folder_.lines().size(), 2u);
    set_.remove(b->getHandle());
    EXPECT_EQ(folder_.lines(), std::vector<std::string>{lineOf("a")});
    EXPECT_EQ(readFile(folder_.previous()).find("exec a"), 9u);
}

TEST_F(RuvoTSTaskSetTest, RemovingNothingWritesTheStoreAllTheSame) {
    set_.insert(exec("a"), false);
    const LogCapture log(9);
    set_.remove(-77);
    EXPECT_EQ(folder_.lines(), std::vector<std::string>{lineOf("a")});
    EXPECT_EQ(set_.size(), 1u);
    // And counts.
    EXPECT_TRUE(log.has(9, "RuvoTSTaskSet::remove  HANDLE=-77 COUNT=0"));
}

TEST_F(RuvoTSTaskSetTest, FindsByHandleAndName) {
    const auto a = exec("a");
    const auto b = blob("b");
    set_.insert(a, false);
    set_.insert(b, false);
    EXPECT_EQ(set_.find(a->getHandle()), a);
    EXPECT_EQ(set_.find(b->getHandle()), b);
    EXPECT_EQ(set_.find("a"), a);
    EXPECT_EQ(set_.find("b"), b);
    for (const char* const other : {"", "A", "a ", "ab"}) EXPECT_EQ(set_.find(other), nullptr);
    EXPECT_EQ(set_.find(std::string_view("a\0", 2)), nullptr);
    EXPECT_EQ(set_.find(-1), nullptr);
    set_.remove(a->getHandle());
    EXPECT_EQ(set_.find(a->getHandle()), nullptr);
    EXPECT_EQ(set_.find("a"), nullptr);
    EXPECT_EQ(set_.find("b"), b);
}

TEST_F(RuvoTSTaskSetTest, TakesTheFirstOfTasksWithOneName) {
    const auto first = exec("same");
    const auto second = exec("same");
    const auto third = blob("same");
    for (const auto& task : {first, second, third}) set_.insert(task, false);
    EXPECT_EQ(set_.find("same"), first);
    set_.remove(first->getHandle());
    EXPECT_EQ(set_.find("same"), second);
    set_.remove(third->getHandle());
    EXPECT_EQ(set_.find("same"), second);
    set_.remove(second->getHandle());
    EXPECT_EQ(set_.find("same"), nullptr);
}

// When a hundred draws give no other handle, two tasks have one.
TEST_F(RuvoTSTaskSetTest, TakesTheFirstOfTasksWithOneHandle) {
    RuvoTSHandles::setDrawForTest([] { return 5; });
    const auto first = exec("first");
    set_.insert(first, true);
    const auto second = exec("second");
    set_.insert(second, true);
    RuvoTSHandles::setDrawForTest(nullptr);
    set_.insert(exec("other"), true);
    ASSERT_EQ(second->getHandle(), 5);
    EXPECT_EQ(set_.find(5), first);
    EXPECT_EQ(set_.find("second"), second);

    set_.remove(5);
    EXPECT_EQ(set_.find(5), second);
    EXPECT_EQ(set_.find("first"), nullptr);
    EXPECT_EQ(set_.find("second"), second);
    EXPECT_EQ(set_.getTaskNames("RuvoTSExecTask"), "second other ");
    EXPECT_EQ(folder_.lines(), (std::vector<std::string>{lineOf("second"), lineOf("other")}));

    set_.remove(5);
    EXPECT_EQ(set_.find(5), nullptr);
    EXPECT_EQ(set_.getTaskNames("RuvoTSExecTask"), "other ");
}

TEST_F(RuvoTSTaskSetTest, SchedulesANameOnce) {
    int made = 0;
    const auto make = [&] {
        ++made;
        return exec("a");
    };
    const auto task = set_.schedule("a", make);
    ASSERT_TRUE(task);
    EXPECT_EQ(set_.schedule("a", make), nullptr);
    EXPECT_EQ(made, 1);
    EXPECT_EQ(set_.find("a"), task);
    EXPECT_EQ(folder_.lines(), std::vector<std::string>{lineOf("a")});
    set_.remove(task->getHandle());
    EXPECT_TRUE(set_.schedule("a", make));
}

TEST_F(RuvoTSTaskSetTest, SchedulesANameOnceOnManyThreads) {
    std::atomic<int> scheduled{0};
    std::vector<std::jthread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 5; ++n) {
                const std::string name = "task" + std::to_string(n);
                if (set_.schedule(name, [&] { return exec(name); })) ++scheduled;
            }
        });
    }
    threads.clear();
    EXPECT_EQ(scheduled, 5);
    EXPECT_EQ(folder_.lines().size(), 5u);
}

TEST_F(RuvoTSTaskSetTest, ListsNamesByKind) {
    EXPECT_EQ(set_.getTaskNames("RuvoTSExecTask"), "");
    set_.insert(exec("A"), false);
    set_.insert(blob("raw 1"), false);
    set_.insert(exec("B b"), false);
    set_.insert(exec(""), false);
    set_.insert(blob("\xC3\xBC"), false);
    set_.insert(exec(std::string("z\0z", 3)), false);
    EXPECT_EQ(set_.getTaskNames("RuvoTSExecTask"), "A B%20b  z%00z ");
    EXPECT_EQ(set_.getTaskNames("RuvoTSBlobTask"), "raw%201 %C3%BC ");
    EXPECT_EQ(set_.getTaskNames("badclassname"), "");
}

TEST_F(RuvoTSTaskSetTest, RemembersTheStatusOfTheLatestThatAreGone) {
    const auto first = exec("first");
    set_.insert(first, false);
    EXPECT_EQ(set_.lastStatus(first->getHandle()), -999);
    first->setState(RuvoTSTask::Ended, 7);
    EXPECT_EQ(set_.lastStatus(first->getHandle()), 7);
    set_.release();  // nothing is written from here on
    set_.insert(first, false);
    set_.remove(first->getHandle());
    EXPECT_EQ(set_.lastStatus(first->getHandle()), 7);
    EXPECT_EQ(set_.lastStatus(first->getHandle() + 1), std::nullopt);
    const auto next = exec("next");
    for (std::size_t i = 0; i < RuvoTSTaskSet::kRemembered; ++i) {
        EXPECT_EQ(set_.lastStatus(first->getHandle()), 7);
        set_.insert(next, false);
        set_.remove(next->getHandle());
    }
    EXPECT_EQ(set_.lastStatus(first->getHandle()), std::nullopt);
    EXPECT_EQ(set_.lastStatus(next->getHandle()), -999);
    set_.release();
    EXPECT_EQ(set_.lastStatus(next->getHandle()), std::nullopt);
    first->retire();
    next->retire();
}

TEST_F(RuvoTSTaskSetTest, LearnsTheStatusOfARunThatEndsAfterItsTaskWasRemoved) {
    const auto task = exec("a");
    set_.insert(task, false);
    task->setState(RuvoTSTask::Running, 0);
    EXPECT_TRUE(task->finish());
    set_.remove(task->getHandle());
    EXPECT_EQ(set_.lastStatus(task->getHandle()), -999);
    task->setState(RuvoTSTask::Ended, 5);
    EXPECT_EQ(set_.lastStatus(task->getHandle()), 5);
    set_.noteLastStatus(task->getHandle() + 1, 6);  // of nobody
    EXPECT_EQ(set_.lastStatus(task->getHandle() + 1), std::nullopt);
}

TEST_F(RuvoTSTaskSetTest, BuildsLinesThatDidNotChangeOnceOnly) {
    const auto a = exec("a", RuvoTSTask::Daily);
    const auto b = exec("b");
    set_.insert(a, true);
    set_.insert(b, true);
    set_.insert(exec("c"), true);
    EXPECT_EQ(a->recordsBuiltForTest(), 1);
    EXPECT_EQ(b->recordsBuiltForTest(), 1);
    a->rescheduleTask();
    EXPECT_EQ(a->recordsBuiltForTest(), 1);  // not before the next writing
    EXPECT_NE(folder_.lines().at(0).find("2024 06 15"), std::string::npos);
    set_.recordTaskSet();
    EXPECT_NE(folder_.lines().at(0).find("2024 06 16"), std::string::npos);
    EXPECT_EQ(a->recordsBuiltForTest(), 2);
    EXPECT_EQ(b->recordsBuiltForTest(), 1);
}

TEST_F(RuvoTSTaskSetTest, BuildsLongLinesAnewEachTime) {
    const auto longOne = blob("long", std::string(2000, 'x'));
    set_.insert(longOne, true);
    set_.recordTaskSet();
    EXPECT_EQ(longOne->recordsBuiltForTest(), 2);
    const Lines lines = folder_.lines();
    set_.recordTaskSet();
    EXPECT_EQ(folder_.lines(), lines);
}

TEST_F(RuvoTSTaskSetTest, CountsRemovalsOfWhatIsNotThere) {
    set_.insert(exec("a"), false);
    const LogCapture log(9);
    set_.remove(5);
    EXPECT_TRUE(log.has(9, "RuvoTSTaskSet::remove  HANDLE=5 COUNT=0"));
    set_.remove(5);
    EXPECT_TRUE(log.has(9, "RuvoTSTaskSet::remove  HANDLE=5 COUNT=4294967295"));
}

// A run may end between the release of the set and the end of its task.
TEST_F(RuvoTSTaskSetTest, CountsFromNothingWhenItOpens) {
    for (const auto& task : set_.release()) task->retire();
    set_.remove(5);
    set_.open([] { return true; });
    const LogCapture log(9);
    const auto task = exec("a");
    set_.insert(task, false);
    EXPECT_TRUE(log.has(9, "RuvoTSTaskSet::insert  HANDLE=" +
                               std::to_string(task->getHandle()) + " COUNT=1"));
}

TEST_F(RuvoTSTaskSetTest, WritesNothingWhileItIsNotOpen) {
    TestSupport::writeFile(folder_.store(), "what was there\n");
    set_.release();
    set_.recordTaskSet();
    set_.remove(1);
    const auto task = exec("a");
    set_.insert(task, true);
    EXPECT_THROW(set_.schedule("b", [] { return exec("b"); }), VornSupport::VornException);
    EXPECT_EQ(readFile(folder_.store()), "what was there\n");
    set_.open([] { return false; });
    EXPECT_TRUE(set_.schedule("c", [] { return exec("c"); }));
    EXPECT_EQ(readFile(folder_.store()), "what was there\n");
    set_.open([] { return true; });
    set_.recordTaskSet();
    EXPECT_EQ(folder_.lines().size(), 2u);
}

// Answers from half of a store would be wrong, and what they change lost.
TEST_F(RuvoTSTaskSetTest, LetsCommandsWaitUntilItIsFilled) {
    set_.release();
    const auto stored = exec("stored");
    const std::int32_t handle = stored->getHandle();
    std::vector<std::future<bool>> commands;
    set_.open([&] {
        commands.push_back(std::async(std::launch::async, [&] {
            return set_.find(std::string_view("stored")) == stored;
        }));
        commands.push_back(
            std::async(std::launch::async, [&] { return set_.find(handle) == stored; }));
        commands.push_back(std::async(std::launch::async, [&] {
            return set_.schedule("stored", [] { return exec("stored"); }) == nullptr;
        }));
        commands.push_back(std::async(std::launch::async, [&] {
            return set_.getTaskNames("RuvoTSExecTask").starts_with("stored ");
        }));
        commands.push_back(std::async(std::launch::async, [&] {
            return set_.schedule("new", [] { return exec("new"); }) != nullptr;
        }));
        for (const auto& command : commands) {
            EXPECT_EQ(command.wait_for(std::chrono::milliseconds(20)),
                      std::future_status::timeout);
        }
        set_.insert(stored, false);
        return true;
    });
    for (auto& command : commands) EXPECT_TRUE(command.get());
    EXPECT_EQ(folder_.lines(), (std::vector<std::string>{lineOf("stored"), lineOf("new")}));
}

TEST_F(RuvoTSTaskSetTest, StaysClosedWhenItCannotBeFilled) {
    set_.release();
    EXPECT_THROW(set_.open([]() -> bool { throw std::runtime_error("no memory"); }),
                 std::runtime_error);
    EXPECT_THROW(set_.schedule("a", [] { return exec("a"); }), VornSupport::VornException);
    set_.open([] { return true; });
    EXPECT_TRUE(set_.schedule("a", [] { return exec("a"); }));
}

TEST_F(RuvoTSTaskSetTest, GivesOutAllTasksWhenItIsReleased) {
    const auto a = exec("a");
    set_.insert(a, true);
    set_.insert(blob("b"), true);
    const auto released = set_.release();
    ASSERT_EQ(released.size(), 2u);
    EXPECT_EQ(released[0], a);
    EXPECT_EQ(set_.size(), 0u);
    EXPECT_EQ(set_.find("a"), nullptr);
    EXPECT_EQ(set_.find(a->getHandle()), nullptr);
    EXPECT_EQ(folder_.lines().size(), 2u);
    for (const auto& task : released) task->retire();
}

TEST_F(RuvoTSTaskSetTest, KeepsATaskThatTheStoreCannotTake) {
    const LogCapture log(2);
    const TestSupport::Variable nowhere("TEMP", folder_.file("nowhere"));
    const auto task = set_.schedule("a", [] { return exec("a"); });
    ASSERT_TRUE(task);
    set_.schedule("b", [] { return exec("b"); });
    EXPECT_EQ(set_.find("a"), task);
    EXPECT_EQ(log.texts(2).size(), 1u);
}

TEST_F(RuvoTSTaskSetTest, LogsEachRecord) {
    set_.insert(exec("a"), false);
    set_.insert(exec("b"), false);
    const LogCapture log(9);
    set_.recordTaskSet();
    EXPECT_EQ(log.texts(9), (std::vector<std::string>{"RuvoTSTaskSet::recordTaskSet enter ",
                                                      "RuvoTSTaskSet::recordTask TASK=a",
                                                      "RuvoTSTaskSet::recordTask TASK=b"}));
}

}  // namespace
