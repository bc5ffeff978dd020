// A hundred thousand waiting tasks. A program of its own: it counts what is
// allocated.

#include "scheduler/RuvoTSBlobTask.h"
#include "scheduler/RuvoTSExecTask.h"
#include "scheduler/RuvoTSTaskSet.h"
#include "scheduler/RuvoTSTimeKeeper.h"
#include "tests/runtime/platform/NativeProbe.h"
#include "tests/scheduler/SchedulerTestTools.h"

#include <gtest/gtest.h>

#include <malloc.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

namespace {

std::atomic<std::size_t> allocated{0};
// What the allocator keeps beside each piece.
constexpr std::size_t kOverhead = 8;

void* allocate(std::size_t size) {
    void* const piece = std::malloc(size);
    if (piece == nullptr) std::abort();
    allocated += ::malloc_usable_size(piece) + kOverhead;
    return piece;
}

void deallocate(void* piece) {
    if (piece == nullptr) return;
    allocated -= ::malloc_usable_size(piece) + kOverhead;
    std::free(piece);
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
// Inlined, the compiler takes it for a mistake.
[[gnu::noinline]] void operator delete(void* piece) noexcept { deallocate(piece); }
[[gnu::noinline]] void operator delete[](void* piece) noexcept { deallocate(piece); }
[[gnu::noinline]] void operator delete(void* piece, std::size_t) noexcept { deallocate(piece); }
[[gnu::noinline]] void operator delete[](void* piece, std::size_t) noexcept { deallocate(piece); }

using namespace RuvoService;

namespace {

constexpr std::size_t kMany = 100'000;
constexpr std::size_t kBytesATask = 1536;  // beyond its own texts

// Name, program, folder, arguments and log file.
std::array<std::string, 5> textsOf(std::size_t number) {
    const std::string text = std::to_string(number);
    return {"a task with a name " + text, "/usr/bin/some-program", "/var/lib/some/folder",
            "--with --arguments " + text, "/var/log/some.log"};
}

class RuvoTSScaleTest : public testing::Test {
protected:
    static RuvoTSTaskSet::Task make(std::size_t number) {
        const auto [name, program, folder, arguments, log] = textsOf(number);
        return RuvoTSTask::make<RuvoTSExecTask>(name, TestSupport::kNoon + 3600, RuvoTSTask::Daily,
                                                program, folder, arguments, log);
    }
    void fill(std::size_t count) {
        for (std::size_t i = open_.set().size(); i < count; ++i) {
            open_.set().insert(make(i), i + 1 == count);
        }
    }
    // Nanoseconds for one look-up of each kind.
    double lookUpTime() {
        const auto size = open_.set().size();
        std::vector<std::int32_t> handles;
        std::vector<std::string> names;
        for (std::size_t i = 0; i < 10; ++i) {
            const auto name = "a task with a name " + std::to_string(i * (size / 10));
            names.push_back(name);
            handles.push_back(open_.set().find(std::string_view(name))->getHandle());
        }
        constexpr int kRounds = 20'000;
        const auto begin = std::chrono::steady_clock::now();
        for (std::size_t i = 0; i < kRounds; ++i) {
            EXPECT_TRUE(open_.set().find(handles[i % 10]));
            EXPECT_TRUE(open_.set().find(std::string_view(names[i % 10])));
        }
        const std::chrono::duration<double, std::nano> taken =
            std::chrono::steady_clock::now() - begin;
        return taken.count() / kRounds;
    }

    TestSupport::StoreFolder folder_;
    TestSupport::TestClock clock_;
    TestSupport::OpenTaskSet open_;
};

TEST_F(RuvoTSScaleTest, WaitingTasksCostNoThreadsAndLittleMemory) {
    ASSERT_TRUE(NativeProbe::replacesAllocationEverywhere());
    fill(10);
    const int threads = NativeProbe::countThreads();
    const std::size_t before = allocated;
    fill(kMany);
    std::size_t own = 0;
    for (const std::string& text : textsOf(10)) own += text.size();
    const std::size_t each = (allocated - before) / (kMany - 10) - own;
    RecordProperty("bytes_a_task", static_cast<int>(each));
    EXPECT_LE(each, kBytesATask);
    // The one more looks at the clock every few seconds for all of them.
    EXPECT_LE(NativeProbe::countThreads(), threads + 1);
    EXPECT_EQ(RuvoTSTimeKeeper::getInstance().waiting(), kMany);
    EXPECT_EQ(folder_.lines().size(), kMany);
}

// What is long is kept once, by the task itself, also after the store was written.
TEST_F(RuvoTSScaleTest, LongTextsAndBytesAreKeptOnce) {
    ASSERT_TRUE(NativeProbe::replacesAllocationEverywhere());
    constexpr std::size_t kLong = 100'000;
    constexpr std::size_t kTasks = 50;
    fill(10);
    std::size_t before = allocated;
    for (std::size_t i = 0; i < kTasks; ++i) {
        open_.set().insert(RuvoTSTask::make<RuvoTSExecTask>(
                               std::to_string(i), TestSupport::kNoon + 3600, RuvoTSTask::Daily,
                               "program", "", std::string(kLong, '-'), ""),
                           i + 1 == kTasks);
    }
    EXPECT_LE((allocated - before) / kTasks, kLong + 2 * kBytesATask);
    EXPECT_GT(std::filesystem::file_size(folder_.store()), 3 * kLong * kTasks);

    constexpr std::size_t kBlob = 10'000'000;
    before = allocated;
    open_.set().insert(RuvoTSTask::make<RuvoTSBlobTask>("blob", TestSupport::kNoon + 3600,
                                                        RuvoTSTask::Daily,
                                                        std::string(kBlob, 'b')),
                       true);
    EXPECT_LE(allocated - before, kBlob + kBlob / 100);
    EXPECT_GT(std::filesystem::file_size(folder_.store()), 2 * kBlob);
}

// Not a measurement: one that looks at every task would take thousands of times
// as long.
TEST_F(RuvoTSScaleTest, ManyTasksAreFoundAsQuicklyAsFew) {
    fill(10);
    lookUpTime();
    const double few = lookUpTime();
    fill(kMany);
    lookUpTime();
    const double many = lookUpTime();
    RecordProperty("nanoseconds_few", static_cast<int>(few));
    RecordProperty("nanoseconds_many", static_cast<int>(many));
    EXPECT_LT(many, 20 * few);
}

TEST_F(RuvoTSScaleTest, RemovingOneOfManyBuildsNoOtherLine) {
    fill(10'000);
    const auto kept = open_.set().find("a task with a name 5001");
    const auto gone = open_.set().find("a task with a name 5000");
    open_.set().remove(gone->getHandle());
    open_.set().remove(-1);
    EXPECT_EQ(kept->recordsBuiltForTest(), 1);
    EXPECT_EQ(folder_.lines().size(), 9999u);
}

}  // namespace
