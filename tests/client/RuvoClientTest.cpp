#include "client/RuvoClient.h"
#include "tests/client/ScriptedDaemon.h"
#include "tests/client/TakenMemory.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>

using namespace ClientTest;
using Ruvo::RuvoClient;
using Ruvo::RuvoClientError;
using Ruvo::RuvoProblem;
using Ruvo::RuvoRequest;
using std::chrono::milliseconds;

namespace {

const std::string kLookup = engineRequest("JobStatus", "RUVO_JS_LOOKUP", str("a"));

RuvoRequest lookup() { return RuvoRequest("JobStatus", "RUVO_JS_LOOKUP").addString("a"); }

// What a call throws.
template <typename Call>
RuvoClientError errorOf(Call call) {
    try {
        call();
    } catch (const RuvoClientError& error) {
        return error;
    }
    ADD_FAILURE() << "nothing was thrown";
    return RuvoClientError(RuvoProblem::Internal, "");
}

template <typename Call>
RuvoProblem problemOf(Call call) {
    return errorOf(call).problem();
}

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace

TEST(RuvoClient, OpensWithTheLineAndTakesThePlus) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.awaitClose();
    });
    const RuvoClient client(daemon.options());
    EXPECT_TRUE(client.isOpen());
    EXPECT_EQ(client.address(), "tcp:127.0.0.1:" + std::to_string(daemon.port()));
}

TEST(RuvoClient, TakesAnOpeningThatComesByteByByte) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.expect("RUVO\n");
        for (const char* byte : {"+", "\r", "\n"}) peer.send(byte);
        peer.serve(kLookup, i32(3));
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    EXPECT_EQ(client.call(lookup()), 3);
}

TEST(RuvoClient, SaysThatAccessIsRefusedWhenTheDaemonClosesWithoutAnswer) {
    for (const std::string answer : {"", "+", "+\r"}) {
        ScriptedDaemon daemon([answer](ScriptedPeer& peer) {
            peer.expect("RUVO\n");
            peer.send(answer);
            peer.close();
        });
        const auto error = errorOf([&] { RuvoClient client(daemon.options()); });
        EXPECT_EQ(error.problem(), RuvoProblem::AccessRefused) << answer;
        EXPECT_TRUE(has(error.what(), "access refused")) << error.what();
        EXPECT_TRUE(has(error.what(), "may not use the engines")) << error.what();
    }
}

TEST(RuvoClient, SaysThatAccessIsRefusedWhenTheOpeningIsNotEvenRead) {
    // Closing with unread bytes resets the connection.
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.read(1);
        peer.close();
    });
    EXPECT_EQ(problemOf([&] { RuvoClient client(daemon.options()); }), RuvoProblem::AccessRefused);
}

TEST(RuvoClient, NamesTheAddressWhereNobodyListens) {
    Ruvo::RuvoClientOptions options;
    options.port = unusedPort();
    const auto error = errorOf([&] { RuvoClient client(options); });
    EXPECT_EQ(error.problem(), RuvoProblem::Unreachable);
    EXPECT_NE(error.code(), 0);
    EXPECT_TRUE(has(error.what(), "tcp:127.0.0.1:" + std::to_string(options.port)))
        << error.what();
}

TEST(RuvoClient, CannotFindAHostWithoutAName) {
    Ruvo::RuvoClientOptions options;
    options.host = "no such host";
    EXPECT_EQ(problemOf([&] { RuvoClient client(options); }), RuvoProblem::Unreachable);
}

TEST(RuvoClient, ReachesTheDaemonByName) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.awaitClose();
    });
    auto options = daemon.options();
    options.host = "localhost";  // ::1 may come first, where nobody listens
    EXPECT_TRUE(RuvoClient(options).isOpen());
}

