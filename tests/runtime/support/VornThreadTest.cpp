#include "runtime/support/VornThread.h"

#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"
#include "runtime/support/VornThreadName.h"
#include "tests/runtime/platform/NativeProbe.h"
#include "tests/runtime/support/AllocationCount.h"
#include "tests/runtime/support/CoreTestTools.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace VornSupport;
using CoreTest::Gate;
using CoreTest::LogCapture;
using Texts = std::vector<std::string>;

namespace {

class TestThread : public VornThread {
public:
    explicit TestThread(std::function<int()> body, const std::string& name = "TestThread")
        : VornThread(name), body_(std::move(body)) {}

protected:
    int run() override { return body_(); }

private:
    std::function<int()> body_;
};

class Handler : public VornDependent {
public:
    explicit Handler(std::function<void(const VornNotification&)> body) : body_(std::move(body)) {}
    void handleNotification(VornCollaborator&, const VornNotification& told) override {
        body_(told);
    }

private:
    std::function<void(const VornNotification&)> body_;
};

// A thread whose end has been waited for still counts for a moment.
int settledLiveCount() {
    EXPECT_TRUE(VornThread::waitForLiveCount(0, 60'000));
    return 0;
}

// On Windows the runtimes beneath the two kinds take locks at a thread's end.
TEST(VornThread, EndsBesideThreadsOfTheStandardLibrary) {
    const LogCapture log;
    for (int round = 0; round < 200; ++round) {
        std::atomic<int> running{0};
        const auto body = [&] {
            VORN_LOG(0, "as late as the others");
            ++running;
            while (running < 4) std::this_thread::yield();
            return 0;
        };
        TestThread ours[2] = {TestThread(body), TestThread(body)};
        for (auto& thread : ours) ASSERT_TRUE(thread.start());
        std::thread others[2] = {std::thread(body), std::thread(body)};
        for (auto& thread : others) thread.join();
        for (auto& thread : ours) thread.waitForThreadExit();
    }
}

TEST(VornThread, RunsItsBodyOnceOnAThreadOfItsOwn) {
    std::atomic<int> calls{0};
    std::thread::id where;
    TestThread thread([&] {
        where = std::this_thread::get_id();
        return ++calls;
    });
    EXPECT_EQ(calls, 0);
    ASSERT_TRUE(thread.start());
    thread.waitForThreadExit();
    EXPECT_EQ(calls, 1);
    EXPECT_NE(where, std::this_thread::get_id());
}

TEST(VornThread, EndsAtOnceWithoutABody) {
    VornThread thread("Empty");
    ASSERT_TRUE(thread.start());
    thread.waitForThreadExit();
    EXPECT_EQ(thread.getExitCode(), 0);
}

TEST(VornThread, KeepsWhatItsBodyReturned) {
    TestThread thread([] { return 42; });
    EXPECT_EQ(thread.getExitCode(), -1);
    ASSERT_TRUE(thread.start());
    thread.waitForThreadExit();
    EXPECT_EQ(thread.getExitCode(), 42);
}

TEST(VornThread, HasAName) {
    EXPECT_EQ(VornThread("RuvoServiceThread").getName(), "RuvoServiceThread");
    EXPECT_EQ(VornThread("").getName(), "");
}

TEST(VornThread, RunsThoughThereIsNoMemoryWhenItBegins) {
    const std::string name = "a name that is longer than fits";
    bool ran = false;
    TestThread thread(
        [&] {
            ran = true;
            return 5;
        },
        name);
    const AllocationFailure noMemory(name);
    ASSERT_TRUE(thread.start());
    thread.waitForThreadExit();
    EXPECT_TRUE(ran);
    EXPECT_EQ(thread.getExitCode(), 5);
}

TEST(VornThread, ShowsItsNameToTheSystemAndTheLog) {
    for (const std::string name : {"TCPServer", "RuvoServiceClientThread"}) {
        std::string system;
        std::string log;
        TestThread thread(
            [&] {
                system = NativeProbe::threadName(VornPlatform::currentThreadId());
                log = threadName();
                return 0;
            },
            name);
        ASSERT_TRUE(thread.start());
        thread.waitForThreadExit();
        EXPECT_EQ(system, NativeProbe::shownName(name));
        EXPECT_EQ(log, name);
    }
}

TEST(VornThread, RunsARunnableWithItsWorkInformation) {
    class Work : public VornWorkInformation {
    public:
        int number = 0;
    };
    class Adder : public VornThread::VornRunnable {
    public:
        int run(VornWorkInformation& information) override {
            return ++dynamic_cast<Work&>(information).number;
        }
    };
    const auto work = makeCounted<Work>();
    work->number = 6;
    VornThread thread(makeCounted<Adder>(), "Adder");
    thread.setWorkInfo(work);
    ASSERT_TRUE(thread.start());
    thread.waitForThreadExit();
    EXPECT_EQ(thread.getExitCode(), 7);
    EXPECT_EQ(work->number, 7);
}

TEST(VornThread, GivesARunnableInformationThatItMayKeep) {
    class Keeper : public VornThread::VornRunnable {
    public:
        int run(VornWorkInformation& information) override {
            kept = &information;
            return 0;
        }
        VornSmartPointer<VornWorkInformation> kept;
    };
    const auto keeper = makeCounted<Keeper>();
    VornThread thread(keeper, "Keeper");
    ASSERT_TRUE(thread.start());
    thread.waitForThreadExit();
    EXPECT_EQ(keeper->kept->refCount(), 1u);
    EXPECT_EQ(keeper->kept->getClassName(), "VornWorkInformation");
}

TEST(VornThread, HoldsTheInformationThatItsRunnableWorksOn) {
    class Work : public VornWorkInformation {
    public:
        explicit Work(std::atomic<bool>& destroyed) : destroyed_(destroyed) {}
        ~Work() override { destroyed_ = true; }

    private:
        std::atomic<bool>& destroyed_;
    };
    class Waiter : public VornThread::VornRunnable {
    public:
        Waiter(Gate& entered, Gate& leave, std::atomic<bool>& destroyed)
            : entered_(entered), leave_(leave), destroyed_(destroyed) {}
        int run(VornWorkInformation&) override {
            entered_.open();
            leave_.wait();
            return destroyed_ ? 1 : 0;
        }

    private:
        Gate& entered_;
        Gate& leave_;
        std::atomic<bool>& destroyed_;
    };
    Gate entered;
    Gate leave;
    std::atomic<bool> destroyed{false};
    VornThread thread(makeCounted<Waiter>(entered, leave, destroyed), "Waiter");
    thread.setWorkInfo(makeCounted<Work>(destroyed));
    ASSERT_TRUE(thread.start());
    ASSERT_TRUE(entered.wait());
    thread.setWorkInfo(nullptr);
    leave.open();
    thread.waitForThreadExit();
    EXPECT_EQ(thread.getExitCode(), 0);
}

TEST(VornThread, TakesOtherInformationWhileItStarts) {
    class Work : public VornWorkInformation {
    public:
        std::atomic<int> alive{1};
        ~Work() override { alive = 0; }
    };
    class Looker : public VornThread::VornRunnable {
    public:
        int run(VornWorkInformation& information) override {
            return dynamic_cast<Work&>(information).alive;
        }
    };
    VornThread thread(makeCounted<Looker>(), "Looker");
    thread.setWorkInfo(makeCounted<Work>());
    for (int round = 0; round < 300; ++round) {
        ASSERT_TRUE(thread.start());
        for (int i = 0; i < 5; ++i) thread.setWorkInfo(makeCounted<Work>());
        thread.waitForThreadExit();
        ASSERT_EQ(thread.getExitCode(), 1);
    }
}

TEST(VornThread, LetsGoOfTheInformationWithItself) {
    const auto work = makeCounted<VornWorkInformation>();
    {
        VornThread thread("Short");
        thread.setWorkInfo(work);
        EXPECT_EQ(work->refCount(), 2u);
        thread.setWorkInfo(work);
        EXPECT_EQ(work->refCount(), 2u);
        ASSERT_TRUE(thread.start());
        thread.waitForThreadExit();
    }
    EXPECT_EQ(work->refCount(), 1u);
}

TEST(VornThread, KeepsItsRunnable) {
    class Runnable : public VornThread::VornRunnable {
    public:
        int run(VornWorkInformation&) override { return 3; }
    };
    VornThread thread(VornSmartPointer<VornThread::VornRunnable>(new Runnable), "Runnable");
    ASSERT_TRUE(thread.start());
    thread.waitForThreadExit();
    EXPECT_EQ(thread.getExitCode(), 3);
}

TEST(VornThread, WaitsForTheEndForSoLong) {
    Gate leave;
    TestThread thread([&] { return leave.wait() ? 1 : 0; });
    EXPECT_TRUE(thread.wait(0)) << "never started";
    thread.waitForThreadExit();
    ASSERT_TRUE(thread.start());
    EXPECT_FALSE(thread.wait(0));
    EXPECT_FALSE(thread.wait(10));
    leave.open();
    EXPECT_TRUE(thread.wait(60'000));
    EXPECT_TRUE(thread.wait(-1));
    EXPECT_TRUE(thread.wait(0)) << "ended";
    EXPECT_EQ(thread.getExitCode(), 1);
}

TEST(VornThread, EndsTheWaitsOfManyThreads) {
    Gate leave;
    TestThread thread([&] { return leave.wait() ? 1 : 0; });
    ASSERT_TRUE(thread.start());
    std::vector<std::thread> waiters;
    std::atomic<int> saw{0};
    for (int i = 0; i < 6; ++i) {
        waiters.emplace_back([&, i] {
            thread.wait(i % 2 == 0 ? -1 : 60'000);
            saw += thread.getExitCode();
        });
    }
    leave.open();
    for (auto& waiter : waiters) waiter.join();
    EXPECT_EQ(saw, 6);
}

TEST(VornThread, DoesNotWaitForItself) {
    bool waited = true;
    TestThread thread([&] {
        thread.waitForThreadExit();
        waited = thread.wait(-1) || thread.wait(60'000);
        return 5;
    });
    ASSERT_TRUE(thread.start());
    thread.waitForThreadExit();
    EXPECT_FALSE(waited);
    EXPECT_EQ(thread.getExitCode(), 5);
}

TEST(VornThread, IsAskedToStop) {
    Gate entered;
    TestThread thread([&] {
        entered.open();
        return TestSupport::waitUntil([&] { return thread.isStopRequested(); }) ? 1 : 0;
    });
    EXPECT_FALSE(thread.isStopRequested());
    ASSERT_TRUE(thread.start());
    ASSERT_TRUE(entered.wait());
    EXPECT_FALSE(thread.isStopRequested());
    thread.stop();
    EXPECT_TRUE(thread.isStopRequested());
    thread.waitForThreadExit();
    EXPECT_EQ(thread.getExitCode(), 1);
}

TEST(VornThread, StartsAgainAfterItsEnd) {
    int runs = 0;
    Gate leave;
    TestThread thread([&] {
        if (++runs == 2) leave.wait();
        return thread.isStopRequested() ? -5 : runs;
    });
    ASSERT_TRUE(thread.start());
    thread.waitForThreadExit();
    EXPECT_EQ(thread.getExitCode(), 1);
    thread.stop();
    ASSERT_TRUE(thread.start());
    EXPECT_EQ(thread.getExitCode(), -1) << "the old code is gone";
    leave.open();
    thread.waitForThreadExit();
    EXPECT_EQ(thread.getExitCode(), 2) << "the old request to stop is gone";
}

TEST(VornThread, RefusesToStartTwice) {
    const LogCapture log(2);
    Gate leave;
    std::atomic<int> runs{0};
    TestThread thread(
        [&] {
            ++runs;
            leave.wait();
            return 0;
        },
        "Twice");
    ASSERT_TRUE(thread.start());
    EXPECT_FALSE(thread.start());
    leave.open();
    thread.waitForThreadExit();
    EXPECT_EQ(runs, 1);
    const auto records = CoreTest::recordsWith(log, "VornThread::start");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].level, 2);
    EXPECT_EQ(records[0].text, "VornThread::start: Twice is running already");
}

// Where the system gives every stack that can be asked for, the start succeeds.
TEST(VornThread, SaysThatTheSystemHasNoThreadToGive) {
    const LogCapture log(2);
    const int before = settledLiveCount();
    std::atomic<int> runs{0};
    TestThread thread([&] { return ++runs; }, "Greedy");
    thread.setStackSize(NativeProbe::impossibleStack());
    const bool possible = NativeProbe::impossibleStack() == 0;
    EXPECT_EQ(thread.start(), possible);
    thread.waitForThreadExit();
    EXPECT_EQ(runs, possible ? 1 : 0);
    EXPECT_EQ(CoreTest::recordsWith(log, "VornThread::start: no thread for Greedy: ").size(),
              possible ? 0u : 1u);
    EXPECT_TRUE(VornThread::waitForLiveCount(before, 60'000));
    thread.setStackSize(0);
    EXPECT_TRUE(thread.start()) << "a failed start is not the last";
    thread.waitForThreadExit();
    EXPECT_EQ(runs, possible ? 2 : 1);
}

// Whoever waits for the end of an object that is not marked may destroy it then: its
// name is not to be used any more.
TEST(VornThread, IsUnderWayUntilItsRefusalHasBeenLogged) {
    static VornThread* refused;
    static int reports;
    static int endsBefore;
    reports = endsBefore = 0;
    TestThread thread([] { return 0; }, "Refused");
    refused = &thread;
    thread.setStackSize(NativeProbe::impossibleStack());
    const LogCapture settings(4);
    auto& log = VornLogging::getInstance();
    log.setSystemWriterForTest([](VornPlatform::SystemLogSeverity, const std::string& text) {
        if (text.find("no thread for Refused") == std::string::npos) return;
        ++reports;
        if (refused->wait(0)) ++endsBefore;
    });
    log.setTarget(static_cast<int>(VornLogTarget::System));
    const bool possible = thread.start();
    thread.waitForThreadExit();
    log.setTarget(static_cast<int>(VornLogTarget::None));
    log.setSystemWriterForTest(nullptr);
    EXPECT_EQ(reports, possible ? 0 : 1);
    EXPECT_EQ(endsBefore, 0);
}

TEST(VornThread, HasTheStackOfAClientThread) {
    EXPECT_EQ(VornThread::kClientStack, 262'144u);
    std::size_t bytes = 0;
    TestThread thread([&] {
        bytes = NativeProbe::currentStackBytes();
        return 0;
    });
    thread.setStackSize(VornThread::kClientStack);
    ASSERT_TRUE(thread.start());
    thread.waitForThreadExit();
    EXPECT_GE(bytes, NativeProbe::leastStackFor(VornThread::kClientStack));
    EXPECT_LE(bytes, NativeProbe::mostStackFor(VornThread::kClientStack));
}

class VornThreadExceptions : public testing::Test {
protected:
    Texts logOf(const std::function<int()>& body) {
        const LogCapture log(2);
        TestThread thread(body, "Faulty");
        bool told = false;
        Handler handler([&](const VornNotification&) { told = true; });
        thread.addDependent(handler);
        EXPECT_TRUE(thread.start());
        thread.waitForThreadExit();
        thread.removeDependent(handler);
        EXPECT_EQ(thread.getExitCode(), -1);
        EXPECT_TRUE(told) << "ThreadDone comes all the same";
        for (const auto& record : CoreTest::recordsWith(log, "VornThread::run")) {
            EXPECT_EQ(record.level, 2);
            EXPECT_EQ(record.thread, "Faulty");
        }
        return CoreTest::textsWith(log, "VornThread::run");
    }
};

TEST_F(VornThreadExceptions, AreCaughtAndLogged) {
    EXPECT_EQ(logOf([]() -> int { throw std::runtime_error("boom"); }),
              Texts{"VornThread::run: Faulty: exception: boom"});
    EXPECT_EQ(logOf([]() -> int { throw VornException("own kind", 7); }),
              Texts{"VornThread::run: Faulty: exception: own kind"});
    EXPECT_EQ(logOf([]() -> int { throw 5; }), Texts{"VornThread::run: Faulty: unknown exception"});
}

TEST_F(VornThreadExceptions, OfARunnableAreCaughtToo) {
    class Thrower : public VornThread::VornRunnable {
    public:
        int run(VornWorkInformation&) override { throw std::runtime_error("from a runnable"); }
    };
    const LogCapture log(2);
    VornThread thread(makeCounted<Thrower>(), "Thrower");
    ASSERT_TRUE(thread.start());
    thread.waitForThreadExit();
    EXPECT_EQ(CoreTest::textsWith(log, "VornThread::run"),
              Texts{"VornThread::run: Thrower: exception: from a runnable"});
}

TEST_F(VornThreadExceptions, OfDependentsAreCaughtToo) {
    const LogCapture log(2);
    TestThread thread([] { return 4; }, "Told");
    Handler handler([](const VornNotification&) { throw std::runtime_error("not today"); });
    thread.addDependent(handler);
    ASSERT_TRUE(thread.start());
    thread.waitForThreadExit();
    thread.removeDependent(handler);
    EXPECT_EQ(thread.getExitCode(), 4);
    EXPECT_EQ(CoreTest::textsWith(log, "VornThread::notify"),
              Texts{"VornThread::notify: Told: exception: not today"});
}

TEST_F(VornThreadExceptions, OfADependentThatAlsoDropsTheThread) {
    const LogCapture log(2);
    const int before = settledLiveCount();
    const std::string name = "A name too long for the object itself";
    auto thread = makeCounted<TestThread>([] { return 4; }, name);
    Handler handler([&](const VornNotification&) {
        thread = nullptr;
        throw 1;
    });
    thread->addDependent(handler);
    ASSERT_TRUE(VornSmartPointer<TestThread>(thread)->start());
    EXPECT_TRUE(VornThread::waitForLiveCount(before, 60'000));
    EXPECT_EQ(CoreTest::textsWith(log, "VornThread::notify"),
              Texts{"VornThread::notify: " + name + ": unknown exception"});
}

TEST(VornThreadDone, ComesOnTheEndingThreadBeforeTheEndIsKnown) {
    std::thread::id body;
    std::thread::id told;
    std::string kind;
    TestThread thread([&] {
        body = std::this_thread::get_id();
        return 9;
    });
    int codeThen = 0;
    bool endedThen = true;
    Handler handler([&](const VornNotification& what) {
        told = std::this_thread::get_id();
        kind = what.getClassName();
        codeThen = thread.getExitCode();
        endedThen = thread.wait(0);
    });
    thread.addDependent(handler);
    ASSERT_TRUE(thread.start());
    thread.waitForThreadExit();
    EXPECT_EQ(kind, "ThreadDone");
    EXPECT_EQ(told, body);
    EXPECT_EQ(codeThen, -1);
    EXPECT_FALSE(endedThen);
    EXPECT_EQ(thread.getExitCode(), 9);
    thread.removeDependent(handler);
}

// An owned thread may be destroyed the moment its end is known.
TEST(VornThread, MayBeDestroyedAfterWaiting) {
    for (int round = 0; round < 300; ++round) {
        auto thread = std::make_unique<TestThread>([] { return 0; });
        ASSERT_TRUE(thread->start());
        EXPECT_TRUE(thread->wait(round % 2 == 0 ? -1 : 60'000));
    }
}

class Marked : public VornThread {
public:
    struct Ledger {
        std::mutex mutex;
        Texts entries;
        void write(const std::string& entry) {
            const std::lock_guard<std::mutex> lock(mutex);
            entries.push_back(entry);
        }
    };

    explicit Marked(Ledger& ledger, std::function<void(Marked&)> body = {})
        : VornThread("Marked"), ledger_(ledger), body_(std::move(body)) {
        setMarkForDeath();
    }
    ~Marked() override { ledger_.write("freed"); }

protected:
    int run() override {
        ledger_.write("run");
        if (body_) body_(*this);
        return 0;
    }

private:
    Ledger& ledger_;
    std::function<void(Marked&)> body_;
};

TEST(VornThreadMarkedForDeath, IsFreedOnceAfterItsThreadDone) {
    const int before = settledLiveCount();
    Marked::Ledger ledger;
    Handler handler([&](const VornNotification&) { ledger.write("done"); });
    {
        const auto thread = makeCounted<Marked>(ledger);
        thread->addDependent(handler);
        ASSERT_TRUE(thread->start());
    }
    ASSERT_TRUE(VornThread::waitForLiveCount(before, 60'000));
    EXPECT_EQ(ledger.entries, (Texts{"run", "done", "freed"}));
}

TEST(VornThreadMarkedForDeath, NeedsNoOtherReference) {
    const int before = settledLiveCount();
    Marked::Ledger ledger;
    auto* const thread = new Marked(ledger);  // NOLINT: as the system's own threads are started
    ASSERT_TRUE(thread->start());
    ASSERT_TRUE(VornThread::waitForLiveCount(before, 60'000));
    EXPECT_EQ(ledger.entries, (Texts{"run", "freed"}));
}

TEST(VornThreadMarkedForDeath, LivesOnWhileOthersHoldIt) {
    const int before = settledLiveCount();
    Marked::Ledger ledger;
    auto thread = makeCounted<Marked>(ledger);
    ASSERT_TRUE(thread->start());
    ASSERT_TRUE(VornThread::waitForLiveCount(before, 60'000));
    EXPECT_EQ(ledger.entries, Texts{"run"});
    EXPECT_EQ(thread->refCount(), 1u);
    EXPECT_EQ(thread->getExitCode(), 0);
    thread = nullptr;
    EXPECT_EQ(ledger.entries, (Texts{"run", "freed"}));
}

TEST(VornThreadMarkedForDeath, IsFreedWhenItsBodyThrows) {
    const int before = settledLiveCount();
    Marked::Ledger ledger;
    ASSERT_TRUE(
        makeCounted<Marked>(ledger, [](Marked&) { throw std::runtime_error("boom"); })->start());
    ASSERT_TRUE(VornThread::waitForLiveCount(before, 60'000));
    EXPECT_EQ(ledger.entries, (Texts{"run", "freed"}));
}

TEST(VornThreadMarkedForDeath, IsFreedWhenItCouldNotStart) {
    const int before = settledLiveCount();
    Marked::Ledger ledger;
    {
        const auto thread = makeCounted<Marked>(ledger);
        thread->setStackSize(NativeProbe::impossibleStack());
        EXPECT_EQ(thread->start(), NativeProbe::impossibleStack() == 0);
        ASSERT_TRUE(VornThread::waitForLiveCount(before, 60'000));
        EXPECT_EQ(thread->refCount(), 1u);
    }
    EXPECT_EQ(ledger.entries.back(), "freed");
}

TEST(VornThreadMarkedForDeath, IsFreedWhenItCouldNeitherStartNorSayWhy) {
    const int before = settledLiveCount();
    const LogCapture log;
    Marked::Ledger ledger;
    {
        const auto thread = makeCounted<Marked>(ledger);
        bool started = false;
        {
            const AllocationFailure noMemory(threadName());
            started = thread->start();
        }
        EXPECT_EQ(started, !NativeProbe::replacesAllocationEverywhere());
        ASSERT_TRUE(VornThread::waitForLiveCount(before, 60'000));
        EXPECT_TRUE(thread->wait(0));
        EXPECT_EQ(thread->refCount(), 1u);
    }
    EXPECT_EQ(ledger.entries.back(), "freed");
}

// A mark that comes after the start concerns the next one: nothing was held.
TEST(VornThreadMarkedForDeath, TakesNoNoticeOfALateMark) {
    std::atomic<bool> freed{false};
    class Late : public VornThread {
    public:
        explicit Late(std::atomic<bool>& f) : VornThread("Late"), freed_(f) {}
        ~Late() override { freed_ = true; }

    protected:
        int run() override {
            setMarkForDeath();
            return 0;
        }

    private:
        std::atomic<bool>& freed_;
    };
    const int before = settledLiveCount();
    auto thread = makeCounted<Late>(freed);
    ASSERT_TRUE(thread->start());
    thread->waitForThreadExit();
    ASSERT_TRUE(VornThread::waitForLiveCount(before, 60'000));
    EXPECT_FALSE(freed);
    EXPECT_EQ(thread->refCount(), 1u);
}

TEST(VornThreadMarkedForDeath, IsFreedByHundredsExactlyOnce) {
    const int before = settledLiveCount();
    Marked::Ledger ledger;
    CoreTest::onThreads(4, [&](int) {
        for (int i = 0; i < 100; ++i) EXPECT_TRUE(makeCounted<Marked>(ledger)->start());
    });
    ASSERT_TRUE(VornThread::waitForLiveCount(before, 60'000));
    EXPECT_EQ(std::count(ledger.entries.begin(), ledger.entries.end(), "run"), 400);
    EXPECT_EQ(std::count(ledger.entries.begin(), ledger.entries.end(), "freed"), 400);
}

TEST(VornThreadLiveCount, CountsFromTheStartToTheEnd) {
    const int before = settledLiveCount();
    Gate leave;
    TestThread first([&] { return leave.wait() ? 1 : 0; });
    TestThread second([&] { return leave.wait() ? 1 : 0; });
    EXPECT_EQ(VornThread::liveCount(), before);
    ASSERT_TRUE(first.start());
    ASSERT_TRUE(second.start());
    EXPECT_EQ(VornThread::liveCount(), before + 2);
    EXPECT_TRUE(VornThread::waitForLiveCount(before + 2, 0));
    EXPECT_FALSE(VornThread::waitForLiveCount(before + 1, 0));
    EXPECT_FALSE(VornThread::waitForLiveCount(before, 10));
    leave.open();
    EXPECT_TRUE(VornThread::waitForLiveCount(before, -1));
    EXPECT_EQ(VornThread::liveCount(), before);
}

// The priority that a thread has while it runs.
int priorityWithin(VornThread::t_Priority priority, bool beforeStart) {
    Gate set;
    int number = 1000;
    TestThread thread([&] {
        set.wait();
        number = NativeProbe::threadPriority(VornPlatform::currentThreadId());
        return 0;
    });
    if (beforeStart) thread.setPriority(priority);
    EXPECT_TRUE(thread.start());
    if (!beforeStart) thread.setPriority(priority);
    set.open();
    thread.waitForThreadExit();
    return number;
}

TEST(VornThreadPriority, TakesEffectAtTheStartAndAtOnce) {
    using Priority = VornThread::t_Priority;
    for (const auto priority : {Priority::BelowNormal, Priority::Lowest, Priority::Idle}) {
        EXPECT_EQ(priorityWithin(priority, true), NativeProbe::priorityNumber(priority));
        EXPECT_EQ(priorityWithin(priority, false), NativeProbe::priorityNumber(priority));
    }
}

TEST(VornThreadPriority, LeavesTheCallersThreadAlone) {
    const int mine = NativeProbe::threadPriority(VornPlatform::currentThreadId());
    priorityWithin(VornThread::t_Priority::Lowest, false);
    EXPECT_EQ(NativeProbe::threadPriority(VornPlatform::currentThreadId()), mine);
}

// A higher priority needs a privilege on some systems: then there is a line in
// the log, at the start as at a later change, and the thread runs all the same.
TEST(VornThreadPriority, IsRaisedOrSaysInTheLogWhyNot) {
    constexpr auto kHighest = VornThread::t_Priority::Highest;
    const int normal = NativeProbe::threadPriority(VornPlatform::currentThreadId());
    VornPlatform::OsError refused;
    std::thread([&] {
        refused = VornPlatform::setThreadPriority(VornPlatform::currentThreadId(), kHighest);
    }).join();
    const int expected = refused ? normal : NativeProbe::priorityNumber(kHighest);

    const LogCapture log(4);
    EXPECT_EQ(priorityWithin(kHighest, false), expected);
    EXPECT_EQ(priorityWithin(kHighest, true), expected);
    const auto records = CoreTest::recordsWith(log, "VornThread::setPriority: ");
    EXPECT_EQ(records.size(), refused ? 2u : 0u);
    for (const auto& record : records) {
        EXPECT_EQ(record.level, 4);
        EXPECT_EQ(record.text, "VornThread::setPriority: TestThread: " + refused.text());
    }
}

TEST(VornThreadPriority, OfAnEndedThreadIsForTheNextStart) {
    int number = 1000;
    TestThread thread([&] {
        number = NativeProbe::threadPriority(VornPlatform::currentThreadId());
        return 0;
    });
    ASSERT_TRUE(thread.start());
    thread.waitForThreadExit();
    thread.setPriority(VornThread::t_Priority::Lowest);
    ASSERT_TRUE(thread.start());
    thread.waitForThreadExit();
    EXPECT_EQ(number, NativeProbe::priorityNumber(VornThread::t_Priority::Lowest));
}

TEST(VornThread, LetsASubclassStandBetween) {
    class Counting : public VornThread {
    public:
        Counting() : VornThread("Counting") {}
        bool start() override {
            ++starts;
            return VornThread::start();
        }
        void stop() override {
            ++stops;
            VornThread::stop();
        }
        int starts = 0;
        int stops = 0;
    };
    Counting thread;
    VornThread& base = thread;
    EXPECT_TRUE(base.start());
    base.stop();
    base.waitForThreadExit();
    EXPECT_EQ(thread.starts, 1);
    EXPECT_EQ(thread.stops, 1);
}

TEST(VornThread, IsKnownByTheNamesOfItsClasses) {
    EXPECT_EQ(VornThread("x").getClassName(), "VornThread");
    EXPECT_EQ(VornThread::ThreadDone().getClassName(), "ThreadDone");
    EXPECT_TRUE(VornThread::ThreadDone().isA("VornNotification"));
    EXPECT_EQ(VornWorkInformation().getClassName(), "VornWorkInformation");
}

}  // namespace
