// What the service makes of a client's first bytes, and the conversation.

#include "service/RuvoService.h"

#include "runtime/support/VornException.h"
#include "runtime/net/WireCodec.h"
#include "tests/service/OpenService.h"
#include "tests/service/TestMonitor.h"
#include "tests/support/FakeConnection.h"
#include "tests/support/TestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace ServiceTests {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using TestSupport::FakeConnection;
using TestSupport::waitUntil;
using VornSupport::makeCounted;

using Client = VornSupport::VornSmartPointer<FakeConnection>;

Client newClient(std::string_view bytes = "") {
    auto client = makeCounted<FakeConnection>();
    client->sendBytes(bytes);
    return client;
}

class RuvoServiceClients : public ::testing::Test {
protected:
    // The service under test, made from these lines.
    void configure(const std::string& lines) {
        place_.write(lines);
        service_ = std::make_unique<OpenService>(place_.properties(), "");
    }
    void SetUp() override { configure(""); }

    bool handle(const Client& client) { return service_->handleClient(*client); }
    bool logged(int level, const std::string& text) { return place_.logged(level, text); }

    const Place place_;
    std::unique_ptr<OpenService> service_;
};

// ---- engine clients ------------------------------------------------------------

TEST_F(RuvoServiceClients, SignalsALocalEngineClientAndLeavesRawMode) {
    const auto client = newClient("RUVO\n");
    EXPECT_TRUE(handle(client));
    EXPECT_THAT(client->written(), ElementsAre("bytes +\r\n"));
    EXPECT_FALSE(client->isRaw());
    EXPECT_TRUE(logged(5, "RuvoService::signalService: service found sending + signal..."));
}

TEST_F(RuvoServiceClients, TakesTheLineWithACarriageReturnAsWell) {
    const auto client = newClient("RUVO\r\n");
    EXPECT_TRUE(handle(client));
    EXPECT_EQ(client->wire(), "+\r\n");
}

TEST_F(RuvoServiceClients, RefusesAnEngineClientThatIsNotLocalWithoutAWord) {
    const auto client = newClient("RUVO\n");
    client->setLocal(false).sendUnsignedShort(1).sendUnsignedShort(9999);
    EXPECT_TRUE(handle(client));
    EXPECT_THAT(client->written(), IsEmpty());
    EXPECT_TRUE(logged(3, "RuvoService::handleClient: Remote access attempt not allowed"));
    EXPECT_FALSE(service_->isStopping());
}

TEST_F(RuvoServiceClients, ComparesTheWordInFull) {
    for (const char* line : {"ruvo\n", "Ruvo\n", "RUVO \n", " RUVO\n", "RUVOX\n", "RUV\n", "\n"}) {
        const auto client = newClient(line);
        EXPECT_FALSE(handle(client)) << line;
        EXPECT_THAT(client->written(), IsEmpty()) << line;
    }
}

TEST_F(RuvoServiceClients, EndsTheConversationWhenTheClientGoes) {
    const auto client = newClient("RUVO\n");
    EXPECT_TRUE(handle(client));
    EXPECT_TRUE(logged(3, "RuvoService::handleClient: exception: FakeConnection: the peer has "
                          "gone. Error code (0)"));
    EXPECT_TRUE(logged(3, "RuvoService::handleClient: Access Server communication failed with "
                          "exception - FakeConnection: the peer has gone"));
}

TEST_F(RuvoServiceClients, TellsTheCodeOfTheExceptionThatEndsTheConversation) {
    const auto client = newClient("RUVO\n");
    client->sendUnsignedShort(1).failAfter(7);  // a read for each byte of the line counts
    EXPECT_TRUE(handle(client));
    EXPECT_TRUE(logged(3, "RuvoService::handleClient: exception: FakeConnection: set to fail. "
                          "Error code (10054)"));
}

TEST_F(RuvoServiceClients, AcknowledgesAndGoesOn) {
    const auto client = newClient("RUVO\n");
    client->sendUnsignedShort(2).sendUnsignedShort(0).sendUnsignedShort(4);
    client->sendUnsignedShort(1).sendUnsignedShort(0);
    EXPECT_TRUE(handle(client));
    EXPECT_EQ(place_.count(5, "RuvoService::handleClient: Acknowledgement received."), 2);
    EXPECT_EQ(place_.count(5, "RuvoService::handleClient: logging off"), 1);
    EXPECT_EQ(client->unread(), 0u);
    EXPECT_TRUE(logged(5, "RuvoService::handleClient: handling 2 requests"));
    EXPECT_TRUE(logged(5, "RuvoService::handleClient: command 4"));
}

