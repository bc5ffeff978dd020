// What others may do while one thread writes the store.

#include "runtime/support/VornTimer.h"
#include "scheduler/RuvoTSExecTask.h"
#include "scheduler/RuvoTSTaskSet.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <vector>

using namespace RuvoService;
using TestSupport::kNoon;
using TestSupport::waitUntil;

namespace {

using Task = RuvoTSTaskSet::Task;
using namespace std::chrono_literals;

constexpr auto kPatience = 20s;

// Holds up who writes a store, and counts them.
class Gate {
public:
    void pass() {
        std::unique_lock lock(mutex_);
        ++arrived_;
        changed_.notify_all();
        changed_.wait_for(lock, kPatience, [&] { return open_; });
    }
    bool awaitArrival() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience, [&] { return arrived_ > 0; });
    }
    void open() {
        const std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    void reset() {
        const std::lock_guard lock(mutex_);
        open_ = false;
        arrived_ = 0;
    }
    int arrived() {
        const std::lock_guard lock(mutex_);
        return arrived_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
    int arrived_ = 0;
};

Gate& gate() {
    static Gate one;
    return one;
}

Task exec(const std::string& name) {
    return RuvoTSTask::make<RuvoTSExecTask>(name, kNoon + 3600, RuvoTSTask::Once, "prog", "", "",
                                            "");
}

template <class Result>
bool isReady(const std::future<Result>& future, std::chrono::milliseconds patience = 0ms) {
    return future.wait_for(patience) == std::future_status::ready;
}

class RuvoTSTaskSetWritingTest : public testing::Test {
protected:
    RuvoTSTaskSetWritingTest() { gate().reset(); }
    ~RuvoTSTaskSetWritingTest() override {
        RuvoTSTaskSet::setWhileWritingForTest(nullptr);
        gate().open();
    }

    // A thread schedules a task and stands still while it writes the store.
    std::future<Task> scheduleAndStand(const std::string& name) {
        RuvoTSTaskSet::setWhileWritingForTest([] { gate().pass(); });
        auto scheduled = schedule(name);
        EXPECT_TRUE(gate().awaitArrival());
        return scheduled;
    }
    std::future<Task> schedule(const std::string& name) {
        return std::async(std::launch::async,
                          [this, name] { return set_.schedule(name, [&] { return exec(name); }); });
    }
    // How many lines of the store speak of the task.
    std::ptrdiff_t linesOf(const std::string& name) const {
        const auto lines = folder_.lines();
        return std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
            return line.find(" exec " + name + "%00 ") != line.npos;
        });
    }

    TestSupport::StoreFolder folder_;
    TestSupport::TestClock clock_;
    TestSupport::OpenTaskSet open_;
    RuvoTSTaskSet& set_ = open_.set();
};

TEST_F(RuvoTSTaskSetWritingTest, QuestionsDoNotWaitForTheDisk) {
    const auto first = exec("first");
    set_.insert(first, false);
    auto scheduled = scheduleAndStand("second");
    const std::vector<std::function<bool()>> questions = {
        [&] { return set_.find(std::string_view("first")) == first; },
        [&] { return set_.find(first->getHandle()) == first; },
        [&] { return set_.getTaskNames("RuvoTSExecTask") == "first second "; },
        [&] { return set_.size() == 2; },
        [&] { return set_.lastStatus(first->getHandle()) == RuvoTSTask::kNeverRun; },
        [&] { return first->getState() == RuvoTSTask::Waiting; },
        // Neither does who is told that the name is taken.
        [&] { return set_.schedule("first", [] { return exec("first"); }) == nullptr; },
    };
    std::vector<std::future<bool>> answers;
    for (const auto& question : questions) {
        answers.push_back(std::async(std::launch::async, question));
    }
    for (std::size_t i = 0; i < answers.size(); ++i) {
        EXPECT_TRUE(isReady(answers[i], 10s)) << i;
    }
    EXPECT_FALSE(isReady(scheduled));
    gate().open();
    for (std::size_t i = 0; i < answers.size(); ++i) EXPECT_TRUE(answers[i].get()) << i;
    EXPECT_TRUE(scheduled.get());
}

