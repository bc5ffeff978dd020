#include "tests/arbiter/ArbiterFixture.h"
#include "tests/support/LogCapture.h"

#include "arbiter/RuvoRATimedUnlock.h"
#include "runtime/support/VornEvent.h"
#include "runtime/support/VornException.h"

#include <limits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace ArbiterTest;
using TestSupport::LogCapture;

namespace {

class RANode : public Fixture {
protected:
    Engine::Node node_ = engine_.getNode("a:b");
};

}  // namespace

// ---- without a wait ----------------------------------------------------------------

TEST_F(RANode, IsFreeAtFirst) {
    EXPECT_FALSE(node_->isLocked());
    EXPECT_FALSE(node_->unlock());
    EXPECT_TRUE(events().empty());
}

TEST_F(RANode, IsLockedAtOnceWhenFreeWhateverTheWait) {
    for (const int waitMs :
         {0, 1, -1, 5000, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_TRUE(node_->lock(waitMs)) << waitMs;
        EXPECT_TRUE(node_->isLocked());
        EXPECT_TRUE(node_->unlock());
    }
    EXPECT_EQ(events().size(), 12u);
}

TEST_F(RANode, IsLockedOnceAtATime) {
    EXPECT_TRUE(node_->lock(0));
    EXPECT_FALSE(node_->lock(0));
    EXPECT_TRUE(node_->unlock());
    EXPECT_FALSE(node_->unlock());
    EXPECT_EQ(events(), (Texts{"VornRAEvent:a:b=1", "VornRAEvent:a:b=0"}));
}

TEST_F(RANode, DoesNotFlushOrLookWhenItDoesNotWait) {
    Client client;
    EXPECT_TRUE(node_->lock(kLong, &client));
    EXPECT_FALSE(node_->lock(0, &client));
    EXPECT_TRUE(client.written().empty());
}

// ---- waits -------------------------------------------------------------------------

TEST_F(RANode, StaysLockedWhenTheTimeIsUp) {
    node_->lock(0);
    for (const int waitMs : {1, 100}) {
        const auto begun = Clock::now();
        EXPECT_FALSE(node_->lock(waitMs));
        EXPECT_GE(Clock::now() - begun, milliseconds(waitMs));
    }
    EXPECT_EQ(events(), Texts{"VornRAEvent:a:b=1"}) << "who gives up says nothing";
}

TEST_F(RANode, IsLockedByAWaiterAsSoonAsItIsFree) {
    for (const int waitMs :
         {kLong, kForever, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        node_->lock(0);
        Waiter waiter(engine_, "a:b", waitMs);
        ASSERT_TRUE(waiter.awaitWait());
        EXPECT_FALSE(waiter.awaitEnd(kWrongly)) << waitMs;
        node_->unlock();
        EXPECT_GT(waiter.handle(), 0) << waitMs;
        EXPECT_TRUE(node_->isLocked());
        node_->unlock();
    }
}

// Between the look that finds the node locked and the waiter's being told, the
// answers before are sent: a moment like any other for an unlock.
TEST_F(RANode, MissesNoUnlockBeforeTheWaiterIsKnown) {
    node_->lock(0);
    Client client;
    client.onFlush = [&] { EXPECT_TRUE(node_->unlock()); };
    EXPECT_TRUE(node_->lock(kForever, &client));
    EXPECT_EQ(events(), (Texts{"VornRAEvent:a:b=1", "VornRAEvent:a:b=0", "VornRAEvent:a:b=1"}));
}

// Known, but not asleep yet.
TEST_F(RANode, MissesNoUnlockBeforeTheWaiterSleeps) {
    node_->lock(0);
    Client client;
    client.onLook = [&] {
        client.onLook = nullptr;
        EXPECT_TRUE(node_->unlock());
    };
    EXPECT_TRUE(node_->lock(kForever, &client));
    EXPECT_TRUE(node_->isLocked());
}

TEST_F(RANode, MissesNoUnlockAtAnyMoment) {
    for (int round = 0; round < 300; ++round) {
        ASSERT_TRUE(node_->lock(0));
        std::atomic<bool> begun{false};
        std::atomic<bool> locked{false};
        std::jthread waiter([&] {
            begun = true;
            locked = node_->lock(kForever);
        });
        while (!begun) std::this_thread::yield();
        for (int spin = 0; spin < round * 20; ++spin)
            std::atomic_signal_fence(std::memory_order_seq_cst);
        node_->unlock();
        ASSERT_TRUE(TestSupport::waitUntil([&] { return locked.load(); }));
        waiter.join();
        node_->unlock();
    }
}

namespace {

// Loses its first race: it is told of an unlock as soon as it is known, as when
// somebody else locks the node before the waiter has woken up.
class Loser : public Client {
public:
    explicit Loser(Engine::Node node) : node_(std::move(node)) {}

    void setAbortEvent(VornSupport::VornEvent* event) override {
        Client::setAbortEvent(event);
        if (event == nullptr || lost_) return;
        lost_ = true;
        node_->notify(Engine::RANodeUnlocked());
    }

private:
    const Engine::Node node_;
    bool lost_ = false;
};

}  // namespace

// No deadline stands over all the tries together: the whole time passes before
// the second wait begins, which lasts as long all the same.
TEST_F(RANode, WaitsTheFullTimeAgainAfterALostRace) {
    constexpr milliseconds kWait{200};
    node_->lock(0);
    Loser client(node_);
    const auto begun = Clock::now();
    auto again = begun;
    client.onFlush = [&] {
        if (client.flushes() < 2) return;
        EXPECT_TRUE(TestSupport::waitUntil([&] { return Clock::now() - begun >= kWait; }));
        again = Clock::now();
    };
    EXPECT_FALSE(node_->lock(static_cast<int>(kWait.count()), &client));
    EXPECT_GE(Clock::now() - again, kWait);
    EXPECT_EQ(client.flushes(), 2);
}

TEST_F(RANode, WakesItsWaitersWhateverTheyAreTold) {
    node_->lock(0);
    Waiter waiter(engine_, "a:b", kForever);
    ASSERT_TRUE(waiter.awaitWait());
    node_->notify(Engine::RANodeLocked());
    ASSERT_TRUE(waiter.awaitWait(2));
    node_->notify(Engine::RANodeUnlocked());
    ASSERT_TRUE(waiter.awaitWait(3));
    node_->notify(VornSupport::VornNotification());
    ASSERT_TRUE(waiter.awaitWait(4));
    EXPECT_FALSE(waiter.hasEnded());
    node_->unlock();
    EXPECT_GT(waiter.handle(), 0);
}

TEST_F(RANode, LetsItsWaitersRace) {
    constexpr int kWaiters = 20;
    node_->lock(0);
    std::vector<std::unique_ptr<Waiter>> waiters;
    for (int i = 0; i < kWaiters; ++i) {
        waiters.push_back(std::make_unique<Waiter>(engine_, "a:b", kForever));
        ASSERT_TRUE(waiters.back()->awaitWait());
    }
    const auto ended = [&] {
        return std::count_if(waiters.begin(), waiters.end(),
                             [](const auto& waiter) { return waiter->hasEnded(); });
    };
    for (int round = 1; round <= kWaiters; ++round) {
        EXPECT_TRUE(node_->unlock());
        ASSERT_TRUE(TestSupport::waitUntil([&] { return ended() == round; })) << round;
        EXPECT_TRUE(node_->isLocked());
    }
    std::set<int> handles;
    for (const auto& waiter : waiters) handles.insert(waiter->handle());
    EXPECT_EQ(handles.size(), static_cast<std::size_t>(kWaiters));
    EXPECT_EQ(*handles.begin(), 1);
    EXPECT_EQ(*handles.rbegin(), kWaiters);
}

// Else the first one that wakes has its answer before the others are told.
TEST_F(RANode, WakesNobodyBeforeAllHaveBeenTold) {
    class WithEvent : public Client {
    public:
        void setAbortEvent(VornSupport::VornEvent* event) override {
            Client::setAbortEvent(event);
            wakeUp = event;
        }
        VornSupport::VornEvent* wakeUp = nullptr;
    };
    class Looking : public VornSupport::VornDependent {
    public:
        explicit Looking(const WithEvent& first) : first_(first) {}
        int told = 0;
        int woken = 0;

    private:
        void handleNotification(VornSupport::VornCollaborator&,
                                const VornSupport::VornNotification&) override {
            ++told;
            if (first_.wakeUp->wait(0)) ++woken;
        }
        const WithEvent& first_;
    };
    node_->lock(0);
    WithEvent first;
    RuvoService::RuvoRATimedUnlock waiting(*node_, &first);
    Looking last(first);
    node_->addDependent(last);
    node_->unlock();
    EXPECT_EQ(last.told, 1);
    EXPECT_EQ(last.woken, 0);
    EXPECT_TRUE(first.wakeUp->wait(0)) << "afterwards";
    node_->removeDependent(last);
}

TEST_F(RANode, HoldsNoLockWhileARequestWaits) {
    node_->lock(0);
    Waiter waiter(engine_, "a:b", kForever);
    ASSERT_TRUE(waiter.awaitWait());
    EXPECT_EQ(lock("another"), 1);
    EXPECT_EQ(lock("a:b"), 0);
    EXPECT_EQ(unlock(1), 0);
    engine_.printTree();
    node_->unlock();
    EXPECT_EQ(waiter.handle(), 2);
}

// ---- the client's connection -------------------------------------------------------

TEST_F(RANode, SendsEarlierAnswersBeforeEachWait) {
    node_->lock(0);
    Waiter waiter(engine_, "a:b", kForever);
    ASSERT_TRUE(waiter.awaitWait());
    EXPECT_EQ(waiter.client.written(), Texts{"flush"});
    node_->unlock();
    EXPECT_EQ(waiter.handle(), 1);
}

TEST_F(RANode, LocksNothingForAClientThatCannotBeSentItsEarlierAnswers) {
    node_->lock(0);
    Client client;
    client.failWritesAfter(0);
    EXPECT_THROW(node_->lock(kForever, &client), VornSupport::VornException);
    node_->unlock();
    EXPECT_FALSE(node_->isLocked());
    EXPECT_TRUE(node_->lock(0));
}

// One that is not woken finds out when it next looks, a second after it began.
TEST_F(RANode, EndsAWaitWhoseConnectionIsBrokenOff) {
    node_->lock(0);
    const auto attempt = [&] {
        Waiter waiter(engine_, "a:b", kForever);
        EXPECT_TRUE(waiter.awaitWait());
        EXPECT_FALSE(waiter.awaitEnd(kWrongly));
        waiter.client.abort();
        EXPECT_TRUE(waiter.awaitEnd());
        return waiter.elapsed();
    };
    EXPECT_TRUE(TestSupport::mostTakeLessThan(milliseconds(1000), attempt))
        << "it waits for the next look";
    node_->unlock();
    EXPECT_FALSE(node_->isLocked());
}

TEST_F(RANode, DoesNotWaitForAConnectionThatIsBrokenOffAlready) {
    node_->lock(0);
    Client client;
    client.onFlush = [&] { client.abort(); };
    EXPECT_FALSE(node_->lock(kForever, &client));
}

TEST_F(RANode, NoticesWithinAWaitThatItsClientHasGone) {
    node_->lock(0);
    Client gone;
    gone.gone = true;
    EXPECT_FALSE(node_->lock(kForever, &gone)) << "before it begins";
    Waiter waiter(engine_, "a:b", kForever);
    ASSERT_TRUE(waiter.awaitWait());
    waiter.client.gone = true;
    EXPECT_TRUE(waiter.awaitEnd()) << "while it lasts";
    node_->unlock();
    EXPECT_FALSE(node_->isLocked());
}

// ---- events ------------------------------------------------------------------------

TEST_F(RANode, RaisesItsEventsInTheOrderOfItsChanges) {
    constexpr int kClients = 4;
    constexpr int kPairs = 300;
    {
        std::vector<std::jthread> clients;
        for (int i = 0; i < kClients; ++i) {
            clients.emplace_back([&] {
                for (int n = 0; n < kPairs; ++n) {
                    ASSERT_TRUE(node_->lock(kForever));
                    ASSERT_TRUE(node_->unlock());
                }
            });
        }
    }
    const Texts raised = events();
    ASSERT_EQ(raised.size(), 2u * kClients * kPairs);
    for (std::size_t i = 0; i < raised.size(); ++i) {
        ASSERT_EQ(raised[i], i % 2 == 0 ? "VornRAEvent:a:b=1" : "VornRAEvent:a:b=0") << i;
    }
}

// ---- traces ------------------------------------------------------------------------

namespace {

constexpr const char* kNode = "RuvoRAEngine::RANode::";

std::vector<std::string> announcing(const std::string& operation) {
    const std::string begin = kNode + operation + "(a:b): ";
    return {begin + "enter", begin + "sending notifications to local dependents", begin + "exit"};
}

void append(std::vector<std::string>& texts, const std::vector<std::string>& more) {
    texts.insert(texts.end(), more.begin(), more.end());
}

// Without what the notification engine and the events have to say.
std::vector<std::string> own(const LogCapture& log) {
    auto texts = log.texts(9);
    std::erase_if(texts, [](const std::string& text) {
        return !text.starts_with("RuvoRA") && !text.starts_with("RUVO_RA") &&
               text.find("RANode::print") == std::string::npos;
    });
    return texts;
}

}  // namespace

TEST_F(RANode, TellsOnTheThreadThatChangesIt) {
    class Noting : public VornSupport::VornDependent {
    public:
        std::vector<std::thread::id> threads;

    private:
        void handleNotification(VornSupport::VornCollaborator&,
                                const VornSupport::VornNotification&) override {
            threads.push_back(std::this_thread::get_id());
        }
    };
    Noting noting;
    node_->addDependent(noting);
    node_->lock(0);
    std::thread::id other;
    std::jthread([&] {
        other = std::this_thread::get_id();
        node_->unlock();
    }).join();
    node_->removeDependent(noting);
    EXPECT_EQ(noting.threads, (std::vector{std::this_thread::get_id(), other}));
}

TEST_F(RANode, TracesALockAndItsRelease) {
    const LogCapture log(9);
    node_->lock(100);
    node_->unlock();
    node_->unlock();
    Texts expected{"RuvoRAEngine::RANode::lock(a:b): enter",
                   "RuvoRAEngine::RANode::lock(a:b): locking node"};
    append(expected, announcing("sendLockNotification"));
    append(expected, {"RuvoRAEngine::RANode::lock(a:b): exit (true)"});
    append(expected, announcing("sendUnlockNotification"));
    EXPECT_EQ(own(log), expected);
}

TEST_F(RANode, TracesWhatDoesNotWait) {
    node_->lock(0);
    const LogCapture log(9);
    node_->lock(0);
    EXPECT_EQ(own(log), (Texts{"RuvoRAEngine::RANode::lock(a:b): enter",
                               "RuvoRAEngine::RANode::lock(a:b): exit (false)"}));
}

TEST_F(RANode, TracesAWaitInVain) {
    node_->lock(0);
    const LogCapture log(9);
    node_->lock(7);
    EXPECT_EQ(own(log),
              (Texts{"RuvoRAEngine::RANode::lock(a:b): enter",
                     "RuvoRAEngine::RANode::lock(a:b): delaying for 7ms or until node is unlocked",
                     "RuvoRAEngine::RANode::lock(a:b): timer expired, node is still locked",
                     "RuvoRAEngine::RANode::lock(a:b): exit (false)"}));
}

TEST_F(RANode, TracesAWaitThatIsWorthIt) {
    node_->lock(0);
    const LogCapture log(9);
    Client client;
    client.onLook = [&] {
        client.onLook = nullptr;
        node_->unlock();
    };
    node_->lock(-3, &client);
    const std::string lock = "RuvoRAEngine::RANode::lock(a:b): ";
    const std::string told = "RuvoRATimedUnlock::handleNotification: ";
    const Texts unlocking = announcing("sendUnlockNotification");
    Texts expected{lock + "enter",
                   lock + "delaying for -3ms or until node is unlocked",
                   unlocking[0],
                   unlocking[1],
                   told + "enter",
                   told + "setting eventUnlock",
                   told + "exit",
                   unlocking[2],
                   "RuvoRATimedUnlock::wait: node unlocked before timer expired",
                   lock + "node was unlocked, retrying lock",
                   lock + "locking node"};
    append(expected, announcing("sendLockNotification"));
    append(expected, {lock + "exit (true)"});
    EXPECT_EQ(own(log), expected);
}
