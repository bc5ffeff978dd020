// What a client of a real daemon sees of the conversation.

#include "tests/support/DaemonLauncher.h"
#include "tests/support/TestListener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace IntegrationTests {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using namespace TestSupport;

WireText lookup(const std::string& job) {
    return WireText().request("JobStatus", "RUVO_JS_LOOKUP").string(job);
}

// Asks for a job that exists nowhere.
void expectServed(WireClient& client) {
    client.send(WireText().shortNumber(1).bytes(lookup("no such job").text()));
    EXPECT_EQ(client.readNumber(), -1);
}

// One daemon serves all of these: none of them may harm it.
class Conversation : public ::testing::Test {
protected:
    static void SetUpTestSuite() { daemon_ = new Daemon({.udp = true}); }
    static void TearDownTestSuite() {
        EXPECT_EQ(daemon_->stop(), 0);
        delete daemon_;
        daemon_ = nullptr;
    }
    static Daemon& daemon() { return *daemon_; }
    static WireClient connected() { return WireClient(daemon_->tcpPort()); }
    static WireClient opened() { return daemon_->client(); }

    void TearDown() override { EXPECT_TRUE(daemon().serves()); }

private:
    static Daemon* daemon_;
};

Daemon* Conversation::daemon_ = nullptr;

// ---- the opening ---------------------------------------------------------------

TEST_F(Conversation, OpensWithTheWordAndASignal) {
    for (const char* line : {"RUVO\n", "RUVO\r\n"}) {
        auto client = connected();
        client.send(line);
        EXPECT_EQ(client.read(3), "+\r\n");
        expectServed(client);
    }
}

TEST_F(Conversation, TakesItsBytesOneByOne) {
    auto client = connected();
    const std::string all =
        WireText().line("RUVO").shortNumber(1).bytes(lookup("slow").text()).text();
    for (const char byte : all) client.send(std::string(1, byte));
    EXPECT_EQ(client.read(3), "+\r\n");
    EXPECT_EQ(client.readNumber(), -1);
}

TEST_F(Conversation, TakesEverythingInOnePiece) {
    auto client = connected();
    client.send(WireText().line("RUVO").shortNumber(1).bytes(lookup("fast").text()));
    EXPECT_EQ(client.read(3), "+\r\n");
    EXPECT_EQ(client.readNumber(), -1);
}

TEST_F(Conversation, GivesNoAnswerToAnotherWord) {
    for (const std::string& line :
         {std::string("ruvo\n"), std::string("RUVO \n"), std::string("hello\n"), std::string("\n"),
          std::string("\x16\x03\x01\x02\x00\n", 6), std::string(511, 'R') + "\n",
          std::string(5000, 'R') + "\n"}) {
        auto client = connected();
        client.trySend(line);
        EXPECT_EQ(client.readRest(), "");
    }
}

TEST_F(Conversation, EndsWithTheClient) {
    auto client = opened();
    expectServed(client);
    client.finishSending();
    EXPECT_EQ(client.readRest(), "");
}

// ---- codes ---------------------------------------------------------------------

TEST_F(Conversation, GoesOnAfterAcknowledgementsLoggingOffAndEmptyBatches) {
    auto client = opened();
    client.send(WireText().shortNumber(2).shortNumber(0).shortNumber(4).shortNumber(0));
    expectServed(client);
    client.send(WireText().shortNumber(1).shortNumber(4));
    expectServed(client);
    EXPECT_TRUE(daemon().logs(5, "RuvoService::handleClient: logging off"));
    EXPECT_TRUE(daemon().logs(5, "RuvoService::handleClient: Acknowledgement received."));
    EXPECT_TRUE(daemon().logs(5, "RuvoService::handleClient: handling 0 requests"));
}

TEST_F(Conversation, EndsAtAnUnknownCode) {
    for (const unsigned code : {1u, 3u, 5u, 7776u, 7778u, 10000u, 65534u}) {
        auto client = opened();
        client.send(WireText().shortNumber(2).shortNumber(code).shortNumber(4));
        EXPECT_EQ(client.readRest(), "") << code;
        EXPECT_TRUE(daemon().logs(3, "RuvoService::handleClient: exception: "
                                     "RuvoService::handleClient: Unknown command. Error code (" +
                                         std::to_string(code) + ")"));
    }
    EXPECT_TRUE(daemon().logs(3, "RuvoService::handleClient: Access Server communication failed "
                                 "with exception - RuvoService::handleClient: Unknown command"));
}

TEST_F(Conversation, SendsTheAnswersBeforeAnUnknownCode) {
    auto client = opened();
    client.send(
        WireText().shortNumber(2).bytes(lookup("before").text()).shortNumber(4711));
    EXPECT_EQ(client.readNumber(), -1);
    EXPECT_EQ(client.readRest(), "");
}

// ---- engine requests -----------------------------------------------------------