// The answer says that the task is in the store.
TEST_F(RuvoTSTaskSetWritingTest, WhoSchedulesIsAnsweredAfterItsStore) {
    auto first = scheduleAndStand("first");
    auto second = schedule("second");
    EXPECT_TRUE(waitUntil([&] { return set_.size() == 2; }));
    EXPECT_FALSE(isReady(second, 50ms));
    EXPECT_FALSE(isReady(first));
    EXPECT_EQ(linesOf("first") + linesOf("second"), 0);
    gate().open();
    second.wait();
    EXPECT_EQ(linesOf("second"), 1);
    first.wait();
    EXPECT_EQ(linesOf("first"), 1);
}

TEST_F(RuvoTSTaskSetWritingTest, ThoseThatWaitShareTheNextStore) {
    constexpr std::size_t kOthers = 8;
    auto first = scheduleAndStand("first");
    std::vector<std::future<Task>> others;
    for (std::size_t i = 0; i < kOthers; ++i) others.push_back(schedule("t" + std::to_string(i)));
    EXPECT_TRUE(waitUntil([&] { return set_.size() == 1 + kOthers; }));
    gate().open();
    for (auto& other : others) EXPECT_TRUE(other.get());
    EXPECT_TRUE(first.get());
    EXPECT_EQ(gate().arrived(), 2);
    EXPECT_EQ(folder_.lines().size(), 1 + kOthers);
    for (std::size_t i = 0; i < kOthers; ++i) EXPECT_EQ(linesOf("t" + std::to_string(i)), 1);
}

// In the order of the set, however many are taken over at once.
TEST_F(RuvoTSTaskSetWritingTest, KeepsTheOrderOfManyTasks) {
    constexpr int kTasks = 2000;
    std::string expected;
    for (int i = 0; i < kTasks; ++i) {
        const std::string name = "t" + std::to_string(i);
        set_.insert(exec(name), false);
        expected += name + ' ';
    }
    set_.recordTaskSet();
    std::string names;
    for (const std::string& line : folder_.lines()) {
        const auto begin = line.find(" exec ") + 6;
        names += line.substr(begin, line.find('%') - begin) + ' ';
    }
    EXPECT_EQ(names, expected);
}

TEST_F(RuvoTSTaskSetWritingTest, WhatIsRemovedMeanwhileIsNotInTheStoreAfterwards) {
    std::vector<Task> tasks;
    for (const char* const name : {"a", "b", "c"}) tasks.push_back(exec(name));
    for (const Task& task : tasks) set_.insert(task, false);
    auto scheduled = scheduleAndStand("d");
    auto removed = std::async(std::launch::async, [&] { set_.remove(tasks[1]->getHandle()); });
    EXPECT_TRUE(waitUntil([&] { return set_.find(std::string_view("b")) == nullptr; }));
    EXPECT_FALSE(isReady(removed, 20ms));
    gate().open();
    removed.get();
    EXPECT_EQ(linesOf("b"), 0);
    scheduled.get();
    for (const char* const name : {"a", "c", "d"}) EXPECT_EQ(linesOf(name), 1) << name;
    tasks[1]->finish();
}

// Or a store of before would take the place of one that was read since.
TEST_F(RuvoTSTaskSetWritingTest, TheSetIsNotReleasedBeforeTheStoreIsWhole) {
    auto scheduled = scheduleAndStand("a");
    auto released = std::async(std::launch::async, [&] { return set_.release(); });
    EXPECT_FALSE(isReady(released, 50ms));
    EXPECT_EQ(set_.size(), 1u);
    gate().open();
    for (const Task& task : released.get()) task->retire();
    EXPECT_EQ(linesOf("a"), 1);
    EXPECT_TRUE(scheduled.get());
}

// ---- a store that cannot be written ----------------------------------------------

