#include "runtime/platform/NativeThread.h"

#include "tests/runtime/platform/NativeProbe.h"

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace VornPlatform;

namespace {

// Runs `body` on a thread that startThread makes, and waits for its end.
OsError runOnThread(const ThreadOptions& options, const std::function<void()>& body) {
    struct Call {
        const std::function<void()>& body;
        std::promise<void> done;
    } call{body, {}};
    auto done = call.done.get_future();
    const OsError error = startThread(
        options,
        [](void* raw) {
            auto* const its = static_cast<Call*>(raw);
            std::promise<void> end = std::move(its->done);
            its->body();
            end.set_value();
        },
        &call);
    if (!error) done.wait();
    return error;
}

TEST(NativeThread, CallsTheBodyOnceOnAnotherThread) {
    ThreadId other = currentThreadId();
    int calls = 0;
    ASSERT_FALSE(runOnThread({}, [&] {
        other = currentThreadId();
        ++calls;
    }));
    EXPECT_NE(other, currentThreadId());
    EXPECT_EQ(calls, 1);
}

TEST(NativeThread, GivesEveryLiveThreadItsOwnNumber) {
    std::vector<std::promise<ThreadId>> numbers(16);
    std::promise<void> end;
    const std::shared_future<void> ended = end.get_future().share();
    std::vector<std::thread> threads;
    for (auto& number : numbers) {
        threads.emplace_back([&number, ended] {
            number.set_value(currentThreadId());
            ended.wait();
        });
    }
    std::set<ThreadId> seen{currentThreadId()};
    for (auto& number : numbers) seen.insert(number.get_future().get());
    end.set_value();
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(seen.size(), numbers.size() + 1);
    EXPECT_EQ(seen.count(0), 0u);
}

TEST(NativeThread, KeepsItsNumber) { EXPECT_EQ(currentThreadId(), currentThreadId()); }

class NativeThreadNames : public testing::TestWithParam<std::string> {};

TEST_P(NativeThreadNames, ShowInTheSystemsTools) {
    const std::string name = GetParam();
    std::string seen;
    ASSERT_FALSE(runOnThread({.name = name.c_str()},
                             [&] { seen = NativeProbe::threadName(currentThreadId()); }));
    EXPECT_EQ(seen, NativeProbe::shownName(name));
}

INSTANTIATE_TEST_SUITE_P(Lengths, NativeThreadNames,
                         testing::Values("T", "TCPServer", "exactly15bytes!", "sixteen bytes in",
                                         "InventoryWatcherTimerThread", std::string(200, 'n')));

TEST(NativeThread, CopiesTheName) {
    std::string name = "before";
    std::promise<void> changed;
    std::promise<std::string> seen;
    struct Call {
        std::promise<void>& changed;
        std::promise<std::string>& seen;
    } call{changed, seen};
    ASSERT_FALSE(startThread(
        {.name = name.c_str()},
        [](void* raw) {
            auto* const its = static_cast<Call*>(raw);
            its->changed.get_future().wait();
            its->seen.set_value(NativeProbe::threadName(currentThreadId()));
        },
        &call));
    name = "behind";
    changed.set_value();
    EXPECT_EQ(seen.get_future().get(), "before");
}

TEST(NativeThread, NamesTheCallingThread) {
    std::string seen;
    std::thread([&] {
        nameCurrentThread("first");
        nameCurrentThread("second");
        seen = NativeProbe::threadName(currentThreadId());
    }).join();
    EXPECT_EQ(seen, "second");
}

TEST(NativeThread, HasTheStackThatWasAskedFor) {
    for (const std::size_t bytes : {std::size_t{256} << 10, std::size_t{3} << 20}) {
        std::size_t got = 0;
        ASSERT_FALSE(runOnThread({.stackBytes = bytes},
                                 [&] { got = NativeProbe::currentStackBytes(); }));
        EXPECT_GE(got, NativeProbe::leastStackFor(bytes));
        EXPECT_LE(got, NativeProbe::mostStackFor(bytes));
    }
}

TEST(NativeThread, RaisesAStackThatIsTooSmall) {
    bool ran = false;
    ASSERT_FALSE(runOnThread({.stackBytes = 1}, [&] { ran = true; }));
    EXPECT_TRUE(ran);
}

TEST(NativeThread, SaysThatTheSystemHasNoRoom) {
    const std::size_t bytes = NativeProbe::impossibleStack();
    bool ran = false;
    const OsError error = runOnThread({.stackBytes = bytes}, [&] { ran = true; });
    EXPECT_EQ(ran, bytes == 0);
    EXPECT_EQ(error.condition(), bytes == 0 ? OsCondition::None : OsCondition::TooManyOpen)
        << error.text();
}

TEST(NativeThread, LeavesNothingBehind) {
    const int before = NativeProbe::countHandles();
    for (int i = 0; i < 200; ++i) ASSERT_FALSE(runOnThread({.name = "short"}, [] {}));
    EXPECT_LE(NativeProbe::countHandles(), before + 50);
}

// The priorities that any user may choose.
TEST(NativeThread, TakesLowerPriorities) {
    for (const auto priority : {ThreadPriority::BelowNormal, ThreadPriority::Lowest,
                                ThreadPriority::Idle}) {
        OsError error;
        int number = 0;
        std::thread([&] {
            error = setThreadPriority(currentThreadId(), priority);
            number = NativeProbe::threadPriority(currentThreadId());
        }).join();
        EXPECT_FALSE(error) << error.text();
        EXPECT_EQ(number, NativeProbe::priorityNumber(priority));
    }
}

TEST(NativeThread, TakesHigherPrioritiesOrSaysThatItMayNot) {
    for (const auto priority : {ThreadPriority::AboveNormal, ThreadPriority::Highest,
                                ThreadPriority::TimeCritical}) {
        OsError error;
        int before = 0;
        int after = 0;
        std::thread([&] {
            before = NativeProbe::threadPriority(currentThreadId());
            error = setThreadPriority(currentThreadId(), priority);
            after = NativeProbe::threadPriority(currentThreadId());
        }).join();
        if (error) {
            EXPECT_EQ(error.condition(), OsCondition::AccessDenied) << error.text();
            EXPECT_EQ(after, before);
        } else {
            EXPECT_EQ(after, NativeProbe::priorityNumber(priority));
        }
    }
}

TEST(NativeThread, ChangesThePriorityOfOneThreadOnly) {
    const int mine = NativeProbe::threadPriority(currentThreadId());
    std::promise<ThreadId> number;
    std::promise<void> end;
    std::thread other([&] {
        number.set_value(currentThreadId());
        end.get_future().wait();
    });
    const ThreadId id = number.get_future().get();
    EXPECT_FALSE(setThreadPriority(id, ThreadPriority::Lowest));
    EXPECT_EQ(NativeProbe::threadPriority(id), NativeProbe::priorityNumber(ThreadPriority::Lowest));
    EXPECT_EQ(NativeProbe::threadPriority(currentThreadId()), mine);
    end.set_value();
    other.join();
}

// Unless the system forbids to raise a priority again that was lowered.
TEST(NativeThread, StartsWithThePriorityOfTheProcessWhoeverStartsIt) {
    const int normal = NativeProbe::threadPriority(currentThreadId());
    bool mayRaise = false;
    std::thread([&] {
        ASSERT_FALSE(setThreadPriority(currentThreadId(), ThreadPriority::Lowest));
        mayRaise = !setThreadPriority(currentThreadId(), ThreadPriority::Normal);
    }).join();
    int started = 1000;
    OsError error;
    std::thread([&] {
        ASSERT_FALSE(setThreadPriority(currentThreadId(), ThreadPriority::Lowest));
        error = runOnThread({}, [&] { started = NativeProbe::threadPriority(currentThreadId()); });
    }).join();
    ASSERT_FALSE(error);
    EXPECT_EQ(started, mayRaise ? normal : NativeProbe::priorityNumber(ThreadPriority::Lowest));
}

TEST(NativeThread, SaysThatAThreadDoesNotExist) {
    EXPECT_TRUE(setThreadPriority(0x7fffffff, ThreadPriority::Lowest));
}

}  // namespace