TEST_F(RuvoServiceClients, GoesOnAfterABatchOfNone) {
    const auto client = newClient("RUVO\n");
    client->sendUnsignedShort(0).sendUnsignedShort(1).sendUnsignedShort(4);
    EXPECT_TRUE(handle(client));
    EXPECT_TRUE(logged(5, "RuvoService::handleClient: handling 0 requests"));
    EXPECT_TRUE(logged(5, "RuvoService::handleClient: logging off"));
}

TEST_F(RuvoServiceClients, TakesTheCountAsAnUnsignedNumber) {
    const auto client = newClient("RUVO\n");
    client->sendUnsignedShort(65535).sendUnsignedShort(0);
    EXPECT_TRUE(handle(client));
    EXPECT_TRUE(logged(5, "RuvoService::handleClient: handling 65535 requests"));
}

TEST_F(RuvoServiceClients, EndsTheConversationAtAnUnknownCode) {
    const auto client = newClient("RUVO\n");
    client->sendUnsignedShort(2).sendUnsignedShort(65535).sendUnsignedShort(9999);
    EXPECT_TRUE(handle(client));
    EXPECT_EQ(client->wire(), "+\r\n");
    EXPECT_TRUE(logged(3, "RuvoService::handleClient: exception: RuvoService::handleClient: "
                          "Unknown command. Error code (65535)"));
    EXPECT_TRUE(logged(3, "RuvoService::handleClient: Access Server communication failed with "
                          "exception - RuvoService::handleClient: Unknown command"));
    EXPECT_FALSE(service_->isStopping());
}

TEST_F(RuvoServiceClients, StopsTheServiceAfterAFlush) {
    const auto client = newClient("RUVO\n");
    client->sendUnsignedShort(2).sendUnsignedShort(9999).sendUnsignedShort(4);
    EXPECT_FALSE(service_->isStopping());
    EXPECT_TRUE(handle(client));
    EXPECT_TRUE(service_->isStopping());
    // The rest of the batch is served: only the client or the stop ends it.
    EXPECT_TRUE(logged(5, "RuvoService::handleClient: logging off"));
    EXPECT_EQ(client->written().at(1), "flush");
}

TEST_F(RuvoServiceClients, HandsAnEngineRequestToTheMonitorOfThatName) {
    TestMonitor monitor("ServiceTest", &answerNext);
    const auto client = newClient("RUVO\n");
    client->sendUnsignedShort(1).sendUnsignedShort(7777).sendString("ServiceTest").sendInt(41);
    EXPECT_TRUE(handle(client));
    EXPECT_THAT(client->written(), ElementsAre("bytes +\r\n", "int 42", "flush"));
    EXPECT_TRUE(logged(5, "RuvoService::handleClient: Monitor Name ServiceTest"));
}

TEST_F(RuvoServiceClients, EndsTheConversationAtAnUnknownMonitor) {
    TestMonitor monitor("ServiceTest", &answerNext);
    const auto client = newClient("RUVO\n");
    client->sendUnsignedShort(2).sendUnsignedShort(7777).sendString("serviceTEST");
    client->sendUnsignedShort(9999);
    EXPECT_TRUE(handle(client));
    EXPECT_EQ(client->wire(), "+\r\n");
    EXPECT_THAT(place_.log(), HasSubstr("RuvoService::handleClient: exception: "
                                        "VornEventMonitorManager::handleClient: unknown monitor "
                                        "serviceTEST. Error code (0)"));
    EXPECT_FALSE(service_->isStopping());
}

TEST_F(RuvoServiceClients, EndsTheConversationWhenAnEngineFails) {
    TestMonitor monitor("ServiceTest", [](VornNet::VornConnection& connection) {
        connection.writeInt(1);
        throw VornSupport::VornException("broken engine", 77);
    });
    const auto client = newClient("RUVO\n");
    client->sendUnsignedShort(2).sendUnsignedShort(7777).sendString("ServiceTest");
    client->sendUnsignedShort(9999);
    EXPECT_TRUE(handle(client));
    EXPECT_FALSE(service_->isStopping());
    EXPECT_TRUE(logged(
        3, "RuvoService::handleClient: exception: broken engine. Error code (77)"));
}

