#include "notifier/RuvoNNCommands.h"

#include "engines/RuvoEngineBase.h"
#include "runtime/net/VornNetLimits.h"
#include "runtime/net/WireCodec.h"
#include "runtime/support/VornException.h"
#include "tests/notifier/RecordingDependent.h"
#include "tests/notifier/TestNotifier.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <thread>
#include <vector>

using TestSupport::addressText;
using TestSupport::FakeConnection;
using TestSupport::LogCapture;
using VornNet::VornProxyDependentContainer;
using VornSupport::VornException;

namespace {

using Texts = std::vector<std::string>;

const Texts kDone{"int 0"};

VornProxyDependentContainer& container() { return VornProxyDependentContainer::getInstance(); }

class RuvoNNCommands : public testing::Test {
protected:
    ~RuvoNNCommands() override { emptyContainer(); }
    TestNotifier engine_;
};

}  // namespace

// ---- RUVO_NN_REGISTER --------------------------------------------------------------

TEST_F(RuvoNNCommands, RegisterPutsTheClientIntoTheContainer) {
    FakeConnection connection;
    connection.sendString("RUVO_NN_REGISTER").sendString("disk").sendString("tcp:host:7");
    connection.sendInt(-5).sendInt(99);
    EXPECT_EQ(engine_.run(connection), kDone);
    EXPECT_EQ(connection.reads(), (Texts{"string", "string", "string", "int"}));
    EXPECT_EQ(connection.unread(), 4u);
    ASSERT_EQ(container().size(), 1);
    EXPECT_TRUE(container().lookup("tcp:host:7", -5));
    EXPECT_TRUE(container().lookup("tcp:host:7", -5)->isA("RuvoNNConsumer"));
}

TEST_F(RuvoNNCommands, RegisterRefusesAnEmptySignature) {
    EXPECT_EQ(engine_.enroll("", "tcp:host:7", 1), Texts{"int -2"});
    EXPECT_EQ(container().size(), 0);
}

TEST_F(RuvoNNCommands, RegisterTakesTheSameClientTwice) {
    EXPECT_EQ(engine_.enroll("disk", "tcp:host:7", 1), kDone);
    EXPECT_EQ(engine_.enroll("disk", "tcp:host:7", 1), kDone);
    EXPECT_EQ(container().size(), 2);
}

TEST_F(RuvoNNCommands, RegisterTakesWhatTurnsOutUseless) {
    EXPECT_EQ(engine_.enroll("disk[", "tcp:host:7", 1), kDone);
    EXPECT_EQ(engine_.enroll("disk", "no remote name", 1), kDone);
    EXPECT_EQ(engine_.enroll("disk", "", 1), kDone);
    EXPECT_EQ(container().size(), 3);
}

TEST_F(RuvoNNCommands, RegisterTellsOfARemoteNameThatCannotBeReached) {
    const LogCapture log(3);
    for (const std::string name : {"no remote name", "", "pipe", "tcp:host:0", "tcp:host:70000"}) {
        EXPECT_EQ(engine_.enroll("disk", name, 1), kDone);
        EXPECT_TRUE(log.has(3, "RUVO_NN_REGISTER::handleClient: " + name + " cannot be reached"))
            << name;
    }
    EXPECT_EQ(engine_.enroll("disk", std::string(100000, 'x'), 1), kDone);
    EXPECT_TRUE(log.has(3, "RUVO_NN_REGISTER::handleClient: " + std::string(200, 'x') +
                               "... cannot be reached"));
    const auto told = log.beginning("RUVO_NN_REGISTER::").size();
    EXPECT_EQ(engine_.enroll("disk", "tcp:host:7", 1), kDone);
    EXPECT_EQ(engine_.enroll("", "no remote name", 1), Texts{"int -2"});
    EXPECT_EQ(log.beginning("RUVO_NN_REGISTER::").size(), told);
}