// A folder stands where the new store would be written.
class RuvoTSTaskSetRetryTest : public RuvoTSTaskSetWritingTest {
protected:
    static constexpr long kNever = 1'000'000;
    explicit RuvoTSTaskSetRetryTest() { RuvoTSTaskSet::setRetryMsForTest(kNever); }
    ~RuvoTSTaskSetRetryTest() override {
        RuvoTSTaskSet::setRetryMsForTest(RuvoTSTaskSet::kRetryMs);
        RuvoTSTaskSet::setWhileWritingForTest(nullptr);
    }
    Task scheduleNow(const std::string& name) {
        return set_.schedule(name, [&] { return exec(name); });
    }
    void breakStore() { std::filesystem::create_directory(TestSupport::toPath(folder_.fresh())); }
    void mendStore() { std::filesystem::remove(TestSupport::toPath(folder_.fresh())); }
    void remove(const Task& task) {
        task->finish();
        set_.remove(task->getHandle());
    }
    std::size_t told(const std::string& end) const {
        std::size_t count = 0;
        for (const std::string& text : log_.texts(2)) count += text.ends_with(end) ? 1u : 0u;
        return count;
    }

    const TestSupport::LogCapture log_{2};
};

TEST_F(RuvoTSTaskSetRetryTest, WritesAgainByItselfWhenTheFaultIsOver) {
    RuvoTSTaskSet::setRetryMsForTest(10);
    const Task gone = scheduleNow("gone");
    scheduleNow("stays");
    // The keeper's own, which is not armed in the moment in which it looks.
    int others = 0;
    EXPECT_TRUE(waitUntil([&] { return (others = VornSupport::VornTimer::armedCount()) >= 1; }));
    breakStore();
    remove(gone);
    scheduleNow("new");
    EXPECT_EQ(linesOf("gone"), 1);
    // Several attempts fail meanwhile.
    EXPECT_TRUE(waitUntil([&] { return VornSupport::VornTimer::armedCount() > others; }));
    EXPECT_FALSE(waitUntil([&] { return linesOf("gone") != 1; }, 200ms));
    mendStore();
    EXPECT_TRUE(waitUntil([&] { return linesOf("gone") == 0 && linesOf("new") == 1; }));
    EXPECT_EQ(linesOf("stays"), 1);
    EXPECT_TRUE(waitUntil([&] { return told(" is written again") == 1; }));
    EXPECT_EQ(told("; the old store stays"), 1u);
    EXPECT_EQ(log_.texts(2).size(), 2u);
    // Nothing wakes for it any more.
    EXPECT_TRUE(waitUntil([&] { return VornSupport::VornTimer::armedCount() <= others; }));
}

TEST_F(RuvoTSTaskSetRetryTest, WritesAgainWithTheNextChange) {
    const Task gone = scheduleNow("gone");
    breakStore();
    remove(gone);
    mendStore();
    EXPECT_EQ(linesOf("gone"), 1);
    scheduleNow("next");
    EXPECT_EQ(linesOf("gone"), 0);
    EXPECT_EQ(linesOf("next"), 1);
    EXPECT_EQ(told(" is written again"), 1u);
}

TEST_F(RuvoTSTaskSetRetryTest, WritesAgainWhenItIsReleased) {
    const Task gone = scheduleNow("gone");
    const Task stays = scheduleNow("stays");
    breakStore();
    remove(gone);
    mendStore();
    for (const Task& task : set_.release()) task->retire();
    EXPECT_EQ(linesOf("gone"), 0);
    EXPECT_EQ(linesOf("stays"), 1);
    EXPECT_EQ(told(" is written again"), 1u);
}

TEST_F(RuvoTSTaskSetRetryTest, SaysWhatIsLostWhenItIsReleased) {
    const Task gone = scheduleNow("gone");
    breakStore();
    remove(gone);
    for (const Task& task : set_.release()) task->retire();
    EXPECT_EQ(linesOf("gone"), 1);
    EXPECT_EQ(log_.beginning("RuvoTSTaskSet::release: ").size(), 1u);
    // It is not that set's any more.
    mendStore();
    set_.open([] { return true; });
    set_.release();
    EXPECT_EQ(linesOf("gone"), 1);
}

// A store that is as it should be is left alone.
TEST_F(RuvoTSTaskSetRetryTest, IsNotWrittenByARelease) {
    const Task task = scheduleNow("a");
    RuvoTSTaskSet::setWhileWritingForTest([] { gate().pass(); });
    gate().open();
    for (const Task& each : set_.release()) each->retire();
    EXPECT_EQ(gate().arrived(), 0);
}

}  // namespace