TEST_F(RuvoServiceClients, AnswersABatchThatIsAllHereWithOneFlush) {
    TestMonitor monitor("ServiceTest", &answerNext);
    const auto client = newClient("RUVO\n");
    client->sendUnsignedShort(16);
    for (int i = 0; i < 16; ++i) {
        client->sendUnsignedShort(7777).sendString("ServiceTest").sendInt(i);
    }
    EXPECT_TRUE(handle(client));
    EXPECT_EQ(client->flushes(), 1);
    const auto written = client->written();
    ASSERT_EQ(written.size(), 18u);
    EXPECT_EQ(written[1], "int 1");
    EXPECT_EQ(written[16], "int 16");
    EXPECT_EQ(written[17], "flush");
}

TEST_F(RuvoServiceClients, FlushesAtTheEndOfEachBatch) {
    TestMonitor monitor("ServiceTest", &answerNext);
    const auto client = newClient("RUVO\n");
    for (int i = 0; i < 2; ++i) {
        client->sendUnsignedShort(1).sendUnsignedShort(7777).sendString("ServiceTest").sendInt(i);
    }
    EXPECT_TRUE(handle(client));
    EXPECT_THAT(client->written(),
                ElementsAre("bytes +\r\n", "int 1", "flush", "int 2", "flush"));
}

TEST_F(RuvoServiceClients, HoldsNoAnswerBackWhileTheNextRequestIsOnItsWay) {
    TestMonitor monitor("ServiceTest", &answerNext);
    const auto client = newClient("RUVO\n");
    client->waitForMore();
    client->sendUnsignedShort(2).sendUnsignedShort(7777).sendString("ServiceTest").sendInt(1);
    std::thread serving([&] { handle(client); });
    EXPECT_TRUE(waitUntil([&] { return client->flushes() == 1; }));
    EXPECT_THAT(client->written(), ElementsAre("bytes +\r\n", "int 2", "flush"));
    client->sendUnsignedShort(7777).sendString("ServiceTest").sendInt(2);
    EXPECT_TRUE(waitUntil([&] { return client->flushes() == 2; }));
    client->endOfInput();
    serving.join();
}

TEST_F(RuvoServiceClients, SurvivesEveryPlaceWhereAConversationMayBreakOff) {
    TestMonitor monitor("ServiceTest", &answerNext);
    std::string whole = "RUVO\n";
    VornNet::append16(whole, 3);
    VornNet::append16(whole, 0);
    VornNet::append16(whole, 7777);
    VornNet::appendString(whole, "ServiceTest");
    VornNet::appendInt(whole, 5);
    VornNet::append16(whole, 4);
    int conversations = 0;
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        const bool begins = length >= 4;  // "RUVO" without its line end counts
        const auto client = newClient(whole.substr(0, length));
        EXPECT_EQ(handle(client), begins) << length;
        EXPECT_EQ(client->wire().starts_with("+\r\n"), begins) << length;
        conversations += begins ? 1 : 0;
        EXPECT_EQ(place_.count(3, "RuvoService::handleClient: Access Server communication failed "
                                  "with exception - FakeConnection: the peer has gone"),
                  conversations)
            << length;
    }
    EXPECT_FALSE(service_->isStopping());
}

// ---- browsers ------------------------------------------------------------------

TEST_F(RuvoServiceClients, AnswersABrowserWithAShortPage) {
    configure("ruvod.web.server-name=Test Server\n");
    for (const char* path : {"/", "/index.html", "/servlet/Any", "/a/b/c", "x", "xyz"}) {
        const auto client =
            newClient("GET " + std::string(path) + " HTTP/1.1\r\nHost: here\r\n\r\n");
        EXPECT_TRUE(handle(client)) << path;
        EXPECT_THAT(client->wire(), StartsWith("HTTP/1.0 503 Service Unavailable\r\n"
                                               "Server: Test Server\r\n"))
            << path;
        EXPECT_THAT(client->wire(), HasSubstr("</HTML>")) << path;
        EXPECT_EQ(client->unread(), 0u) << "an unread rest would cost the client its answer";
    }
}

TEST_F(RuvoServiceClients, StatesTheLengthOfThePageRightly) {
    const auto client = newClient("GET / HTTP/1.0\r\n\r\n");
    handle(client);
    const std::string answer = client->wire();
    const auto head = answer.find("\r\n\r\n");
    ASSERT_NE(head, std::string::npos);
    EXPECT_THAT(answer, HasSubstr("Content-Length: " + std::to_string(answer.size() - head - 4)));
}

