#include "arbiter/RuvoRATimedUnlock.h"

#include "tests/arbiter/ArbiterFixture.h"
#include "tests/support/LogCapture.h"

#include <limits>
#include <stdexcept>
#include <string>

using namespace ArbiterTest;
using RuvoService::RuvoRATimedUnlock;

namespace {

class TimedUnlock : public Fixture {
protected:
    void SetUp() override { ASSERT_TRUE(node_->lock(0)); }

    Engine::Node node_ = engine_.getNode("a");
};

}  // namespace

TEST_F(TimedUnlock, SaysFalseWhenTheTimeIsUp) {
    RuvoRATimedUnlock waiting(*node_, nullptr);
    EXPECT_FALSE(waiting.wait(0));
    for (const int waitMs : {1, 60}) {
        const auto begun = Clock::now();
        EXPECT_FALSE(waiting.wait(waitMs));
        EXPECT_GE(Clock::now() - begun, milliseconds(waitMs));
    }
}

TEST_F(TimedUnlock, SaysTrueForAnUnlockBeforeTheWait) {
    RuvoRATimedUnlock waiting(*node_, nullptr);
    node_->unlock();
    node_->lock(0);
    EXPECT_TRUE(waiting.wait(kForever)) << "it was told, though the node is locked again";
}

// The caller saw the node locked before it was registered.
TEST_F(TimedUnlock, SaysTrueForAnUnlockBeforeItWasMade) {
    node_->unlock();
    RuvoRATimedUnlock waiting(*node_, nullptr);
    EXPECT_TRUE(waiting.wait(kForever));
}

TEST_F(TimedUnlock, EndsWithAnUnlockOnAnotherThread) {
    for (const int waitMs : {kLong, kForever, std::numeric_limits<int>::max()}) {
        RuvoRATimedUnlock waiting(*node_, nullptr);
        std::jthread other([&] { node_->unlock(); });
        EXPECT_TRUE(waiting.wait(waitMs)) << waitMs;
        other.join();
        node_->lock(0);
    }
}

TEST_F(TimedUnlock, FindsOutAndSaysSoWhenNobodyTellsIt) {
    class Refusing : public VornSupport::VornDependent {
        void handleNotification(VornSupport::VornCollaborator&,
                                const VornSupport::VornNotification&) override {
            throw std::runtime_error("no memory, say");
        }
    };
    const std::string forgotten = "RuvoRATimedUnlock::wait: unlocked, and we were not told";
    const TestSupport::LogCapture log(2);
    Refusing refusing;  // ends the walk before the wait's turn
    node_->addDependent(refusing);
    Client client;
    RuvoRATimedUnlock waiting(*node_, &client);
    client.onLook = [&] {
        if (node_->isLocked()) node_->unlock();
    };
    EXPECT_TRUE(waiting.wait(kForever));
    EXPECT_TRUE(log.has(2, forgotten));
    node_->removeDependent(refusing);

    node_->lock(0);
    RuvoRATimedUnlock told(*node_, &client);
    EXPECT_TRUE(told.wait(kForever));
    EXPECT_EQ(log.count(2, forgotten), 1u);
}

TEST_F(TimedUnlock, IsToldNothingAfterItsEnd) {
    { RuvoRATimedUnlock waiting(*node_, nullptr); }
    const TestSupport::LogCapture log(9);
    node_->unlock();
    EXPECT_TRUE(log.beginning("RuvoRATimedUnlock").empty());
}

TEST_F(TimedUnlock, LooksForItsClientNowAndThen) {
    Client client;
    std::atomic<int> looks{0};
    client.onLook = [&] {
        if (++looks == 2) client.gone = true;
    };
    RuvoRATimedUnlock waiting(*node_, &client);
    const auto begun = Clock::now();
    EXPECT_FALSE(waiting.wait(kForever));
    EXPECT_EQ(looks, 3);
    EXPECT_GE(Clock::now() - begun, milliseconds(1900)) << "a second lies between two looks";
}

TEST_F(TimedUnlock, LeavesTheConnectionAloneAfterwards) {
    Client client;
    { RuvoRATimedUnlock waiting(*node_, &client); }
    client.abort();  // the event that it would set is gone
    EXPECT_TRUE(client.isAborted());
}
