#include "engines/RuvoEngineBase.h"

#include "engines/RuvoEngineFunctionHandler.h"
#include "runtime/support/VornException.h"
#include "tests/support/FakeConnection.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace RuvoService;
using TestSupport::FakeConnection;
using TestSupport::LogCapture;
using VornNet::VornConnection;
using VornSupport::VornException;

namespace {

using Texts = std::vector<std::string>;

std::atomic<int> liveHandlers{0};

class CountedHandler : public RuvoEngineFunctionHandler {
public:
    CountedHandler() { ++liveHandlers; }
    ~CountedHandler() override { --liveHandlers; }
};

// Answers twice the number that it reads.
class DOUBLE final : public CountedHandler {
public:
    void handleClient(VornConnection& connection, RuvoEngineBase&) override {
        connection.writeInt(2 * connection.readInt());
    }
};

class FAIL_HALFWAY final : public CountedHandler {
public:
    void handleClient(VornConnection& connection, RuvoEngineBase&) override {
        connection.writeInt(1);
        throw VornException("halfway", 17);
    }
};

class OtherEngine;

class NEEDS_OTHER_ENGINE final : public CountedHandler {
public:
    void handleClient(VornConnection&, RuvoEngineBase& engine) override { as<OtherEngine>(engine); }
};

// Waits until two of its kind are at work and tells who they are.
struct Meeting {
    std::atomic<int> arrived{0};
    std::atomic<const void*> who[2]{};
} meeting;

class MEET final : public CountedHandler {
public:
    void handleClient(VornConnection& connection, RuvoEngineBase&) override {
        meeting.who[connection.readInt()] = this;
        ++meeting.arrived;
        if (TestSupport::waitUntil([] { return meeting.arrived == 2; })) connection.writeInt(0);
    }
};

class TestEngine : public RuvoEngineBase {
public:
    explicit TestEngine(const std::string& name = "TestEngine") : RuvoEngineBase(name) {
        addCommand<DOUBLE>("DOUBLE");
        addCommand<FAIL_HALFWAY>("FAIL_HALFWAY");
        addCommand<NEEDS_OTHER_ENGINE>("NEEDS_OTHER_ENGINE");
        addCommand<MEET>("MEET");
    }
    ~TestEngine() override { retire(); }
    using RuvoEngineBase::handleClient;

protected:
    bool initialize() override { return true; }
    bool cleanup() override { return true; }
};

class OtherEngine : public TestEngine {
public:
    OtherEngine() : TestEngine("OtherEngine") {}
};

}  // namespace

TEST(RuvoEngineBase, LetsTheNamedCommandRunTheRestOfTheExchange) {
    TestEngine engine;
    FakeConnection connection;
    connection.sendString("DOUBLE").sendInt(21);
    engine.handleClient(connection);
    EXPECT_EQ(connection.written(), Texts{"int 42"});
    EXPECT_EQ(connection.unread(), 0u);
    EXPECT_EQ(liveHandlers, 0);
}

TEST(RuvoEngineBase, AnswersAnUnknownCommandWithItsCodeAlone) {
    TestEngine engine;
    FakeConnection connection;
    connection.sendString("TRIPLE").sendInt(21);
    const LogCapture log(2);
    engine.handleClient(connection);
    EXPECT_EQ(connection.written(), Texts{"int -999"});
    EXPECT_EQ(log.texts(2),
              Texts{"RuvoEngineBase::handleClient: unknown command from client - TRIPLE"});
}

TEST(RuvoEngineBase, TakesCommandNamesExactly) {
    TestEngine engine;
    for (const char* name : {"", "double", "Double", "DOUBLE ", " DOUBLE", "DOUBL"}) {
        FakeConnection connection;
        connection.sendString(name).sendInt(1);
        const LogCapture log(2);
        engine.handleClient(connection);
        EXPECT_EQ(connection.written(), Texts{"int -999"}) << name;
        EXPECT_TRUE(log.has(2, std::string("RuvoEngineBase::handleClient: unknown command from "
                                           "client - ") + name))
            << name;
    }
    FakeConnection zero;
    zero.sendString(std::string("DOUBLE\0", 7));
    engine.handleClient(zero);
    EXPECT_EQ(zero.written(), Texts{"int -999"});
}