TEST_F(RuvoServiceClients, DoesNotWaitForTheRestOfARequest) {
    const auto client = newClient("GET / HTTP/1.0\r\n");
    client->waitForMore();
    EXPECT_TRUE(handle(client));
    EXPECT_THAT(client->wire(), StartsWith("HTTP/1.0 503"));
}

TEST_F(RuvoServiceClients, LetsALocalBrowserIntoTheConversationByItsPath) {
    const auto client = newClient("GET /RUVO/x HTTP/1.1\r\n");
    client->sendUnsignedShort(1).sendUnsignedShort(4);
    EXPECT_TRUE(handle(client));
    EXPECT_EQ(client->wire(), "+\r\n");
    EXPECT_TRUE(logged(5, "RuvoService::handleClient: logging off"));
}

TEST_F(RuvoServiceClients, CutsTheServiceOutOfThePath) {
    for (const char* line : {"GET /RUVO HTTP/1.1\n", "GET RUVO HTTP/1.1\n", "GET RUVO/ HTTP/1.1\n",
                             "POST /RUVO/a/b HTTP/1.0 and more\n"}) {
        const auto client = newClient(line);
        EXPECT_TRUE(handle(client)) << line;
        EXPECT_EQ(client->wire(), "+\r\n") << line;
    }
    for (const char* line : {"GET //RUVO HTTP/1.1\n", "GET  /RUVO HTTP/1.1\n",
                             "GET /ruvo/ HTTP/1.1\n", "RUVO HTTP/1.1\n", "HTTP/1.1 /RUVO\n\n"}) {
        const auto client = newClient(line);
        EXPECT_TRUE(handle(client)) << line;
        if (std::string_view(line).starts_with("HTTP/1.1 /RUVO")) {
            EXPECT_EQ(client->wire(), "+\r\n") << line;
        } else {
            EXPECT_THAT(client->wire(), StartsWith("HTTP/1.0 503")) << line;
        }
    }
}

TEST_F(RuvoServiceClients, RefusesABrowserFromElsewhereThatNamesTheEngines) {
    const auto client = newClient("GET /RUVO/x HTTP/1.1\r\n");
    client->setLocal(false);
    EXPECT_TRUE(handle(client));
    EXPECT_EQ(client->wire(), "");
}

// ---- neither -------------------------------------------------------------------

TEST_F(RuvoServiceClients, GivesNoAnswerToALineThatIsNoRequest) {
    for (const char* line : {"hello\n", "GET / http/1.0\n", "\n", "", "no end"}) {
        const auto client = newClient(line);
        EXPECT_FALSE(handle(client)) << line;
        EXPECT_THAT(client->written(), IsEmpty()) << line;
    }
}

TEST_F(RuvoServiceClients, TakesALineOfAnyLength) {
    for (const std::size_t length : {510u, 511u, 512u, 513u, 100000u}) {
        const auto client = newClient(std::string(length, 'R') + "\n");
        EXPECT_FALSE(handle(client)) << length;
        EXPECT_THAT(client->written(), IsEmpty()) << length;
    }
}

TEST_F(RuvoServiceClients, ReadsATlsClientAsALineWhileTheGatewayIsOff) {
    for (const char* value : {"On", "ON", "yes", "onn", "off"}) {
        configure("ruvod.gateway=" + std::string(value) + "\n");
        const auto client = newClient("\x16\x03\x01\x02\x00\n");
        EXPECT_FALSE(handle(client)) << value;
        EXPECT_THAT(client->written(), IsEmpty()) << value;
        EXPECT_THAT(client->reads(), ElementsAre("line")) << value;
    }
}

// ---- the gateway ---------------------------------------------------------------

TEST_F(RuvoServiceClients, SendsTlsToTheGatewayWithoutReadingAnything) {
    configure("ruvod.gateway=on\nruvod.gateway.services.https-default=4443\n");
    const auto client = newClient("\x16\x03\x01\x02\x01");
    EXPECT_TRUE(handle(client));
    EXPECT_EQ(client->unread(), 5u);
    EXPECT_THAT(client->written(), IsEmpty());
    EXPECT_TRUE(logged(3, "RuvoService::gateway: no relay to 4443 for service https_default"));
}

