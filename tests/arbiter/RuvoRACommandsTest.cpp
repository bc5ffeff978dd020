#include "arbiter/RuvoRACommands.h"

#include "runtime/net/VornNetLimits.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"
#include "runtime/support/VornPostponed.h"
#include "tests/arbiter/ArbiterFixture.h"
#include "tests/support/LogCapture.h"

#include <new>
#include <string>
#include <vector>

using namespace ArbiterTest;
using TestSupport::LogCapture;
using VornSupport::VornException;

namespace {

class RuvoRACommands : public Fixture {
protected:
    // A client that has asked for the lock and not been served yet.
    static void request(Client& client, std::string_view path, int waitMs) {
        client.sendString("RUVO_RA_LOCK").sendString(path).sendInt(waitMs);
    }
};

}  // namespace

// ---- RUVO_RA_LOCK ------------------------------------------------------------------

TEST_F(RuvoRACommands, LockReadsThePathBeforeTheWait) {
    Client client;
    request(client, "a:b", 5000);
    EXPECT_EQ(serve(client), (Texts{"int 1", "flush"}));
    EXPECT_EQ(client.reads(), (Texts{"string", "string", "int"}));
    EXPECT_TRUE(engine_.isLocked("a:b"));
}

TEST_F(RuvoRACommands, LockAnswersZeroWhenItIsNotObtained) {
    EXPECT_EQ(lock("a"), 1);
    Client client;
    request(client, "a", 0);
    EXPECT_EQ(serve(client), Texts{"int 0"}) << "and holds the answer back for the next one's";
    EXPECT_EQ(lock("a", 20), 0);
}

TEST_F(RuvoRACommands, LockMakesNothingOfATruncatedRequest) {
    Client noWait;
    noWait.sendString("RUVO_RA_LOCK").sendString("a").sendBytes(std::string("\0\0\0", 3));
    noWait.endOfInput();
    EXPECT_THROW(serve(noWait), VornException);
    Client noPath;
    noPath.sendString("RUVO_RA_LOCK").sendBytes(std::string("\0\0\0\5a", 5));
    noPath.endOfInput();
    EXPECT_THROW(serve(noPath), VornException);
    EXPECT_TRUE(noWait.written().empty());
    EXPECT_TRUE(noPath.written().empty());
    EXPECT_FALSE(engine_.isLocked("a"));
    EXPECT_TRUE(events().empty());
}

// ---- clients that go -----------------------------------------------------------------

TEST_F(RuvoRACommands, LockIsGivenBackWhenTheHandleCannotBeWritten) {
    Client client;
    request(client, "a", 0);
    client.failWritesAfter(0);
    EXPECT_TRUE(serve(client).empty());
    EXPECT_FALSE(engine_.isLocked("a"));
    EXPECT_EQ(engine_.heldHandlesForTest(), 0u);
    EXPECT_EQ(lock("a"), 2);
    EXPECT_EQ(events(), (Texts{"VornRAEvent:a=1", "VornRAEvent:a=0", "VornRAEvent:a=1"}));
}

TEST_F(RuvoRACommands, LockIsGivenBackWhenTheHandleCannotBeSent) {
    Client client;
    request(client, "a", 0);
    client.failWritesAfter(1);
    EXPECT_EQ(serve(client), Texts{"int 1"});
    EXPECT_FALSE(engine_.isLocked("a"));
}

TEST_F(RuvoRACommands, LockIsGivenBackWhateverKeepsItsHandleFromTheClient) {
    class OutOfMemory : public Client {
    public:
        void writeInt(int) override { throw std::bad_alloc(); }
    };
    OutOfMemory client;
    request(client, "a", 0);
    EXPECT_THROW(serve(client), std::bad_alloc);
    EXPECT_FALSE(engine_.isLocked("a"));
    EXPECT_EQ(engine_.heldHandlesForTest(), 0u);
}

// What is sent to a connection that the client has closed seems to arrive.
TEST_F(RuvoRACommands, LockIsGivenBackWhenTheClientHasClosedItsConnection) {
    Client client;
    request(client, "a", 0);
    client.gone = true;
    EXPECT_EQ(serve(client), (Texts{"int 0", "flush"})) << "it might still read what is written";
    EXPECT_FALSE(engine_.isLocked("a"));
    EXPECT_EQ(engine_.heldHandlesForTest(), 0u);
}