TEST(RuvoEngineBase, LeavesTheConnectionUsableAfterAnUnknownCommand) {
    TestEngine engine;
    FakeConnection connection;
    connection.sendString("TRIPLE").sendString("DOUBLE").sendInt(4);
    engine.handleClient(connection);
    engine.handleClient(connection);
    EXPECT_EQ(connection.written(), (Texts{"int -999", "int 8"}));
    EXPECT_FALSE(connection.isClosed());
}

TEST(RuvoEngineBase, PassesOnWhatTheHandlerThrows) {
    TestEngine engine;
    FakeConnection connection;
    connection.sendString("FAIL_HALFWAY");
    try {
        engine.handleClient(connection);
        FAIL() << "nothing was thrown";
    } catch (const VornException& e) {
        EXPECT_EQ(e.getMessage(), "halfway");
        EXPECT_EQ(e.getCode(), 17);
    }
    EXPECT_EQ(connection.written(), Texts{"int 1"});
    EXPECT_EQ(liveHandlers, 0);
}

TEST(RuvoEngineBase, WritesNothingWhenTheCommandNameCannotBeRead) {
    TestEngine engine;
    FakeConnection gone;
    EXPECT_THROW(engine.handleClient(gone), VornException);
    EXPECT_TRUE(gone.written().empty());

    FakeConnection truncated;
    truncated.sendBytes(std::string("\0\0\0\6DOUB", 8));
    EXPECT_THROW(engine.handleClient(truncated), VornException);
    EXPECT_TRUE(truncated.written().empty());
}

TEST(RuvoEngineBase, PassesOnAConnectionThatFailsInTheAnswer) {
    TestEngine engine;
    FakeConnection connection;
    connection.sendString("TRIPLE").failWritesAfter(0);
    EXPECT_THROW(engine.handleClient(connection), VornException);
}

TEST(RuvoEngineBase, TracesTheWayInAndNotTheWayOut) {
    TestEngine engine;
    FakeConnection connection;
    connection.sendString("DOUBLE").sendInt(1);
    const LogCapture log(9);
    engine.handleClient(connection);
    EXPECT_EQ(log.texts(), (Texts{"RuvoEngineBase::handleClient: entering",
                                  "RuvoEngineBase::handleClient: command DOUBLE"}));
    EXPECT_EQ(log.texts(9).size(), 2u);
}

TEST(RuvoEngineBase, GivesEachRequestAHandlerOfItsOwn) {
    TestEngine engine;
    FakeConnection connections[2];
    meeting.arrived = 0;
    std::vector<std::jthread> clients;
    for (int i = 0; i < 2; ++i) {
        connections[i].sendString("MEET").sendInt(i);
        clients.emplace_back([&, i] { engine.handleClient(connections[i]); });
    }
    clients.clear();
    EXPECT_NE(meeting.who[0].load(), meeting.who[1].load());
    EXPECT_EQ(connections[0].written(), Texts{"int 0"});
    EXPECT_EQ(connections[1].written(), Texts{"int 0"});
    EXPECT_EQ(liveHandlers, 0);
}

TEST(RuvoEngineBase, RefusesToRunACommandOfAnotherEngine) {
    TestEngine engine;
    FakeConnection connection;
    connection.sendString("NEEDS_OTHER_ENGINE");
    EXPECT_THROW(engine.handleClient(connection), VornException);
    OtherEngine other;
    FakeConnection again;
    again.sendString("NEEDS_OTHER_ENGINE");
    EXPECT_NO_THROW(other.handleClient(again));
}

TEST(RuvoEngineBase, DoesNothingWithARequestInTheFormOfAText) {
    TestEngine engine;
    std::string request = "DOUBLE";
    engine.handleClient(request);
    EXPECT_EQ(request, "DOUBLE");
}
