// A collaborator, its dependents and several threads.

#include "runtime/support/VornCollaborator.h"

#include "tests/runtime/support/CoreTestTools.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

using namespace VornSupport;
using CoreTest::Gate;

namespace {

// What a call that must not end yet is given to end wrongly.
constexpr std::chrono::milliseconds kWrongly{50};

class Handler : public VornDependent {
public:
    explicit Handler(std::function<void(VornCollaborator&)> body) : body_(std::move(body)) {}
    void handleNotification(VornCollaborator& source, const VornNotification&) override {
        body_(source);
    }

private:
    std::function<void(VornCollaborator&)> body_;
};

TEST(VornCollaborator, WaitsInARemovalForTheHandlerOnAnotherThread) {
    VornCollaborator source;
    Gate entered;
    Gate leave;
    std::atomic<bool> left{false};
    std::atomic<bool> removed{false};
    Handler handler([&](VornCollaborator&) {
        entered.open();
        leave.wait();
        left = true;
    });
    source.addDependent(handler);
    std::thread notifier([&] { source.notify(VornNotification()); });
    ASSERT_TRUE(entered.wait());
    std::thread remover([&] {
        source.removeDependent(handler);
        EXPECT_TRUE(left);
        removed = true;
    });
    EXPECT_FALSE(TestSupport::waitUntil([&] { return removed.load(); }, kWrongly));
    leave.open();
    remover.join();
    notifier.join();
}

TEST(VornCollaborator, WaitsForEveryThreadThatIsInTheHandler) {
    VornCollaborator source;
    std::atomic<int> inside{0};
    std::atomic<int> left{0};
    Gate leave;
    Handler handler([&](VornCollaborator&) {
        ++inside;
        leave.wait();
        ++left;
    });
    source.addDependent(handler);
    std::vector<std::thread> notifiers;
    for (int i = 0; i < 4; ++i) notifiers.emplace_back([&] { source.notify(VornNotification()); });
    ASSERT_TRUE(TestSupport::waitUntil([&] { return inside == 4; }));
    std::atomic<bool> removed{false};
    std::thread remover([&] {
        source.removeDependent(handler);
        EXPECT_EQ(left, 4);
        removed = true;
    });
    EXPECT_FALSE(TestSupport::waitUntil([&] { return removed.load(); }, kWrongly));
    leave.open();
    remover.join();
    for (auto& notifier : notifiers) notifier.join();
}

// It is the other dependents' business how long their handlers take.
TEST(VornCollaborator, DoesNotWaitForTheHandlersOfOthers) {
    VornCollaborator source;
    Gate entered;
    Gate leave;
    Handler slow([&](VornCollaborator&) {
        entered.open();
        EXPECT_TRUE(leave.wait());
    });
    Handler other([](VornCollaborator&) {});
    source.addDependent(slow);
    source.addDependent(other);
    std::thread notifier([&] { source.notify(VornNotification()); });
    ASSERT_TRUE(entered.wait());
    source.removeDependent(other);
    source.addDependent(other);
    source.removeDependent(other);
    leave.open();
    notifier.join();
}

// A dependent that took itself out while it was told is destroyed by its owner:
// the owner's removal finds no registration any more, but a handler that runs.
TEST(VornCollaborator, WaitsForTheHandlerOfOneThatRemovedItself) {
    VornCollaborator source;
    Gate gone;
    Gate leave;
    std::atomic<bool> left{false};
    std::atomic<bool> removed{false};
    std::unique_ptr<Handler> handler;
    handler = std::make_unique<Handler>([&](VornCollaborator& from) {
        from.removeDependent(*handler);
        gone.open();
        leave.wait();
        left = true;
    });
    source.addDependent(*handler);
    std::thread notifier([&] { source.notify(VornNotification()); });
    ASSERT_TRUE(gone.wait());
    std::thread owner([&] {
        source.removeDependent(*handler);
        EXPECT_TRUE(left);
        handler.reset();
        removed = true;
    });
    EXPECT_FALSE(TestSupport::waitUntil([&] { return removed.load(); }, kWrongly));
    leave.open();
    owner.join();
    notifier.join();
}

TEST(VornCollaborator, WaitsInEveryOneOfSeveralRemovals) {
    VornCollaborator source;
    Gate entered;
    Gate leave;
    std::atomic<bool> left{false};
    std::atomic<int> removed{0};
    Handler handler([&](VornCollaborator&) {
        entered.open();
        leave.wait();
        left = true;
    });
    source.addDependent(handler);
    std::thread notifier([&] { source.notify(VornNotification()); });
    ASSERT_TRUE(entered.wait());
    std::vector<std::thread> removers;
    for (int i = 0; i < 4; ++i) {
        removers.emplace_back([&] {
            source.removeDependent(handler);
            EXPECT_TRUE(left);
            ++removed;
        });
    }
    EXPECT_FALSE(TestSupport::waitUntil([&] { return removed > 0; }, kWrongly));
    leave.open();
    for (auto& remover : removers) remover.join();
    notifier.join();
}

TEST(VornCollaborator, HoldsNoLockWhileItTells) {
    VornCollaborator source;
    Handler other([](VornCollaborator&) {});
    bool done = false;
    Handler handler([&](VornCollaborator& from) {
        std::thread([&] {
            from.addDependent(other);
            from.removeDependent(other);
            done = true;
        }).join();
    });
    source.addDependent(handler);
    source.notify(VornNotification());
    EXPECT_TRUE(done);
}

// A handler of each source runs on a thread of its own; at one moment each
// removes its neighbour from that one's source. All must end.
void removeEachOtherInACircle(std::vector<VornCollaborator*> sources) {
    const std::size_t count = sources.size();
    std::atomic<std::size_t> inside{0};
    std::vector<std::unique_ptr<Handler>> handlers;
    for (std::size_t i = 0; i < count; ++i) {
        handlers.push_back(std::make_unique<Handler>([&, i](VornCollaborator&) {
            ++inside;
            EXPECT_TRUE(TestSupport::waitUntil([&] { return inside == count; }));
            const std::size_t next = (i + 1) % count;
            sources[next]->removeDependent(*handlers[next]);
        }));
    }
    CoreTest::onThreads(static_cast<int>(count), [&](int i) {
        const auto at = static_cast<std::size_t>(i);
        sources[at]->addDependent(*handlers[at]);
        sources[at]->notify(VornNotification());
    });
    for (std::size_t i = 0; i < count; ++i) sources[i]->removeDependent(*handlers[i]);
}

TEST(VornCollaborator, EndsWhenHandlersOfTwoSourcesRemoveEachOther) {
    for (int round = 0; round < 100; ++round) {
        VornCollaborator first;
        VornCollaborator second;
        removeEachOtherInACircle({&first, &second});
    }
}

TEST(VornCollaborator, EndsWhenHandlersOfFiveSourcesRemoveEachOtherInACircle) {
    for (int round = 0; round < 50; ++round) {
        std::array<VornCollaborator, 5> sources;
        removeEachOtherInACircle(
            {&sources[0], &sources[1], &sources[2], &sources[3], &sources[4]});
    }
}

// Handlers of one source, told of kinds of their own.
void removeEachOtherInOneSource(int count) {
    class Numbered : public VornDependent {
    public:
        Numbered(int number, std::function<void()> body)
            : number_(number), body_(std::move(body)) {}
        void handleNotification(VornCollaborator&, const VornNotification& told) override {
            if (told.getKind() == number_) body_();
        }

    private:
        int number_;
        std::function<void()> body_;
    };
    VornCollaborator source;
    std::atomic<int> inside{0};
    std::vector<std::unique_ptr<Numbered>> handlers;
    for (int i = 0; i < count; ++i) {
        handlers.push_back(std::make_unique<Numbered>(i, [&, i] {
            ++inside;
            EXPECT_TRUE(TestSupport::waitUntil([&] { return inside == count; }));
            source.removeDependent(*handlers[static_cast<std::size_t>((i + 1) % count)]);
        }));
        source.addDependent(*handlers.back());
    }
    CoreTest::onThreads(count, [&](int i) { source.notify(VornNotification(i)); });
    EXPECT_EQ(inside, count);
}

TEST(VornCollaborator, EndsWhenTwoHandlersOfOneSourceRemoveEachOther) {
    for (int round = 0; round < 100; ++round) removeEachOtherInOneSource(2);
}

TEST(VornCollaborator, EndsWhenThreeHandlersOfOneSourceRemoveEachOtherInACircle) {
    for (int round = 0; round < 100; ++round) removeEachOtherInOneSource(3);
}

TEST(VornCollaborator, EndsWhenADependentRemovesItselfOnTwoThreadsAtOnce) {
    for (int round = 0; round < 100; ++round) {
        VornCollaborator source;
        std::atomic<int> inside{0};
        Handler handler([&](VornCollaborator& from) {
            ++inside;
            EXPECT_TRUE(TestSupport::waitUntil([&] { return inside == 2; }));
            from.removeDependent(handler);
        });
        source.addDependent(handler);
        CoreTest::onThreads(2, [&](int) { source.notify(VornNotification()); });
        EXPECT_EQ(inside, 2);
    }
}

// A handler that removes one whose handler waits for nobody must itself wait.
TEST(VornCollaborator, WaitsInAHandlerWhenThereIsNoCircle) {
    VornCollaborator first;
    VornCollaborator second;
    Gate entered;
    Gate leave;
    std::atomic<bool> left{false};
    std::atomic<bool> removed{false};
    Handler slow([&](VornCollaborator&) {
        entered.open();
        leave.wait();
        left = true;
    });
    Handler remover([&](VornCollaborator&) {
        second.removeDependent(slow);
        EXPECT_TRUE(left);
        removed = true;
    });
    first.addDependent(remover);
    second.addDependent(slow);
    std::thread slowly([&] { second.notify(VornNotification()); });
    ASSERT_TRUE(entered.wait());
    std::thread quickly([&] { first.notify(VornNotification()); });
    EXPECT_FALSE(TestSupport::waitUntil([&] { return removed.load(); }, kWrongly));
    leave.open();
    quickly.join();
    slowly.join();
    EXPECT_TRUE(removed);
}

// Dependents come, are told and go, memory and all, while three threads notify.
TEST(VornCollaborator, NeverTellsADependentThatIsGone) {
    class Mortal : public VornDependent {
    public:
        Mortal(std::atomic<int>& calls, std::atomic<int>& deadCalls)
            : calls_(calls), deadCalls_(deadCalls) {}
        ~Mortal() override { alive_ = 0; }
        void handleNotification(VornCollaborator&, const VornNotification&) override {
            if (alive_ != 4711) ++deadCalls_;
            ++calls_;
        }

    private:
        std::atomic<int>& calls_;
        std::atomic<int>& deadCalls_;
        int alive_ = 4711;
    };
    VornCollaborator source;
    std::atomic<int> calls{0};
    std::atomic<int> deadCalls{0};
    Mortal permanent(calls, deadCalls);
    source.addDependent(permanent);
    std::atomic<int> busy{3};
    CoreTest::onThreads(6, [&](int i) {
        if (i < 3) {
            for (int n = 0; n < 1500; ++n) {
                auto mortal = std::make_unique<Mortal>(calls, deadCalls);
                source.addDependent(*mortal);
                if (n % 16 == 0) source.notify(VornNotification());
                source.removeDependent(*mortal);
            }
            --busy;
        } else {
            while (busy > 0) source.notify(VornNotification());
        }
    });
    source.removeDependent(permanent);
    EXPECT_EQ(deadCalls, 0);
    EXPECT_GT(calls, 0);
    const int before = calls;
    source.notify(VornNotification());
    EXPECT_EQ(calls, before);
}

TEST(VornCollaborator, TellsEverybodyOfEveryNotifyOfManyThreads) {
    VornCollaborator source;
    std::array<std::atomic<int>, 3> calls{};
    std::vector<std::unique_ptr<Handler>> handlers;
    for (auto& count : calls) {
        handlers.push_back(std::make_unique<Handler>([&](VornCollaborator&) { ++count; }));
        source.addDependent(*handlers.back());
    }
    CoreTest::onThreads(4, [&](int) {
        for (int n = 0; n < 2000; ++n) source.notify(VornNotification());
    });
    for (const auto& count : calls) EXPECT_EQ(count, 8000);
}

}  // namespace