TEST_F(RuvoRACommands, LockIsGivenBackWhenTheClientGoesWhileItWaits) {
    EXPECT_EQ(lock("a"), 1);
    Waiter waiter(engine_, "a", kForever);
    ASSERT_TRUE(waiter.awaitWait());
    EXPECT_FALSE(waiter.awaitEnd(kWrongly));
    waiter.client.gone = true;
    unlock(1);
    EXPECT_TRUE(waiter.awaitEnd());
    EXPECT_FALSE(engine_.isLocked("a"));
    EXPECT_EQ(engine_.heldHandlesForTest(), 0u);
}

TEST_F(RuvoRACommands, LockThatIsGivenBackGoesToTheNextWaiter) {
    EXPECT_EQ(lock("a"), 1);
    Waiter leaving(engine_, "a", kForever);
    ASSERT_TRUE(leaving.awaitWait());
    leaving.client.gone = true;
    Waiter staying(engine_, "a", kForever);
    ASSERT_TRUE(staying.awaitWait());
    unlock(1);
    EXPECT_GT(staying.handle(), 1);
    EXPECT_TRUE(leaving.awaitEnd());
    EXPECT_TRUE(engine_.isLocked("a"));
    EXPECT_EQ(engine_.heldHandlesForTest(), 1u);
}

TEST_F(RuvoRACommands, LockThatWasRefusedGivesNothingBack) {
    EXPECT_EQ(lock("a"), 1);
    for (const int writes : {0, 1}) {
        Client client;
        request(client, "a", 0);
        client.failWritesAfter(writes);
        client.gone = true;
        serve(client);
        EXPECT_TRUE(engine_.isLocked("a"));
    }
    EXPECT_EQ(engine_.heldHandlesForTest(), 1u);
}

TEST_F(RuvoRACommands, LockIsNotGrantedToAClientThatWasBrokenOff) {
    EXPECT_EQ(lock("a"), 1);
    Waiter waiter(engine_, "a", kForever);
    ASSERT_TRUE(waiter.awaitWait());
    waiter.client.abort();
    EXPECT_TRUE(waiter.awaitEnd());
    unlock(1);
    EXPECT_FALSE(engine_.isLocked("a"));
}

TEST_F(RuvoRACommands, LeaveTheConnectionOpen) {
    Client client;
    request(client, "a", 0);
    client.sendString("RUVO_RA_UNLOCK").sendInt(1);
    serve(client);
    EXPECT_EQ(serve(client), (Texts{"int 1", "flush", "int 0", "flush"}));
    EXPECT_FALSE(client.isClosed());
}

// ---- RUVO_RA_UNLOCK ----------------------------------------------------------------

TEST_F(RuvoRACommands, UnlockAnswersZeroWhateverTheHandle) {
    EXPECT_EQ(lock("a"), 1);
    for (const int handle : {0, -1, 7, 1, 1}) {
        Client client;
        client.sendString("RUVO_RA_UNLOCK").sendInt(handle);
        EXPECT_EQ(serve(client), (Texts{"int 0", "flush"})) << handle;
        EXPECT_EQ(client.reads(), (Texts{"string", "int"}));
    }
    EXPECT_FALSE(engine_.isLocked("a"));
}

TEST_F(RuvoRACommands, UnlockHoldsItsAnswerBackForTheNextRequest) {
    Client client;
    client.sendString("RUVO_RA_UNLOCK").sendInt(1).sendString("the next command");
    EXPECT_EQ(serve(client), Texts{"int 0"});
}

TEST_F(RuvoRACommands, UnlockTakesTheHandleOfAnotherClient) {
    Client first;
    request(first, "a", 0);
    serve(first);
    first.close();
    EXPECT_TRUE(engine_.isLocked("a")) << "a lock is not tied to a connection";
    EXPECT_EQ(unlock(1), 0);
    EXPECT_EQ(lock("a"), 2);
}

TEST_F(RuvoRACommands, UnlockKeepsItsEffectWhenTheAnswerIsLost) {
    EXPECT_EQ(lock("a"), 1);
    Client client;
    client.sendString("RUVO_RA_UNLOCK").sendInt(1).failWritesAfter(0);
    EXPECT_THROW(serve(client), VornException);
    EXPECT_FALSE(engine_.isLocked("a"));
}

// ---- both --------------------------------------------------------------------------

TEST_F(RuvoRACommands, AreFoundUnderTheirExactNamesOnly) {
    for (const char* command : {"RUVO_RA_LOCK ", "ruvo_ra_lock", "RUVO_RA_RELEASE", ""}) {
        Client client;
        client.sendString(command);
        EXPECT_EQ(serve(client), Texts{"int -999"}) << command;
    }
}