TEST(RuvoClient, RefusesAServerThatIsNoDaemon) {
    for (const std::string answer :
         {"HTTP/1.0 400 Bad Request\r\n", "-\r\n", "\n", "++\r\n", "+ \r\n"}) {
        ScriptedDaemon daemon([answer](ScriptedPeer& peer) {
            peer.expect("RUVO\n");
            peer.send(answer);
            peer.awaitClose();
        });
        EXPECT_EQ(problemOf([&] { RuvoClient client(daemon.options()); }), RuvoProblem::Protocol)
            << answer;
    }
}

TEST(RuvoClient, ReadsNoEndlessOpeningLine) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.expect("RUVO\n");
        peer.send(std::string(512, 'x'));
        peer.awaitClose();
    });
    EXPECT_EQ(problemOf([&] { RuvoClient client(daemon.options()); }), RuvoProblem::Protocol);
}

TEST(RuvoClient, GivesUpOnAnOpeningThatIsNotAnswered) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) { peer.awaitClose(); });
    auto options = daemon.options();
    options.connectTimeout = milliseconds(50);
    EXPECT_EQ(problemOf([&] { RuvoClient client(options); }), RuvoProblem::TimedOut);
}

TEST(RuvoClient, SendsARequestAsACountACodeAndItsStrings) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.expect(bytes({0, 1, 0x1e, 0x61, 0, 0, 0, 9}) + "JobStatus" + bytes({0, 0, 0, 14}) +
                    "RUVO_JS_LOOKUP" + bytes({0, 0, 0, 1}) + "a");
        peer.send(bytes({0xff, 0xff, 0xff, 0xff}));
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    EXPECT_EQ(client.call(lookup()), -1);
}

TEST(RuvoClient, CarriesManyRequestsInOneConversation) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        for (int i = 0; i < 100; ++i) peer.serve(kLookup, i32(i));
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    for (int i = 0; i < 100; ++i) EXPECT_EQ(client.call(lookup()), i);
}

TEST(RuvoClient, NoticesAnAnswerCutOffAtEachByte) {
    for (std::size_t cut = 0; cut < 4; ++cut) {
        ScriptedDaemon daemon([cut](ScriptedPeer& peer) {
            peer.open();
            peer.serve(kLookup, i32(0x01020304).substr(0, cut));
            peer.close();
        });
        RuvoClient client(daemon.options());
        EXPECT_EQ(problemOf([&] { client.call(lookup()); }), RuvoProblem::Closed) << cut;
        EXPECT_FALSE(client.isOpen());
        EXPECT_EQ(problemOf([&] { client.call(lookup()); }), RuvoProblem::Closed) << cut;
    }
}

TEST(RuvoClient, TellsThatACommandIsUnknownAndGoesOn) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.serve(engineRequest("JobStatus", "RUVO_JS_NONE"), i32(-999));
        peer.serve(kLookup, i32(5));
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    const auto error = errorOf([&] { client.call(RuvoRequest("JobStatus", "RUVO_JS_NONE")); });
    EXPECT_EQ(error.problem(), RuvoProblem::Declined);
    EXPECT_EQ(error.code(), -999);
    EXPECT_EQ(client.call(lookup()), 5);
}

TEST(RuvoClient, EndsTheConversationWhenTheArgumentsOfAnUnknownCommandAreInTheWay) {
    const std::string request = engineRequest("JobStatus", "RUVO_JS_NONE", i32(1));
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        peer.serve(request, i32(-999));
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    const auto error =
        errorOf([&] { client.call(RuvoRequest("JobStatus", "RUVO_JS_NONE").addInt(1)); });
    EXPECT_EQ(error.code(), -999);
    EXPECT_FALSE(client.isOpen());
}

TEST(RuvoClient, EndsTheConversationWhenAnAnswerDoesNotComeInTime) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.serve(kLookup, bytes({0, 0}));  // half of it
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    client.setTimeout(milliseconds(50));
    EXPECT_EQ(problemOf([&] { client.call(lookup()); }), RuvoProblem::TimedOut);
    EXPECT_FALSE(client.isOpen());
}