TEST_F(RuvoNNCommands, RegisterTraces) {
    const LogCapture log(9);
    engine_.enroll("disk", "tcp:host:7", 1);
    EXPECT_EQ(log.beginning("RUVO_NN_REGISTER::"),
              (Texts{"RUVO_NN_REGISTER::handleClient: enter",
                     "RUVO_NN_REGISTER::handleClient: event=|disk| from tcp:host:7",
                     "RUVO_NN_REGISTER::handleClient: nconsumers=1",
                     "RUVO_NN_REGISTER::handleClient: exit"}));
    engine_.enroll("", "tcp:host:8", 1);
    EXPECT_TRUE(log.has(9, "RUVO_NN_REGISTER::handleClient: event=|| from tcp:host:8"));
    EXPECT_EQ(log.count(9, "RUVO_NN_REGISTER::handleClient: nconsumers=1"), 2u);
}

TEST_F(RuvoNNCommands, RegisterKeepsAClientThatCannotLearnOfIt) {
    FakeConnection connection;
    connection.sendString("RUVO_NN_REGISTER").sendString("disk").sendString("tcp:host:7");
    connection.sendInt(1).failWritesAfter(0);
    EXPECT_THROW(engine_.run(connection), VornException);
    EXPECT_EQ(container().size(), 1);
}

// ---- RUVO_NN_UNREGISTER ------------------------------------------------------------

TEST_F(RuvoNNCommands, UnregisterKnowsOnlyRegisteredPairs) {
    engine_.enroll("disk", "tcp:host:7", 1);
    EXPECT_EQ(engine_.withdraw("tcp:host:7", 2), Texts{"int -3"});
    EXPECT_EQ(engine_.withdraw("tcp:host:8", 1), Texts{"int -3"});
    EXPECT_EQ(engine_.withdraw("", 0), Texts{"int -3"});
    EXPECT_EQ(container().size(), 1);
    EXPECT_EQ(engine_.withdraw("tcp:host:7", 1), kDone);
    EXPECT_EQ(container().size(), 0);
    EXPECT_EQ(engine_.withdraw("tcp:host:7", 1), Texts{"int -3"});
}

TEST_F(RuvoNNCommands, UnregisterTakesOneRegistrationAtATimeTheEarliestFirst) {
    engine_.enroll("first", "tcp:host:7", 1);
    engine_.enroll("second", "tcp:host:7", 1);
    const auto second = [] {
        VornSupport::VornCriticalSection lock(container().getlock());
        return container()[1];
    }();
    EXPECT_EQ(engine_.withdraw("tcp:host:7", 1), kDone);
    EXPECT_EQ(container().size(), 1);
    EXPECT_EQ(container().lookup("tcp:host:7", 1), second);
}

// A removal may wait for the client's listener.
TEST_F(RuvoNNCommands, UnregisterSendsEarlierAnswersFirst) {
    engine_.enroll("disk", "tcp:host:7", 1);
    FakeConnection connection;
    connection.sendString("RUVO_NN_UNREGISTER").sendString("tcp:host:7").sendInt(1);
    EXPECT_EQ(engine_.run(connection), (Texts{"flush", "int 0"}));
}

TEST_F(RuvoNNCommands, UnregisterTraces) {
    engine_.enroll("disk", "tcp:host:7", 1);
    const std::string address = addressText(container().lookup("tcp:host:7", 1).get());
    const LogCapture log(9);
    engine_.withdraw("tcp:host:7", 1);
    EXPECT_EQ(log.beginning("RUVO_NN_UNREGISTER::"),
              (Texts{"RUVO_NN_UNREGISTER::handleClient: enter",
                     "RUVO_NN_UNREGISTER::handleClient: client=|tcp:host:7:1|",
                     "RUVO_NN_UNREGISTER::handleClient: spDependent lookup completed",
                     "RUVO_NN_UNREGISTER::handleClient: Found registered client, REFCLIENT=" +
                         address,
                     "RUVO_NN_UNREGISTER::handleClient: nconsumers=0",
                     "RUVO_NN_UNREGISTER::handleClient: exit"}));
}

