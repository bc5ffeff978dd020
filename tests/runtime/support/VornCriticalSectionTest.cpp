#include "runtime/support/VornCriticalSection.h"

#include "tests/runtime/platform/NativeProbe.h"
#include "tests/runtime/support/CoreTestTools.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <vector>

using namespace VornSupport;

namespace {

// A thread that takes a critical section once and gives it back.
class Contender {
public:
    explicit Contender(VornCriticalSectionObject& object) : thread_([&object, this] {
        const VornCriticalSection section(object);
        hadIt_ = true;
    }) {}
    ~Contender() { thread_.join(); }

    bool isKeptOut() const {
        return !TestSupport::waitUntil([this] { return hadIt_.load(); },
                                       std::chrono::milliseconds(50));
    }
    bool getsIt() const {
        return TestSupport::waitUntil([this] { return hadIt_.load(); });
    }

private:
    std::atomic<bool> hadIt_{false};
    std::thread thread_;
};

TEST(VornCriticalSectionObject, KeepsOtherThreadsOut) {
    VornCriticalSectionObject object;
    object.lock();
    const Contender other(object);
    EXPECT_TRUE(other.isKeptOut());
    object.unlock();
    EXPECT_TRUE(other.getsIt());
}

void lockThreeTimes(VornCriticalSectionObject& object) VORN_NO_THREAD_SAFETY_ANALYSIS {
    for (int i = 0; i < 3; ++i) object.lock();
    const Contender other(object);
    object.unlock();
    object.unlock();
    EXPECT_TRUE(other.isKeptOut());
    object.unlock();
    EXPECT_TRUE(other.getsIt());
}

TEST(VornCriticalSectionObject, IsFreeAfterAsManyUnlocksAsLocks) {
    VornCriticalSectionObject object;
    lockThreeTimes(object);
}

TEST(VornCriticalSectionObject, GuardsAgainstEightThreads) {
    VornCriticalSectionObject object;
    long sum = 0;
    CoreTest::onThreads(8, [&](int) {
        for (int i = 0; i < 20'000; ++i) {
            const VornCriticalSection section(object);
            ++sum;
        }
    });
    EXPECT_EQ(sum, 160'000);
}

TEST(VornCriticalSectionObject, GivesBackWhatItTookFromTheSystem) {
    const int before = NativeProbe::countHandles();
    {
        std::vector<VornCriticalSectionObject> objects(300);
        std::vector<CoreTest::MeetingPoint> meetings(objects.size());
        CoreTest::onThreads(2, [&](int) {
            for (std::size_t i = 0; i < objects.size(); ++i) {
                meetings[i].arrive();
                const VornCriticalSection section(objects[i]);
                meetings[i].waitForTheOther();
            }
        });
    }
    EXPECT_LT(NativeProbe::countHandles(), before + 50);
}

TEST(VornCriticalSection, HoldsForItsScope) {
    VornCriticalSectionObject object;
    std::unique_ptr<Contender> other;
    {
        const VornCriticalSection section(object, true);
        other = std::make_unique<Contender>(object);
        EXPECT_TRUE(other->isKeptOut());
    }
    EXPECT_TRUE(other->getsIt());
}

void nestScopes(VornCriticalSectionObject& object) VORN_NO_THREAD_SAFETY_ANALYSIS {
    const VornCriticalSection outer(object);
    std::unique_ptr<Contender> other;
    {
        const VornCriticalSection inner(object);
        other = std::make_unique<Contender>(object);
    }
    EXPECT_TRUE(other->isKeptOut());
    object.unlock();
    EXPECT_TRUE(other->getsIt());
    object.lock();
}

TEST(VornCriticalSection, MayBeNested) {
    VornCriticalSectionObject object;
    nestScopes(object);
    EXPECT_TRUE(Contender(object).getsIt());
}

void dontLock(VornCriticalSectionObject& object) VORN_NO_THREAD_SAFETY_ANALYSIS {
    const VornCriticalSection section(object, false);
    EXPECT_TRUE(Contender(object).getsIt());
}

TEST(VornCriticalSection, DoesNotLockWhenToldNotTo) {
    VornCriticalSectionObject object;
    dontLock(object);
    EXPECT_TRUE(Contender(object).getsIt());
}

void lockLater(VornCriticalSectionObject& object) VORN_NO_THREAD_SAFETY_ANALYSIS {
    VornCriticalSection section(object, false);
    section.lock();
    const Contender other(object);
    EXPECT_TRUE(other.isKeptOut());
    section.unlock();
    EXPECT_TRUE(other.getsIt());
}

TEST(VornCriticalSection, LocksLater) {
    VornCriticalSectionObject object;
    lockLater(object);
}

TEST(VornCriticalSection, ReleasesEarlyAndOnce) {
    VornCriticalSectionObject object;
    {
        VornCriticalSection section(object);
        section.unlock();
        EXPECT_TRUE(Contender(object).getsIt());
    }
    EXPECT_TRUE(Contender(object).getsIt());
}

void unlockTwice(VornCriticalSectionObject& object) VORN_NO_THREAD_SAFETY_ANALYSIS {
    const VornCriticalSection outer(object);
    VornCriticalSection inner(object);
    inner.unlock();
    inner.unlock();  // not the outer one's
    const Contender other(object);
    EXPECT_TRUE(other.isKeptOut());
    object.unlock();
    EXPECT_TRUE(other.getsIt());
    object.lock();
}

TEST(VornCriticalSection, UnlocksNothingThatItDoesNotHold) {
    VornCriticalSectionObject object;
    unlockTwice(object);
    EXPECT_TRUE(Contender(object).getsIt());
}

void lockTwice(VornCriticalSectionObject& object) VORN_NO_THREAD_SAFETY_ANALYSIS {
    VornCriticalSection section(object);
    section.lock();
}

TEST(VornCriticalSection, HoldsOnceHoweverOftenItIsLocked) {
    VornCriticalSectionObject object;
    std::thread([&] { lockTwice(object); }).join();
    EXPECT_TRUE(Contender(object).getsIt());
}

TEST(VornCriticalSection, LocksAgainAfterAnEarlyRelease) {
    VornCriticalSectionObject object;
    std::unique_ptr<Contender> other;
    {
        VornCriticalSection section(object);
        section.unlock();
        section.lock();
        other = std::make_unique<Contender>(object);
        EXPECT_TRUE(other->isKeptOut());
    }
    EXPECT_TRUE(other->getsIt());
}

TEST(VornCriticalSection, ReleasesWhenAnExceptionPasses) {
    VornCriticalSectionObject object;
    EXPECT_THROW(
        {
            const VornCriticalSection section(object);
            throw std::runtime_error("out");
        },
        std::runtime_error);
    EXPECT_TRUE(Contender(object).getsIt());
}

TEST(VornCriticalSection, CannotBeCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<VornCriticalSection>);
    EXPECT_FALSE(std::is_copy_constructible_v<VornCriticalSectionObject>);
}

}  // namespace