TEST(RuvoClient, SendsABatchUnderOneCountAndReadsItsAnswersInOrder) {
    const std::string silent = engineRequest("JobStatus", "RUVO_JS_GET_ALL_PROGRESS");
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(5) + kLookup + silent + u16(0) + u16(4) + kLookup);
        peer.send(i32(11) + i32(-999));
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    const std::vector<RuvoRequest> batch = {
        lookup(),
        RuvoRequest("JobStatus", "RUVO_JS_GET_ALL_PROGRESS", RuvoRequest::Answer::None),
        RuvoRequest::acknowledgement(), RuvoRequest::logOff(), lookup()};
    EXPECT_EQ(client.call(batch), (std::vector<std::int32_t>{11, 0, 0, 0, -999}));
}

TEST(RuvoClient, SendsAnEmptyBatchAsACountOfNothing) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(0));
        peer.serve(kLookup, i32(1));
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    EXPECT_TRUE(client.call(std::vector<RuvoRequest>()).empty());
    EXPECT_EQ(client.call(lookup()), 1);
}

TEST(RuvoClient, CarriesTheLargestBatchAndRefusesALargerOne) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(65535) + std::string(65535 * 2, '\0'));
        peer.serve(kLookup, i32(1));
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    std::vector<RuvoRequest> batch(65535, RuvoRequest::acknowledgement());
    client.send(batch);
    batch.push_back(RuvoRequest::acknowledgement());
    EXPECT_EQ(problemOf([&] { client.send(batch); }), RuvoProblem::Argument);
    EXPECT_EQ(client.call(lookup()), 1);  // nothing of it was sent
}

TEST(RuvoClient, DoesNotReadAnIntegerWhereNoneIsAnswered) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.serve(kLookup, i32(1));
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    const RuvoRequest other("Scheduler", "RUVO_TS_LIST_EXEC", RuvoRequest::Answer::Other);
    EXPECT_EQ(problemOf([&] { client.call(RuvoRequest::logOff()); }), RuvoProblem::Argument);
    EXPECT_EQ(problemOf([&] { client.call(other); }), RuvoProblem::Argument);
    EXPECT_EQ(problemOf([&] { client.call(std::vector{lookup(), other}); }),
              RuvoProblem::Argument);
    EXPECT_EQ(client.call(lookup()), 1);
}

TEST(RuvoClient, ReadsEveryKindOfAnswer) {
    const std::string text("a\0b", 3);
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        peer.serve(kLookup, i32(-2) + i32(4000000000) + str(text) + str("") + "raw");
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    client.send(lookup());
    EXPECT_EQ(client.readInt(), -2);
    EXPECT_EQ(client.readUnsigned(), 4000000000U);
    EXPECT_EQ(client.readString(), text);
    EXPECT_EQ(client.readString(), "");
    EXPECT_EQ(client.readBytes(0), "");
    EXPECT_EQ(client.readBytes(3), "raw");
}

TEST(RuvoClient, NoticesATextCutOffAtEachByte) {
    const std::string text = str("abc");
    for (std::size_t cut = 0; cut < text.size(); ++cut) {
        ScriptedDaemon daemon([&](ScriptedPeer& peer) {
            peer.open();
            peer.serve(kLookup, text.substr(0, cut));
            peer.close();
        });
        RuvoClient client(daemon.options());
        client.send(lookup());
        EXPECT_EQ(problemOf([&] { client.readString(); }), RuvoProblem::Closed) << cut;
    }
}

TEST(RuvoClient, BelievesNoTextOverTheLimit) {
    for (const std::int64_t size : {std::int64_t{11}, std::int64_t{0x7fffffff}, std::int64_t{-1}}) {
        ScriptedDaemon daemon([size](ScriptedPeer& peer) {
            peer.open();
            peer.serve(kLookup, i32(size) + "abcdefghijk");
            peer.awaitClose();
        });
        auto options = daemon.options();
        options.maxStringBytes = 10;
        RuvoClient client(options);
        client.send(lookup());
        EXPECT_EQ(problemOf([&] { client.readString(); }), RuvoProblem::Protocol) << size;
        EXPECT_FALSE(client.isOpen());
    }
}

