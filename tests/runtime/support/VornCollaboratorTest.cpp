#include "runtime/support/VornCollaborator.h"

#include "runtime/support/VornSmartPointer.h"
#include "runtime/support/VornThreadName.h"
#include "tests/runtime/platform/NativeProbe.h"
#include "tests/runtime/support/AllocationCount.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace VornSupport;

namespace {

class Handler : public VornDependent {
public:
    using Body = std::function<void(VornCollaborator&, const VornNotification&)>;

    explicit Handler(Body body) : body_(std::move(body)) {}
    void handleNotification(VornCollaborator& source, const VornNotification& told) override {
        body_(source, told);
    }

private:
    Body body_;
};

// Writes its letter down each time it is told.
class Scribe : public VornDependent {
public:
    Scribe(std::string& text, char letter) : text_(text), letter_(letter) {}
    void handleNotification(VornCollaborator&, const VornNotification&) override {
        text_ += letter_;
    }

private:
    std::string& text_;
    char letter_;
};

class CountedSource : public VornCollaborator, public virtual VornObjectBase {
public:
    explicit CountedSource(bool& destroyed) : destroyed_(destroyed) { destroyed_ = false; }
    ~CountedSource() override { destroyed_ = true; }

private:
    bool& destroyed_;
};

TEST(VornCollaborator, TellsNobodyWhenNobodyDependsOnIt) {
    VornCollaborator source;
    source.notify(VornNotification());
}

TEST(VornCollaborator, TellsADependentThatDoesNothingByItself) {
    VornCollaborator source;
    VornDependent dependent;
    source.addDependent(dependent);
    source.notify(VornNotification());
    source.removeDependent(dependent);
}

TEST(VornCollaborator, HandsItselfAndTheNotificationOver) {
    VornCollaborator source;
    const VornNotification sent(5);
    const VornCollaborator* from = nullptr;
    const VornNotification* got = nullptr;
    std::thread::id thread;
    Handler handler([&](VornCollaborator& s, const VornNotification& n) {
        from = &s;
        got = &n;
        thread = std::this_thread::get_id();
    });
    source.addDependent(handler);
    source.notify(sent);
    EXPECT_EQ(from, &source);
    EXPECT_EQ(got, &sent);
    EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST(VornCollaborator, TellsInTheOrderOfAdding) {
    VornCollaborator source;
    std::string text;
    std::vector<std::unique_ptr<Scribe>> scribes;
    for (char c = 'z'; c >= 'a'; --c) {
        scribes.push_back(std::make_unique<Scribe>(text, c));
        source.addDependent(*scribes.back());
    }
    source.notify(VornNotification());
    EXPECT_EQ(text, "zyxwvutsrqponmlkjihgfedcba");
}

TEST(VornCollaborator, TellsOneThatWasAddedTwiceTwice) {
    VornCollaborator source;
    std::string text;
    Scribe a(text, 'a');
    Scribe b(text, 'b');
    for (auto* scribe : {&a, &b, &a}) source.addDependent(*scribe);
    source.notify(VornNotification());
    EXPECT_EQ(text, "aba");
}

TEST(VornCollaborator, RemovesTheEarliestRegistration) {
    VornCollaborator source;
    std::string text;
    Scribe a(text, 'a');
    Scribe b(text, 'b');
    for (auto* scribe : {&a, &b, &a}) source.addDependent(*scribe);
    source.removeDependent(a);
    source.notify(VornNotification());
    EXPECT_EQ(text, "ba");
    source.removeDependent(a);
    source.notify(VornNotification());
    EXPECT_EQ(text, "bab");
}

TEST(VornCollaborator, IgnoresTheRemovalOfAStranger) {
    VornCollaborator source;
    std::string text;
    Scribe a(text, 'a');
    Scribe stranger(text, 's');
    source.removeDependent(stranger);
    source.addDependent(a);
    source.removeDependent(stranger);
    source.removeDependent(a);
    source.removeDependent(a);
    source.notify(VornNotification());
    EXPECT_EQ(text, "");
}

TEST(VornCollaborator, TellsOneThatWasAddedAgainLast) {
    VornCollaborator source;
    std::string text;
    Scribe a(text, 'a');
    Scribe b(text, 'b');
    source.addDependent(a);
    source.addDependent(b);
    source.removeDependent(a);
    source.addDependent(a);
    source.notify(VornNotification());
    EXPECT_EQ(text, "ba");
}

TEST(VornCollaborator, StartsWithoutDependentsWhenCopied) {
    VornCollaborator source;
    std::string text;
    Scribe a(text, 'a');
    source.addDependent(a);
    VornCollaborator copy(source);
    copy.notify(VornNotification());
    EXPECT_EQ(text, "");
    VornCollaborator other;
    other = source;
    other.notify(VornNotification());
    EXPECT_EQ(text, "");
    source = other;
    source.notify(VornNotification());
    EXPECT_EQ(text, "a") << "assigning takes no dependents away";
}

TEST(VornCollaborator, LetsADependentRemoveItself) {
    VornCollaborator source;
    std::string text;
    Scribe before(text, 'b');
    Scribe after(text, 'a');
    Handler once([&](VornCollaborator& from, const VornNotification&) {
        text += 'o';
        from.removeDependent(once);
    });
    source.addDependent(before);
    source.addDependent(once);
    source.addDependent(after);
    source.notify(VornNotification());
    EXPECT_EQ(text, "boa");
    source.notify(VornNotification());
    EXPECT_EQ(text, "boaba");
}

TEST(VornCollaborator, LetsADependentDestroyItself) {
    class Once : public VornDependent {
    public:
        explicit Once(bool& destroyed) : destroyed_(destroyed) {}
        ~Once() override { destroyed_ = true; }
        void handleNotification(VornCollaborator& source, const VornNotification&) override {
            source.removeDependent(*this);
            self.reset();
        }
        std::unique_ptr<Once> self;

    private:
        bool& destroyed_;
    };
    VornCollaborator source;
    std::string text;
    Scribe after(text, 'a');
    bool destroyed = false;
    auto once = std::make_unique<Once>(destroyed);
    source.addDependent(*once);
    source.addDependent(after);
    Once& borrowed = *once;
    borrowed.self = std::move(once);
    source.notify(VornNotification());
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(text, "a");
}

TEST(VornCollaborator, PassesOverThoseRemovedBeforeTheirTurn) {
    VornCollaborator source;
    std::string text;
    auto victim = std::make_unique<Scribe>(text, 'v');
    Scribe earlier(text, 'e');
    Scribe last(text, 'l');
    Handler remover([&](VornCollaborator& from, const VornNotification&) {
        if (!victim) return;
        from.removeDependent(*victim);
        from.removeDependent(earlier);
        victim.reset();
    });
    source.addDependent(earlier);
    source.addDependent(remover);
    source.addDependent(*victim);
    source.addDependent(last);
    source.notify(VornNotification());
    EXPECT_EQ(text, "el");
    source.notify(VornNotification());
    EXPECT_EQ(text, "ell");
}

TEST(VornCollaborator, TellsThoseAddedDuringANotifyFromTheNextOneOn) {
    VornCollaborator source;
    std::string text;
    Scribe fresh(text, 'f');
    Scribe last(text, 'l');
    bool added = false;
    Handler adder([&](VornCollaborator& from, const VornNotification&) {
        if (!std::exchange(added, true)) from.addDependent(fresh);
    });
    source.addDependent(adder);
    source.addDependent(last);
    source.notify(VornNotification());
    EXPECT_EQ(text, "l");
    source.notify(VornNotification());
    EXPECT_EQ(text, "llf");
}

TEST(VornCollaborator, ClearsItsWholeListFromAHandler) {
    VornCollaborator source;
    std::vector<std::unique_ptr<Handler>> handlers;
    int calls = 0;
    for (int i = 0; i < 50; ++i) {
        handlers.push_back(
            std::make_unique<Handler>([&](VornCollaborator& from, const VornNotification&) {
                ++calls;
                for (auto& handler : handlers) from.removeDependent(*handler);
            }));
        source.addDependent(*handlers.back());
    }
    source.notify(VornNotification());
    source.notify(VornNotification());
    EXPECT_EQ(calls, 1);
}

TEST(VornCollaborator, KeepsACountedSourceWhoseLastReferenceAHandlerDrops) {
    bool destroyed = false;
    auto source = makeCounted<CountedSource>(destroyed);
    std::string text;
    bool alive = false;
    Scribe last(text, 'l');
    Handler dropper([&](VornCollaborator&, const VornNotification&) {
        source = nullptr;
        alive = !destroyed;
    });
    source->addDependent(dropper);
    source->addDependent(last);
    source->notify(VornNotification());
    EXPECT_TRUE(alive);
    EXPECT_EQ(text, "l");
    EXPECT_TRUE(destroyed);
}

TEST(VornCollaborator, KeepsACountedSourceWhenTheHandlerAlsoThrows) {
    bool destroyed = false;
    auto source = makeCounted<CountedSource>(destroyed);
    Handler dropper([&](VornCollaborator&, const VornNotification&) {
        source = nullptr;
        throw std::runtime_error("gone");
    });
    source->addDependent(dropper);
    EXPECT_THROW(source->notify(VornNotification()), std::runtime_error);
    EXPECT_TRUE(destroyed);
}

TEST(VornCollaborator, LeavesASourceAloneThatNothingCounts) {
    bool destroyed = false;
    std::string text;
    Scribe a(text, 'a');
    {
        CountedSource source(destroyed);
        source.addDependent(a);
        source.notify(VornNotification());
        EXPECT_FALSE(destroyed);
        EXPECT_EQ(source.refCount(), 0u);
        source.removeDependent(a);
    }
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(text, "a");
}

TEST(VornCollaborator, MayNotifyInItsDestructor) {
    class Farewell : public VornCollaborator, public virtual VornObjectBase {
    public:
        ~Farewell() override { notify(VornNotification(1)); }
    };
    std::string text;
    Scribe a(text, 'a');
    auto source = makeCounted<Farewell>();
    source->addDependent(a);
    source = nullptr;
    EXPECT_EQ(text, "a");
}

TEST(VornCollaborator, LetsAHandlerNotify) {
    VornCollaborator source;
    VornCollaborator other;
    std::string text;
    Scribe a(text, 'a');
    Scribe o(text, 'o');
    int depth = 0;
    Handler again([&](VornCollaborator& from, const VornNotification&) {
        if (depth == 3) return;
        ++depth;
        from.notify(VornNotification());
        other.notify(VornNotification());
    });
    source.addDependent(again);
    source.addDependent(a);
    other.addDependent(o);
    source.notify(VornNotification());
    EXPECT_EQ(text, "aoaoaoa");
}

TEST(VornCollaborator, LetsAHandlerRemoveItselfTwoNotifiesDeep) {
    VornCollaborator source;
    int calls = 0;
    Handler handler([&](VornCollaborator& from, const VornNotification&) {
        if (++calls == 1) {
            from.notify(VornNotification());
        } else {
            from.removeDependent(handler);
        }
    });
    source.addDependent(handler);
    source.notify(VornNotification());
    source.notify(VornNotification());
    EXPECT_EQ(calls, 2);
}

TEST(VornCollaborator, EndsTheWalkWithAHandlersException) {
    VornCollaborator source;
    std::string text;
    Scribe before(text, 'b');
    Scribe after(text, 'a');
    Handler thrower([](VornCollaborator&, const VornNotification&) {
        throw std::runtime_error("boom");
    });
    source.addDependent(before);
    source.addDependent(thrower);
    source.addDependent(after);
    EXPECT_THROW(source.notify(VornNotification()), std::runtime_error);
    EXPECT_EQ(text, "b");
    // Nobody takes the handler for one that still runs.
    std::thread([&] { source.removeDependent(thrower); }).join();
    source.notify(VornNotification());
    EXPECT_EQ(text, "bba");
}

TEST(VornCollaborator, LetsASubclassStandBetween) {
    class Quiet : public VornCollaborator {
    public:
        void notify(const VornNotification& notification) override {
            if (notification.getKind() != 0) VornCollaborator::notify(notification);
        }
    };
    Quiet source;
    std::string text;
    Scribe a(text, 'a');
    source.addDependent(a);
    VornCollaborator& base = source;
    base.notify(VornNotification());
    base.notify(VornNotification(1));
    EXPECT_EQ(text, "a");
}

TEST(VornCollaborator, ServesThousandsOfDependents) {
    VornCollaborator source;
    int calls = 0;
    std::vector<std::unique_ptr<Handler>> handlers;
    for (int i = 0; i < 2000; ++i) {
        handlers.push_back(std::make_unique<Handler>(
            [&calls](VornCollaborator&, const VornNotification&) { ++calls; }));
        source.addDependent(*handlers.back());
    }
    source.notify(VornNotification());
    EXPECT_EQ(calls, 2000);
    for (int i = 0; i < 2000; i += 2) source.removeDependent(*handlers[static_cast<size_t>(i)]);
    source.notify(VornNotification());
    EXPECT_EQ(calls, 3000);
}

// They are destroyed once they have been removed, whatever is short.
TEST(VornCollaborator, RemovesWithoutMemory) {
    setThreadName("NoMemory");
    VornCollaborator source;
    std::string told;
    auto a = std::make_unique<Scribe>(told, 'a');
    Scribe b(told, 'b');
    Scribe c(told, 'c');
    for (Scribe* scribe : {a.get(), &b, &c}) source.addDependent(*scribe);
    int refusals = 0;
    Handler remover([&](VornCollaborator&, const VornNotification&) {
        told += '!';
        const AllocationFailure noMemory("NoMemory");
        source.removeDependent(*a);  // the list that is walked cannot be copied
        source.removeDependent(b);
        refusals = noMemory.count();
    });
    source.addDependent(remover);
    source.notify(VornNotification());
    EXPECT_EQ(told, "abc!");
    if (NativeProbe::replacesAllocationEverywhere()) {
        EXPECT_GT(refusals, 0);
    }
    a.reset();
    told.clear();
    source.removeDependent(remover);
    source.notify(VornNotification());
    EXPECT_EQ(told, "c");
    source.addDependent(b);
    source.notify(VornNotification());
    EXPECT_EQ(told, "ccb") << "the earlier registration is gone for good";
    source.removeDependent(b);
    source.removeDependent(c);
    source.notify(VornNotification());
    EXPECT_EQ(told, "ccb");
}

// Those that wait for one thing in their hundreds come and go at every notify.
TEST(VornCollaborator, CopiesItsListOnceANotifyAtMost) {
    constexpr std::size_t kMany = 2000;
    constexpr std::size_t kList = kMany * 16;  // bytes of one copy
    VornCollaborator source;
    std::vector<std::unique_ptr<VornDependent>> dependents;
    for (std::size_t i = 0; i < kMany; ++i) dependents.push_back(std::make_unique<VornDependent>());
    const auto bytes = [] { return AllocationCount::ofThisThread().bytes; };
    const auto addAll = [&] {
        for (const auto& dependent : dependents) source.addDependent(*dependent);
    };
    const auto removeAll = [&] {
        for (const auto& dependent : dependents) source.removeDependent(*dependent);
    };
    std::size_t before = bytes();
    addAll();
    EXPECT_LT(bytes() - before, kMany * 400) << "what each one is kept in, and room to grow";
    before = bytes();
    removeAll();
    EXPECT_EQ(bytes() - before, 0u);

    Handler handler([&](VornCollaborator&, const VornNotification&) {
        before = bytes();
        removeAll();
        EXPECT_LT(bytes() - before, 2 * kList);
    });
    source.addDependent(handler);
    addAll();
    source.notify(VornNotification());
    source.removeDependent(handler);
}

// Whatever the order in which they go.
TEST(VornCollaborator, RemovesOneOfManyWithoutALookAtTheOthers) {
    constexpr std::size_t kMany = 3000;
    std::vector<std::unique_ptr<VornDependent>> dependents;
    for (std::size_t i = 0; i < kMany; ++i) dependents.push_back(std::make_unique<VornDependent>());
    std::mt19937 random(7);
    for (const char* const order : {"first", "last", "any"}) {
        VornCollaborator source;
        for (const auto& dependent : dependents) source.addDependent(*dependent);
        std::vector<VornDependent*> going;
        for (const auto& dependent : dependents) going.push_back(dependent.get());
        if (order[0] == 'l') std::reverse(going.begin(), going.end());
        if (order[0] == 'a') std::shuffle(going.begin(), going.end(), random);
        const auto before = VornCollaborator::stepsForTest();
        for (VornDependent* const dependent : going) source.removeDependent(*dependent);
        EXPECT_LT(VornCollaborator::stepsForTest() - before, 5 * kMany) << order;
    }
}

TEST(VornCollaborator, TellsOfManyThoseThatAreLeftInTheirOrder) {
    constexpr std::size_t kMany = 200;
    VornCollaborator source;
    std::vector<std::size_t> told;
    std::vector<std::unique_ptr<Handler>> handlers;
    for (std::size_t i = 0; i < kMany; ++i) {
        handlers.push_back(std::make_unique<Handler>(
            [&told, i](VornCollaborator&, const VornNotification&) { told.push_back(i); }));
    }
    // Each twice, and the second registration after all first ones.
    for (const auto& handler : handlers) source.addDependent(*handler);
    for (const auto& handler : handlers) source.addDependent(*handler);
    std::mt19937 random(11);
    std::vector<std::size_t> order(kMany);
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::shuffle(order.begin(), order.end(), random);
    std::vector<bool> gone(kMany);
    for (const std::size_t which : order) {
        source.removeDependent(*handlers[which]);
        gone[which] = true;
        std::vector<std::size_t> expected;
        for (std::size_t i = 0; i < kMany; ++i) {
            if (!gone[i]) expected.push_back(i);
        }
        for (std::size_t i = 0; i < kMany; ++i) expected.push_back(i);
        told.clear();
        source.notify(VornNotification());
        ASSERT_EQ(told, expected);
    }
    // And comes back last.
    source.removeDependent(*handlers[0]);
    source.addDependent(*handlers[0]);
    told.clear();
    source.notify(VornNotification());
    ASSERT_EQ(told.size(), kMany);
    EXPECT_EQ(told.front(), 1u);
    EXPECT_EQ(told.back(), 0u);
    for (const auto& handler : handlers) source.removeDependent(*handler);
    told.clear();
    source.notify(VornNotification());
    EXPECT_TRUE(told.empty());
}

}  // namespace
