// Who hears of the changes of a lock.

#include "tests/arbiter/ArbiterFixture.h"
#include "tests/support/LogCapture.h"

#include <algorithm>
#include <memory>
#include <string>

using namespace ArbiterTest;
using TestSupport::LogCapture;

namespace {

// Is registered in the moment in which an event is not made for want of listeners.
std::unique_ptr<Recorder> latecomer;

class ArbiterEvents : public Fixture {
protected:
    ArbiterEvents() { recorder_.remove(); }
    ~ArbiterEvents() override {
        RANode::setWhenUnheardForTest(nullptr);
        latecomer.reset();
    }
    using RANode = RuvoService::RuvoRAEngine::RANode;

    static void registerOneInTheMiddle() {
        RANode::setWhenUnheardForTest([] {
            RANode::setWhenUnheardForTest(nullptr);
            latecomer = std::make_unique<Recorder>(2);
        });
    }
    Texts heardBy(const Recorder& listener) {
        notifier_.initialize();
        notifier_.cleanup();
        return listener->names();
    }
};

}  // namespace

TEST_F(ArbiterEvents, AreNotMadeWhileNobodyListens) {
    EXPECT_GT(lock("a"), 0);
    const Recorder listener(2);
    EXPECT_GT(lock("b"), 0);
    EXPECT_EQ(heardBy(listener), Texts{"VornRAEvent:b"});
}

TEST_F(ArbiterEvents, AreMadeForWhoComesBetweenLockAndUnlock) {
    const int handle = lock("a");
    const Recorder listener(2);
    EXPECT_EQ(unlock(handle), 0);
    EXPECT_EQ(heardBy(listener), Texts{"VornRAEvent:a"});
}

// Who has registered may look at a lock, and is told of all that it becomes from there.
TEST_F(ArbiterEvents, AreMadeForWhoComesInTheMiddleOfALock) {
    registerOneInTheMiddle();
    EXPECT_GT(lock("a"), 0);
    ASSERT_TRUE(latecomer);
    EXPECT_EQ(heardBy(*latecomer), Texts{"VornRAEvent:a"});
}

TEST_F(ArbiterEvents, AreMadeForWhoComesInTheMiddleOfAnUnlock) {
    const int handle = lock("a");
    registerOneInTheMiddle();
    EXPECT_EQ(unlock(handle), 0);
    ASSERT_TRUE(latecomer);
    EXPECT_EQ(heardBy(*latecomer), Texts{"VornRAEvent:a"});
}

TEST_F(ArbiterEvents, AreTracedWhileNobodyListens) {
    notifier_.initialize();
    const LogCapture log(9);
    EXPECT_GT(lock("a"), 0);
    notifier_.cleanup();
    EXPECT_TRUE(std::ranges::any_of(log.texts(9), [](const std::string& text) {
        return text.starts_with("NotificationQueueHandler::run: Processing notification=") &&
               text.ends_with("(event=|VornRAEvent:a|)");
    }));
}