TEST_F(RuvoServiceClients, LooksAtEachOfTheFirstFiveBytes) {
    configure("ruvod.gateway=on\n");
    for (const std::string& binary : {std::string("\0bcde", 5), std::string("abcd\x01"),
                                     std::string("ab\x80"), std::string("\x7f")}) {
        const auto client = newClient(binary + "\n");
        EXPECT_TRUE(handle(client));
        EXPECT_THAT(client->reads(), IsEmpty()) << "it was not for the gateway";
    }
    // A sixth byte is not looked at, and white space and punctuation are text.
    for (const std::string& text : {std::string("abcde\x01\n"), std::string(" \t~{_\n")}) {
        const auto client = newClient(text);
        EXPECT_FALSE(handle(client));
        EXPECT_THAT(client->reads(), ElementsAre("line"));
    }
}

TEST_F(RuvoServiceClients, ServesEngineClientsBehindTheGateway) {
    configure("ruvod.gateway=on\n");
    const auto client = newClient("RUVO\n");
    EXPECT_TRUE(handle(client));
    EXPECT_EQ(client->wire(), "+\r\n");
}

TEST_F(RuvoServiceClients, WaitsForTheFirstByteOfASilentClient) {
    configure("ruvod.gateway=on\n");
    const auto client = newClient();
    client->waitForMore();
    bool served = false;
    std::thread serving([&] { served = handle(client); });
    client->sendBytes("RUVO\n").endOfInput();
    serving.join();
    EXPECT_TRUE(served);
    EXPECT_EQ(client->wire(), "+\r\n");
}

TEST_F(RuvoServiceClients, GivesUpASilentClientThatHasGone) {
    configure("ruvod.gateway=on\n");
    EXPECT_FALSE(handle(newClient()));
}

TEST_F(RuvoServiceClients, GivesUpASilentClientWhenTheServiceStops) {
    configure("ruvod.gateway=on\n");
    const auto client = newClient();
    client->waitForMore();
    bool served = true;
    std::thread serving([&] { served = handle(client); });
    service_->stopIt();
    serving.join();
    EXPECT_FALSE(served);
}

TEST_F(RuvoServiceClients, AnswersARequestThatIsToBeRelayed) {
    configure("ruvod.gateway.services.http-proxy-target=127.0.0.1:8080\n");
    const auto client = newClient("GET /RUVO/x HTTP/1.1\r\nHost: here\r\n\r\n");
    EXPECT_TRUE(handle(client));
    EXPECT_THAT(client->wire(), StartsWith("HTTP/1.0 503"));
    EXPECT_TRUE(logged(
        3, "RuvoService::gateway: no relay to 127.0.0.1:8080 for service http-proxy-target"));
}

TEST_F(RuvoServiceClients, RelaysOnlyRequests) {
    configure("ruvod.gateway.services.http-proxy-target=127.0.0.1:8080\n");
    const auto client = newClient("RUVO\n");
    EXPECT_TRUE(handle(client));
    EXPECT_EQ(client->wire(), "+\r\n");
}

TEST_F(RuvoServiceClients, TakesOverAClientThatNamesAServiceOfTheGateway) {
    configure("ruvod.gateway.services.mail=25\n");
    EXPECT_TRUE(handle(newClient("mail\n")));
    EXPECT_FALSE(handle(newClient("Mail\n")));
    // A path does not name a service of the gateway.
    const auto browser = newClient("GET /mail/ HTTP/1.0\n\n");
    EXPECT_TRUE(handle(browser));
    EXPECT_THAT(browser->wire(), StartsWith("HTTP/1.0 503"));
}

TEST_F(RuvoServiceClients, FallsBackToTheDefaultTargetForClientsThatSpeakNoHttp) {
    configure("ruvod.gateway.services.https-default=4443\n");
    EXPECT_TRUE(handle(newClient("anything\n")));
    const auto browser = newClient("GET / HTTP/1.0\n\n");
    EXPECT_TRUE(handle(browser));
    EXPECT_THAT(browser->wire(), StartsWith("HTTP/1.0 503"));
}

TEST_F(RuvoServiceClients, SignalsWhetherAServiceWasFound) {
    const auto client = newClient();
    service_->signalService(*client, false, "why");
    service_->signalService(*client, true, "");
    EXPECT_EQ(client->wire(), "-why\r\n+\r\n");
    EXPECT_TRUE(
        logged(5, "RuvoService::signalService: service not found sending -why signal..."));
}

TEST_F(RuvoServiceClients, PassesOnWhatAConnectionThrowsBeforeTheConversation) {
    const auto client = newClient("RUVO\n");
    client->failWritesAfter(0);
    EXPECT_THROW(handle(client), VornSupport::VornException);
}

}  // namespace
}  // namespace ServiceTests