TEST_F(RuvoRACommands, WaitForRoomInTheQueueOfEvents) {
    auto& limit = VornNet::VornNetLimits::getInstance().eventQueueBytes;
    const std::uint32_t before = limit;
    limit = 0;
    EXPECT_EQ(lock("a"), 1);  // its event fills the queue, which nobody empties
    EXPECT_EQ(lock("b"), 2) << "without its thread the queue holds nobody up";
    std::atomic<bool> held{true};
    recorder_->onEvent = [&] { TestSupport::waitUntil([&] { return !held; }); };
    notifier_.initialize();
    Client client;
    client.sendString("RUVO_RA_UNLOCK").sendInt(1);
    std::jthread unlocking([&] { serve(client); });
    EXPECT_TRUE(TestSupport::waitUntil([&] { return client.flushes() == 1; }));
    EXPECT_TRUE(engine_.isLocked("a"));
    const LogCapture log(9);
    Client another;
    request(another, "c", 0);
    std::jthread locking([&] { serve(another); });
    EXPECT_TRUE(TestSupport::waitUntil([&] { return another.flushes() == 1; }));
    EXPECT_EQ(log.beginning("RUVO_RA_LOCK"), Texts{"RUVO_RA_LOCK::handleClient: enter"});
    EXPECT_FALSE(engine_.isLocked("c"));
    held = false;
    unlocking.join();
    locking.join();
    EXPECT_FALSE(engine_.isLocked("a"));
    EXPECT_TRUE(engine_.isLocked("c"));
    notifier_.cleanup();
    limit = before;
}

namespace {

// Notes at the answer whether the event still waits for it.
class WithLateEvent : public Client {
public:
    void writeInt(int value) override {
        late = VornSupport::VornPostponed::isPending();
        Client::writeInt(value);
    }
    bool late = false;
};

}  // namespace

TEST_F(RuvoRACommands, AnswerBeforeTheyWakeWhoTellsTheListeners) {
    WithLateEvent locking;
    request(locking, "a", 0);
    serve(locking);
    EXPECT_TRUE(locking.late);
    WithLateEvent unlocking;
    unlocking.sendString("RUVO_RA_UNLOCK").sendInt(1);
    serve(unlocking);
    EXPECT_TRUE(unlocking.late);
    EXPECT_FALSE(VornSupport::VornPostponed::isPending());
}

namespace {

int treeLines = 0;
int treeLinesBeforeTheWake = 0;

void countTreeLine(VornPlatform::SystemLogSeverity, const std::string& text) {
    if (text.find("RANode::print") == std::string::npos) return;
    ++treeLines;
    if (VornSupport::VornPostponed::isPending()) ++treeLinesBeforeTheWake;
}

}  // namespace

// It may be long, and listeners wait for what has happened.
TEST_F(RuvoRACommands, WakeWhoTellsTheListenersBeforeTheyPrintTheTree) {
    treeLines = treeLinesBeforeTheWake = 0;
    const LogCapture log(9);
    auto& logging = VornSupport::VornLogging::getInstance();
    logging.setSystemWriterForTest(&countTreeLine);
    logging.setTarget(static_cast<int>(VornSupport::VornLogTarget::System));
    WithLateEvent locking;
    request(locking, "a", 0);
    serve(locking);
    EXPECT_TRUE(locking.late);
    unlock(1);
    Client gone;
    request(gone, "a", 0);
    gone.gone = true;
    serve(gone);
    logging.setTarget(static_cast<int>(VornSupport::VornLogTarget::None));
    logging.setSystemWriterForTest(nullptr);
    EXPECT_EQ(treeLines, 6);
    EXPECT_EQ(treeLinesBeforeTheWake, 0);
}

// ---- traces ------------------------------------------------------------------------

namespace {

std::vector<std::string> own(const LogCapture& log) {
    auto texts = log.texts(9);
    std::erase_if(texts, [](const std::string& text) {
        return !text.starts_with("RUVO_RA") && !text.starts_with("RuvoRAEngine::lock") &&
               text.find("RANode::print") == std::string::npos;
    });
    return texts;
}

const std::vector<std::string> kTree{"RANode::print: Node Name = root",
                                     "  RANode::print: Node Name = a"};
constexpr const char* kCommunicationError =
    "RUVO_RA_LOCK::handleClient: client communication error.  Unlocking the acquired resource.";

}  // namespace

