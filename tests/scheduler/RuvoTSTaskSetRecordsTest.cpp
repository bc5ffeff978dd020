// What the task set keeps of the lines of its store.

#include "scheduler/RuvoTSTask.h"
#include "scheduler/RuvoTSTaskSet.h"
#include "tests/scheduler/SchedulerTestTools.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

using namespace RuvoService;
using TestSupport::kNoon;

namespace {

// Has something done while its line is built.
class Task : public RuvoTSTask {
public:
    explicit Task(const std::string& name) : RuvoTSTask(name, kNoon + 3600, Daily) {}

    std::string serialize() const override {
        if (const auto now = std::exchange(whileBuilt, nullptr)) now();
        return "exec " + getName() + "%00 2024 06 15 13 00 00 0 prog%00 %00 %00 %00";
    }
    int performTask() override { return 0; }
    std::optional<std::int32_t> runtaskonsystem() override { return 0; }
    std::string_view kind() const override { return "RuvoTSExecTask"; }

    mutable std::function<void()> whileBuilt;
};

class RuvoTSTaskSetRecordsTest : public testing::Test {
protected:
    using Counted = VornSupport::VornSmartPointer<Task>;
    Counted insert(const std::string& name) {
        auto task = RuvoTSTask::make<Task>(name);
        set_.insert(task, true);
        return task;
    }

    TestSupport::StoreFolder folder_;
    TestSupport::TestClock clock_;
    TestSupport::OpenTaskSet open_;
    RuvoTSTaskSet& set_ = open_.set();
};

}  // namespace

TEST_F(RuvoTSTaskSetRecordsTest, KeepsNoLineOfARecordThatIsChanging) {
    const auto a = insert("a");
    const auto b = insert("b");
    {
        const RuvoTSTaskSet::RecordChange change(*a);
        set_.recordTaskSet();
        set_.recordTaskSet();
        EXPECT_EQ(a->recordsBuiltForTest(), 3);
    }
    set_.recordTaskSet();
    set_.recordTaskSet();
    EXPECT_EQ(a->recordsBuiltForTest(), 4);
    EXPECT_EQ(b->recordsBuiltForTest(), 1);
    EXPECT_EQ(folder_.lines().size(), 2u);
}

TEST_F(RuvoTSTaskSetRecordsTest, KeepsNoLineThatWasBuiltWhileItsRecordChanged) {
    const auto a = RuvoTSTask::make<Task>("a");
    a->whileBuilt = [&] {
        std::thread([&] { const RuvoTSTaskSet::RecordChange change(*a); }).join();
    };
    set_.insert(a, true);
    EXPECT_EQ(a->recordsBuiltForTest(), 1);
    set_.recordTaskSet();
    set_.recordTaskSet();
    EXPECT_EQ(a->recordsBuiltForTest(), 2);
}

TEST_F(RuvoTSTaskSetRecordsTest, KeepsTheLinesOfTheOthersWhenATaskGoes) {
    const auto a = insert("a");
    const auto b = insert("b");
    const auto c = insert("c");
    const auto before = folder_.lines();
    set_.remove(b->getHandle());
    b->retire();
    EXPECT_EQ(folder_.lines(), (std::vector<std::string>{before[0], before[2]}));
    EXPECT_EQ(a->recordsBuiltForTest(), 1);
    EXPECT_EQ(c->recordsBuiltForTest(), 1);
}

// More than are taken over in one go.
TEST_F(RuvoTSTaskSetRecordsTest, WritesThousandsOfLinesInTheirOrder) {
    constexpr int kTasks = 1537;
    for (int i = 0; i < kTasks; ++i) {
        set_.insert(RuvoTSTask::make<Task>("t" + std::to_string(i)), false);
    }
    set_.recordTaskSet();
    const auto lines = folder_.lines();
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(kTasks));
    for (int i = 0; i < kTasks; ++i) {
        const std::string begin = "78563412 exec t" + std::to_string(i) + "%00 ";
        ASSERT_TRUE(lines[static_cast<std::size_t>(i)].starts_with(begin)) << i;
    }
    set_.recordTaskSet();
    EXPECT_EQ(folder_.lines(), lines);
}