TEST_F(Conversation, EndsAtAnUnknownMonitor) {
    for (const char* name : {"", "jobstatus", "JobStatus ", "NoSuchMonitor"}) {
        auto client = opened();
        client.send(WireText().shortNumber(1).request(name, "RUVO_JS_LOOKUP").string("x"));
        EXPECT_EQ(client.readRest(), "") << name;
    }
    EXPECT_TRUE(daemon().logsBeginning(3, "RuvoService::handleClient: exception: "
                                          "VornEventMonitorManager::handleClient: unknown monitor "
                                          "NoSuchMonitor"));
}

TEST_F(Conversation, EndsAtAMonitorThatServesNoClients) {
    auto client = opened();
    client.send(WireText().shortNumber(1).request("TCPServer", "anything"));
    EXPECT_EQ(client.readRest(), "");
    EXPECT_TRUE(daemon().logs(5, "RuvoService::handleClient: Monitor Name TCPServer"));
}

TEST_F(Conversation, AnswersAnUnknownCommandAndGoesOn) {
    auto client = opened();
    for (const char* command : {"", "ruvo_js_lookup", "RUVO_JS_LOOKUP ", "RUVO_NN_NOTIFY"}) {
        client.send(WireText().shortNumber(1).request("JobStatus", command));
        EXPECT_EQ(client.readNumber(), -999) << command;
    }
    expectServed(client);
    EXPECT_TRUE(daemon().logs(
        2, "RuvoEngineBase::handleClient: unknown command from client - ruvo_js_lookup"));
}

TEST_F(Conversation, ServesTheJobsOfSeveralClients) {
    auto one = opened();
    auto other = opened();
    one.send(WireText().shortNumber(1).request("JobStatus", "RUVO_JS_CREATE").string("desc").string(
        "conversation job"));
    const auto id = one.readNumber();
    EXPECT_GT(id, 0);
    other.send(WireText()
                   .shortNumber(2)
                   .request("JobStatus", "RUVO_JS_SET_PROGRESS")
                   .number(id)
                   .number(-7)
                   .bytes(lookup("conversation job").text()));
    EXPECT_EQ(other.readNumber(), id);
    EXPECT_EQ(other.readNumber(), id);
    one.send(WireText().shortNumber(2).request("JobStatus", "RUVO_JS_GET_PROGRESS").number(id).request(
        "JobStatus", "RUVO_JS_DELETE").number(id));
    EXPECT_EQ(one.readNumber(), -7);
    EXPECT_EQ(one.readNumber(), id);
}

TEST_F(Conversation, WaitsForNoAnswerWhereTheCommandHasNone) {
    auto client = opened();
    client.send(WireText()
                    .shortNumber(2)
                    .request("JobStatus", "RUVO_JS_GET_ALL_PROGRESS")
                    .bytes(lookup("after").text()));
    EXPECT_EQ(client.readNumber(), -1);
}

TEST_F(Conversation, DeliversTheEventsThatAClientRegisteredFor) {
    const TcpListener listener;
    auto client = opened();
    client.send(WireText()
                    .shortNumber(1)
                    .request("Notifier", "RUVO_NN_REGISTER")
                    .string("^conversation\\.")
                    .string(listener.remoteName())
                    .number(31));
    EXPECT_EQ(client.readNumber(), 0);
    client.send(WireText()
                    .shortNumber(2)
                    .request("Notifier", "RUVO_NN_NOTIFY")
                    .string("me")
                    .string("other.event")
                    .string("")
                    .number(0)
                    .request("Notifier", "RUVO_NN_NOTIFY")
                    .string("me")
                    .string("conversation.event")
                    .string("message")
                    .number(3)
                    .bytes(std::string("\0\xff\n", 3)));
    EXPECT_EQ(client.readNumber(), 0);
    EXPECT_EQ(client.readNumber(), 0);
    const auto delivery = listener.accept();
    const std::string expected = WireText()
                                     .number(31)
                                     .string("me")
                                     .string("conversation.event")
                                     .string("message")
                                     .number(3)
                                     .bytes(std::string("\0\xff\n", 3))
                                     .text();
    EXPECT_EQ(readBytes(delivery, expected.size()), expected);
    client.send(WireText()
                    .shortNumber(1)
                    .request("Notifier", "RUVO_NN_UNREGISTER")
                    .string(listener.remoteName())
                    .number(31));
    EXPECT_EQ(client.readNumber(), 0);
}

// ---- batches -------------------------------------------------------------------

TEST_F(Conversation, AnswersABatchInOrder) {
    auto client = opened();
    WireText batch;
    batch.shortNumber(16);
    for (int i = 0; i < 16; ++i) {
        batch.request("JobStatus", i % 2 == 0 ? "RUVO_JS_LOOKUP" : "RUVO_JS_GET_PROGRESS");
        i % 2 == 0 ? batch.string("nobody") : batch.number(123456);
    }
    client.send(batch);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(client.readNumber(), i % 2 == 0 ? -1 : 0) << i;
}

TEST_F(Conversation, AnswersBatchesThatDoNotWaitForEachOther) {
    auto client = opened();
    WireText batches;
    for (int i = 0; i < 200; ++i) batches.shortNumber(1).bytes(lookup("x").text());
    client.send(batches);
    for (int i = 0; i < 200; ++i) ASSERT_EQ(client.readNumber(), -1) << i;
}