TEST(RuvoClient, TakesATextOfExactlyTheLimit) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.serve(kLookup, str("abcdefghij"));
        peer.awaitClose();
    });
    auto options = daemon.options();
    options.maxStringBytes = 10;
    RuvoClient client(options);
    client.send(lookup());
    EXPECT_EQ(client.readString(), "abcdefghij");
    EXPECT_EQ(problemOf([&] { client.readBytes(options.maxBlockBytes + 1U); }),
              RuvoProblem::Argument);
}

TEST(RuvoClient, TakesNoMemoryForASizeThatIsOnlyDeclared) {
    for (const bool isText : {true, false}) {
        ScriptedDaemon daemon([](ScriptedPeer& peer) {
            peer.open();
            peer.serve(kLookup, i32(0x7fffffff) + "abc");
            peer.close();
        });
        RuvoClient client(daemon.options());
        client.send(lookup());
        const std::size_t before = memoryTakenByThisThread();
        const auto read =
            [&] { isText ? client.readLongString() : client.readLongBytes(client.readInt()); };
        EXPECT_EQ(problemOf(read), RuvoProblem::Closed);
        const std::size_t taken = memoryTakenByThisThread() - before;
        EXPECT_GT(taken, 0U);
        EXPECT_LT(taken, std::size_t{1} << 20);
    }
}

TEST(RuvoClient, GivesEachPieceOfALongAnswerItsTime) {
    constexpr milliseconds kBetween(800);
    const std::string piece(std::size_t{1} << 20, 'x');
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        peer.serve(kLookup, i32(static_cast<std::int64_t>(4 * piece.size())));
        for (int i = 0; i < 4; ++i) {
            const auto moment = std::chrono::steady_clock::now() + kBetween;
            TestSupport::waitUntil([&] { return std::chrono::steady_clock::now() >= moment; });
            peer.send(piece);
        }
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    client.setTimeout(3 * kBetween);  // all of it takes longer
    client.send(lookup());
    EXPECT_EQ(client.readLongString().size(), 4 * piece.size());
}

TEST(RuvoClient, DoesNotHangWhenBothSidesSendMuchAtOnce) {
    const std::string large(std::size_t{8} << 20, 'x');
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        peer.send(large);  // and only then it reads
        peer.expect(u16(1) + u16(7777) + str("M") + str("C") + large);
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    client.send(RuvoRequest("M", "C", RuvoRequest::Answer::Other).addBytes(large));
    EXPECT_TRUE(client.readBytes(large.size()) == large);
}

TEST(RuvoClient, TimesOutWhenTheDaemonDoesNotTakeTheRequest) {
    std::promise<void> clientGaveUp;
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        clientGaveUp.get_future().wait();
        peer.awaitClose();
    });
    auto options = daemon.options();
    options.timeout = milliseconds(50);
    RuvoClient client(options);
    const RuvoRequest request = RuvoRequest("M", "C", RuvoRequest::Answer::Other)
                                    .addBytes(std::string(std::size_t{32} << 20, 'x'));
    EXPECT_EQ(problemOf([&] { client.send(request); }), RuvoProblem::TimedOut);
    EXPECT_FALSE(client.isOpen());
    clientGaveUp.set_value();
}

TEST(RuvoClient, ReadsWhatIsThereUntilNothingComes) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.serve(kLookup, "abc");
        peer.serve(kLookup, "def");
        peer.close();
    });
    RuvoClient client(daemon.options());
    client.send(lookup());
    EXPECT_EQ(client.readSome(milliseconds(20000)), "abc");
    EXPECT_EQ(client.readSome(milliseconds(20)), "");
    EXPECT_TRUE(client.isOpen());  // silence is no failure here
    client.send(lookup());
    EXPECT_EQ(client.readSome(milliseconds(20000)), "def");
    EXPECT_EQ(client.readSome(milliseconds(20000)), "");  // the end
    EXPECT_TRUE(client.isDaemonGone());
}