TEST_F(RuvoNNCommands, UnregisterTracesNothingFound) {
    const LogCapture log(9);
    engine_.withdraw("tcp:host:7", -1);
    EXPECT_EQ(log.beginning("RUVO_NN_UNREGISTER::"),
              (Texts{"RUVO_NN_UNREGISTER::handleClient: enter",
                     "RUVO_NN_UNREGISTER::handleClient: client=|tcp:host:7:-1|",
                     "RUVO_NN_UNREGISTER::handleClient: spDependent lookup completed",
                     "RUVO_NN_UNREGISTER::handleClient: nconsumers=0",
                     "RUVO_NN_UNREGISTER::handleClient: exit"}));
}

TEST_F(RuvoNNCommands, UnregisterSwallowsTheFailureOfItsAnswer) {
    engine_.enroll("disk", "tcp:host:7", 1);
    FakeConnection connection;
    connection.sendString("RUVO_NN_UNREGISTER").sendString("tcp:host:7").sendInt(1);
    connection.failWritesAfter(0);
    const LogCapture log(9);
    EXPECT_NO_THROW(engine_.run(connection));
    EXPECT_TRUE(connection.written().empty());
    EXPECT_EQ(container().size(), 0);
    EXPECT_TRUE(log.has(9, "RUVO_NN_UNREGISTER::handleClient: exit"));
    // Where nothing was found, nothing is swallowed.
    FakeConnection unknown;
    unknown.sendString("RUVO_NN_UNREGISTER").sendString("tcp:host:7").sendInt(1);
    unknown.failWritesAfter(0);
    EXPECT_THROW(engine_.run(unknown), VornException);
}

// ---- RUVO_NN_NOTIFY ----------------------------------------------------------------

TEST_F(RuvoNNCommands, NotifyQueuesTheEventAndAnswersAtOnce) {
    Recorder recorder;
    const std::string data("\0data\xff\n", 7);
    FakeConnection connection;
    connection.sendString("RUVO_NN_NOTIFY").sendString("sender").sendString("disk.failed");
    connection.sendString("message").sendInt(7).sendBytes(data + "next");
    EXPECT_EQ(engine_.run(connection), kDone);  // nobody delivers yet
    EXPECT_EQ(connection.reads(),
              (Texts{"string", "string", "string", "string", "int", "bytes"}));
    EXPECT_EQ(connection.unread(), 4u);
    EXPECT_TRUE(recorder->names().empty());

    engine_.initialize();
    ASSERT_TRUE(recorder->await(1));
    EXPECT_EQ(recorder->names(), Texts{"disk.failed"});
    EXPECT_EQ(recorder->data(), Texts{data});
}

TEST_F(RuvoNNCommands, NotifyRefusesAnEmptyEventNameAfterReadingItsData) {
    Recorder recorder;
    FakeConnection connection;
    connection.sendString("RUVO_NN_NOTIFY").sendString("sender").sendString("");
    connection.sendString("message").sendInt(3).sendBytes("abc");
    EXPECT_EQ(engine_.run(connection), Texts{"int -2"});
    EXPECT_EQ(connection.unread(), 0u);
    engine_.raise("marker");
    engine_.initialize();
    ASSERT_TRUE(recorder->await(1));
    EXPECT_EQ(recorder->names(), Texts{"marker"});
}

TEST_F(RuvoNNCommands, NotifyTakesEmptyTextsAndNoData) {
    Recorder recorder;
    FakeConnection connection;
    connection.sendString("RUVO_NN_NOTIFY").sendString("").sendString("e").sendString("");
    connection.sendInt(0);
    EXPECT_EQ(engine_.run(connection), kDone);
    engine_.initialize();
    ASSERT_TRUE(recorder->await(1));
    EXPECT_EQ(recorder->data(), Texts{""});
}

TEST_F(RuvoNNCommands, NotifyStoresNothingOfABadSize) {
    Recorder recorder;
    const auto most = static_cast<int>(VornNet::VornNetLimits::getInstance().blockBytes);
    for (const int size : {-1, std::numeric_limits<int>::min(), most + 1,
                           std::numeric_limits<int>::max()}) {
        FakeConnection connection;
        connection.sendString("RUVO_NN_NOTIFY").sendString("s").sendString("bad");
        connection.sendString("m").sendInt(size).sendBytes("abc");
        EXPECT_THROW(engine_.run(connection), VornException) << size;
        EXPECT_TRUE(connection.written().empty());
        EXPECT_EQ(connection.unread(), 3u);
    }
    engine_.raise("marker");
    engine_.initialize();
    ASSERT_TRUE(recorder->await(1));
    EXPECT_EQ(recorder->names(), Texts{"marker"});
}