TEST_F(Conversation, AnswersARequestWhileTheRestOfItsBatchIsOnItsWay) {
    auto client = opened();
    client.send(WireText().shortNumber(3).bytes(lookup("first").text()));
    EXPECT_EQ(client.readNumber(), -1);
    // A part of the next request is here and holds nothing back for good.
    const std::string second = lookup("second").text();
    client.send(lookup("between").text() + second.substr(0, 7));
    EXPECT_EQ(client.readNumber(), -1);
    client.send(second.substr(7));
    EXPECT_EQ(client.readNumber(), -1);
}

TEST_F(Conversation, ServesABatchOfTheLargestCount) {
    auto client = opened();
    std::string codes = WireText().shortNumber(65535).text();
    codes.append(2 * 65535, '\0');
    client.send(codes);
    expectServed(client);
}

// ---- browsers ------------------------------------------------------------------

TEST_F(Conversation, AnswersABrowser) {
    for (const char* request : {"GET / HTTP/1.1\r\nHost: localhost\r\n\r\n",
                                "GET /index.html HTTP/1.0\r\n\r\n",
                                "POST /servlet/X HTTP/1.1\r\nContent-Length: 4\r\n\r\nbody"}) {
        auto client = connected();
        client.send(request);
        const std::string answer = client.readRest();
        EXPECT_THAT(answer, StartsWith("HTTP/1.0 503 Service Unavailable\r\n")) << request;
        EXPECT_THAT(answer, HasSubstr("Server: Vorn Tessera Web Services\r\n"));
        EXPECT_TRUE(answer.ends_with("</HTML>\r\n")) << answer;
    }
}

TEST_F(Conversation, IsEnteredByAPathAsWell) {
    auto client = connected();
    client.send("GET /RUVO/x HTTP/1.1\r\n");
    EXPECT_EQ(client.read(3), "+\r\n");
    expectServed(client);
}

// ---- UDP -----------------------------------------------------------------------

TEST_F(Conversation, RunsOverDatagrams) {
    auto client = WireClient::udp(daemon().udpPort());
    client.send("RUVO\n");
    EXPECT_EQ(client.readDatagram(), "+\r\n");
    client.send(WireText().shortNumber(1).bytes(lookup("udp").text()));
    EXPECT_EQ(client.readDatagram(), WireText().number(-1).text());
    // The datagrams of a peer are one stream, wherever they are cut.
    const std::string request = WireText().shortNumber(1).bytes(lookup("cut").text()).text();
    client.send(request.substr(0, 9));
    client.send(request.substr(9));
    EXPECT_EQ(client.readDatagram(), WireText().number(-1).text());
}

TEST_F(Conversation, EndsOverDatagramsWithAnEmptyOne) {
    auto client = WireClient::udp(daemon().udpPort());
    for (int i = 0; i < 3; ++i) {
        client.send("RUVO\n");
        EXPECT_EQ(client.readDatagram(), "+\r\n");
        client.send("");
    }
}

// ---- places of their own -------------------------------------------------------

TEST(ConversationStop, EndsTheDaemonWithItsCode) {
    Daemon daemon;
    auto client = daemon.client();
    client.send(WireText().shortNumber(2).shortNumber(0).shortNumber(9999));
    EXPECT_EQ(client.readRest(), "");
    EXPECT_EQ(daemon.process().waitForExit(), 0);
}

TEST(ConversationAccess, IsRefusedToStrangers) {
    Daemon daemon({.properties = "ruvod.local-access=owner\n"});
    EXPECT_EQ(openAsStranger(daemon), "");
    EXPECT_TRUE(
        daemon.logs(3, "RuvoService::handleClient: Remote access attempt not allowed"));
    if (isEmulated()) daemon.kill();  // we are strangers all, and it takes no signal
}

TEST(ConversationAccess, IsOpenToStrangersWhenEverybodyIsAdmitted) {
    Daemon daemon({.properties = "ruvod.local-access=any\n"});
    EXPECT_TRUE(daemon.serves());
}

TEST(ConversationGateway, KeepsServingEngineClients) {
    Daemon daemon({.properties = "ruvod.gateway=on\nruvod.gateway.services.https-default=1\n"});
    WireClient secure(daemon.tcpPort());
    secure.send(std::string("\x16\x03\x01\x00\x05hello", 10));
    EXPECT_EQ(secure.readRest(), "");
    EXPECT_TRUE(daemon.logs(3, "RuvoService::gateway: no relay to 1 for service https_default"));
    EXPECT_TRUE(daemon.serves());
}

TEST(ConversationGateway, LetsASilentClientGo) {
    Daemon daemon({.properties = "ruvod.gateway=on\n"});
    { WireClient silent(daemon.tcpPort()); }
    EXPECT_TRUE(daemon.logs(5, "RuvoServiceClientThread::run: Exiting. "));
    WireClient quiet(daemon.tcpPort());
    EXPECT_TRUE(daemon.serves());
}

}  // namespace
}  // namespace IntegrationTests