TEST(RuvoClient, NoticesThatTheDaemonHasGone) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.serve(kLookup, i32(1));
        peer.expect(u16(1) + u16(0));
        peer.close();
    });
    RuvoClient client(daemon.options());
    EXPECT_EQ(client.call(lookup()), 1);
    EXPECT_FALSE(client.isDaemonGone());
    client.acknowledge();
    daemon.join();
    EXPECT_TRUE(client.isDaemonGone());
}

TEST(RuvoClient, LogsOffAndGoesOn) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(1) + u16(4));
        peer.serve(kLookup, i32(1));
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    client.logOff();
    EXPECT_EQ(client.call(lookup()), 1);
}

TEST(RuvoClient, StopsTheDaemonAndWaitsForItsEnd) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(1) + u16(9999));
        peer.close();
    });
    RuvoClient client(daemon.options());
    client.stopDaemon();
    EXPECT_FALSE(client.isOpen());
}

TEST(RuvoClient, TellsWhenTheDaemonDoesNotStop) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.awaitClose();
    });
    auto options = daemon.options();
    options.timeout = milliseconds(50);
    RuvoClient client(options);
    const auto error = errorOf([&] { client.stopDaemon(); });
    EXPECT_EQ(error.problem(), RuvoProblem::TimedOut);
    EXPECT_TRUE(has(error.what(), "still runs")) << error.what();
}

TEST(RuvoClient, IsOverAfterClose) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    client.close();
    client.close();
    daemon.join();
    EXPECT_FALSE(client.isOpen());
    EXPECT_TRUE(client.isDaemonGone());
    EXPECT_EQ(problemOf([&] { client.acknowledge(); }), RuvoProblem::Closed);
}

TEST(RuvoClient, MovesWithItsConversation) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.serve(kLookup, i32(1));
        peer.awaitClose();
    });
    RuvoClient first(daemon.options());
    RuvoClient second(std::move(first));
    EXPECT_EQ(second.call(lookup()), 1);
}

TEST(RuvoClient, LooksForAnswersWithoutEndingTheConversation) {
    std::promise<void> looked;
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(1) + kLookup);
        looked.get_future().wait();
        peer.send(i32(1));
        peer.close();
    });
    RuvoClient client(daemon.options());
    client.send(lookup());
    for (const int ms : {0, -1, 1, 20}) {
        EXPECT_FALSE(client.awaitAnswer(4, std::chrono::milliseconds(ms))) << ms;
    }
    looked.set_value();
    EXPECT_TRUE(client.awaitAnswer(4, std::chrono::seconds(20)));
    EXPECT_TRUE(client.awaitAnswer(4, std::chrono::seconds(0)));
    EXPECT_EQ(client.readInt(), 1);
    EXPECT_TRUE(client.awaitAnswer(4, std::chrono::seconds(20)));  // the end
    EXPECT_TRUE(client.isOpen());
    EXPECT_EQ(problemOf([&] { client.readInt(); }), RuvoProblem::Closed);
    EXPECT_EQ(problemOf([&] { client.awaitAnswer(4, std::chrono::seconds(20)); }),
              RuvoProblem::Closed);
}

TEST(RuvoClient, ReadsOnAfterItHasEndedSending) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(1) + kLookup);
        peer.awaitClose();
        peer.send(i32(1));
    });
    RuvoClient client(daemon.options());
    client.send(lookup());
    client.endSending();
    client.endSending();
    EXPECT_EQ(client.readInt(), 1);
    EXPECT_EQ(problemOf([&] { client.send(lookup()); }), RuvoProblem::Closed);
    client.endSending();  // of what is over
}

TEST(RuvoClient, TellsItsOptions) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    EXPECT_EQ(client.options().port, daemon.port());
    client.setTimeout(std::chrono::milliseconds(7));
    EXPECT_EQ(client.options().timeout, std::chrono::milliseconds(7));
}