TEST_F(RuvoRACommands, TraceWhatTheyDo) {
    const LogCapture log(9);
    lock("a", 250);
    lock("a", 0);
    unlock(1);
    EXPECT_EQ(own(log),
              (Texts{"RUVO_RA_LOCK::handleClient: enter",
                     "RUVO_RA_LOCK::handleClient: lock a wait 250ms for the lock",
                     "RuvoRAEngine::lock: lock handle 1", kTree[0], kTree[1],
                     "RUVO_RA_LOCK::handleClient: exit", "RUVO_RA_LOCK::handleClient: enter",
                     "RUVO_RA_LOCK::handleClient: lock a wait 0ms for the lock",
                     "RuvoRAEngine::lock: lock handle 0", kTree[0], kTree[1],
                     "RUVO_RA_LOCK::handleClient: exit", "RUVO_RA_UNLOCK::handleClient: unlock 1",
                     kTree[0], kTree[1]}));
}

// A lock is answered before the tree is printed, an unlock afterwards.
TEST_F(RuvoRACommands, AnswerInTheirOrder) {
    const LogCapture log(9);
    class Watching : public Client {
    public:
        explicit Watching(const LogCapture& log) : log_(log) {}
        void writeInt(int value) override {
            atAnswer = own(log_).back();
            Client::writeInt(value);
        }
        int readInt() override {
            const auto texts = own(log_);
            atArgument = texts.empty() ? "" : texts.back();
            return Client::readInt();
        }
        std::string atAnswer;
        std::string atArgument;

    private:
        const LogCapture& log_;
    };
    Watching locking(log);
    request(locking, "a", 0);
    serve(locking);
    EXPECT_EQ(locking.atArgument, "RUVO_RA_LOCK::handleClient: enter");
    EXPECT_EQ(locking.atAnswer, "RuvoRAEngine::lock: lock handle 1");
    Watching unlocking(log);
    unlocking.sendString("RUVO_RA_UNLOCK").sendInt(1);
    serve(unlocking);
    EXPECT_EQ(unlocking.atAnswer, kTree[1]);
}

TEST_F(RuvoRACommands, TraceALockThatIsGivenBackOnceThoughTheAnswerIsLostToo) {
    const LogCapture log(9);
    Client client;
    request(client, "a", 0);
    client.gone = true;
    client.failWritesAfter(0);
    EXPECT_TRUE(serve(client).empty());
    EXPECT_EQ(own(log), (Texts{"RUVO_RA_LOCK::handleClient: enter",
                               "RUVO_RA_LOCK::handleClient: lock a wait 0ms for the lock",
                               "RuvoRAEngine::lock: lock handle 1", kCommunicationError, kTree[0],
                               kTree[1]}));
    EXPECT_FALSE(engine_.isLocked("a"));
}

// It says that it unlocks, though there is nothing to be unlocked.
TEST_F(RuvoRACommands, TraceARefusalThatCannotBeWritten) {
    lock("a");
    const LogCapture log(9);
    Client client;
    request(client, "a", 0);
    client.failWritesAfter(0);
    EXPECT_TRUE(serve(client).empty());
    EXPECT_EQ(own(log), (Texts{"RUVO_RA_LOCK::handleClient: enter",
                               "RUVO_RA_LOCK::handleClient: lock a wait 0ms for the lock",
                               "RuvoRAEngine::lock: lock handle 0", kCommunicationError, kTree[0],
                               kTree[1]}));
    EXPECT_TRUE(engine_.isLocked("a"));
}

// The end of the service would wait for hundreds of trees.
TEST_F(RuvoRACommands, PrintNoTreeForAConnectionThatIsBrokenOff) {
    lock("a");
    const LogCapture log(9);
    Waiter waiter(engine_, "a", kForever);
    ASSERT_TRUE(waiter.awaitWait());
    waiter.client.abort();
    ASSERT_TRUE(waiter.awaitEnd());
    EXPECT_EQ(own(log), (Texts{"RUVO_RA_LOCK::handleClient: enter",
                               "RUVO_RA_LOCK::handleClient: lock a wait -1ms for the lock",
                               "RuvoRAEngine::lock: lock handle 0", kCommunicationError}));
}

TEST_F(RuvoRACommands, TraceALockThatIsGivenBack) {
    const LogCapture log(9);
    Client client;
    request(client, "a", -1);
    client.gone = true;
    serve(client);
    EXPECT_EQ(own(log), (Texts{"RUVO_RA_LOCK::handleClient: enter",
                               "RUVO_RA_LOCK::handleClient: lock a wait -1ms for the lock",
                               "RuvoRAEngine::lock: lock handle 1", kCommunicationError, kTree[0],
                               kTree[1]}));
}