TEST_F(RuvoNNCommands, NotifyStoresNothingOfATruncatedRequest) {
    Recorder recorder;
    std::string request;
    VornNet::appendString(request, "RUVO_NN_NOTIFY");
    VornNet::appendString(request, "sender");
    VornNet::appendString(request, "cut");
    VornNet::appendString(request, "message");
    VornNet::appendInt(request, 4);
    request += "data";
    for (std::size_t length = 0; length < request.size(); ++length) {
        FakeConnection connection;
        connection.sendBytes(request.substr(0, length));
        EXPECT_THROW(engine_.run(connection), VornException) << length;
        EXPECT_TRUE(connection.written().empty());
    }
    engine_.raise("marker");
    engine_.initialize();
    ASSERT_TRUE(recorder->await(1));
    EXPECT_EQ(recorder->names(), Texts{"marker"});
}

TEST_F(RuvoNNCommands, NotifyRaisesTheEventThoughItsClientHasGone) {
    Recorder recorder;
    FakeConnection connection;
    connection.sendString("RUVO_NN_NOTIFY").sendString("s").sendString("e").sendString("m");
    connection.sendInt(0).failWritesAfter(0);
    EXPECT_THROW(engine_.run(connection), VornException);
    engine_.initialize();
    EXPECT_TRUE(recorder->await(1));
}

TEST_F(RuvoNNCommands, NotifyTraces) {
    const LogCapture log(9);
    engine_.raise("disk.failed");
    EXPECT_EQ(log.beginning("RUVO_NN_NOTIFY::"),
              (Texts{"RUVO_NN_NOTIFY::handleClient: enter",
                     "RUVO_NN_NOTIFY::handleClient: event=|disk.failed| from the sender",
                     "RUVO_NN_NOTIFY::handleClient: exit"}));
    EXPECT_TRUE(log.has(9, "VornProducerConsumer::produce: waiting for lock"));
    EXPECT_TRUE(log.has(9, "VornProducerConsumer::produce: adding element"));
}

// ---- all of them -------------------------------------------------------------------

TEST_F(RuvoNNCommands, AnswerNothingWhenTheirArgumentsDoNotCome) {
    for (const char* command : {"RUVO_NN_REGISTER", "RUVO_NN_UNREGISTER", "RUVO_NN_NOTIFY"}) {
        FakeConnection connection;
        connection.sendString(command).sendString("one");
        EXPECT_THROW(engine_.run(connection), VornException) << command;
        EXPECT_TRUE(connection.written().empty()) << command;
    }
    EXPECT_EQ(container().size(), 0);
}

TEST_F(RuvoNNCommands, AreFoundUnderTheirExactNamesOnly) {
    for (const char* command : {"ruvo_nn_notify", "RUVO_NN_REGISTE", "RUVO_NN_LIST", ""}) {
        FakeConnection connection;
        connection.sendString(command);
        EXPECT_EQ(engine_.run(connection), Texts{"int -999"}) << command;
    }
}

TEST_F(RuvoNNCommands, ServeManyClientsAtOnce) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 50;
    engine_.initialize();
    Recorder recorder;
    {
        std::vector<std::jthread> clients;
        for (int t = 0; t < kThreads; ++t) {
            clients.emplace_back([&, t] {
                for (int i = 0; i < kRounds; ++i) {
                    EXPECT_EQ(engine_.enroll("no such event", "nowhere", t), kDone);
                    EXPECT_EQ(engine_.raise("e"), kDone);
                    EXPECT_EQ(engine_.withdraw("nowhere", t), kDone);
                }
            });
        }
    }
    EXPECT_TRUE(recorder->await(kThreads * kRounds));
    EXPECT_EQ(container().size(), 1);
}
