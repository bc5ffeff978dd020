#include "client/RuvoClient.h"
#include "tests/client/ScriptedDaemon.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace ClientTest;
using Ruvo::RuvoClient;
using Ruvo::RuvoClientError;
using Ruvo::RuvoProblem;
using Ruvo::RuvoRequest;

namespace {

constexpr auto kUdp = ScriptedDaemon::Transport::Udp;
const std::string kLookup = engineRequest("JobStatus", "RUVO_JS_LOOKUP", str("a"));

RuvoRequest lookup() { return RuvoRequest("JobStatus", "RUVO_JS_LOOKUP").addString("a"); }

template <typename Call>
RuvoProblem problemOf(Call call) {
    try {
        call();
    } catch (const RuvoClientError& error) {
        return error.problem();
    }
    ADD_FAILURE() << "nothing was thrown";
    return RuvoProblem::Internal;
}

}  // namespace

TEST(RuvoClientUdp, TalksAsOverTcpAndSaysGoodbyeWithAnEmptyDatagram) {
    ScriptedDaemon daemon(
        [](ScriptedPeer& peer) {
            peer.open();
            peer.serve(kLookup, i32(7));
            peer.awaitClose();
        },
        kUdp);
    {
        RuvoClient client(daemon.options());
        EXPECT_EQ(client.address(), "udp:127.0.0.1:" + std::to_string(daemon.port()));
        EXPECT_EQ(client.call(lookup()), 7);
    }
    daemon.join();
    EXPECT_EQ(daemon.datagramSizes().back(), 0U);
}

TEST(RuvoClientUdp, SendsNoDatagramOver512Bytes) {
    const std::string large(2000, 'x');
    ScriptedDaemon daemon(
        [&](ScriptedPeer& peer) {
            peer.open();
            peer.serve(engineRequest("M", "C", large), i32(1));
            peer.awaitClose();
        },
        kUdp);
    {
        RuvoClient client(daemon.options());
        EXPECT_EQ(client.call(RuvoRequest("M", "C").addBytes(large)), 1);
    }
    daemon.join();
    const auto& sizes = daemon.datagramSizes();
    EXPECT_EQ(*std::max_element(sizes.begin(), sizes.end()), 512U);
    EXPECT_EQ(std::count(sizes.begin(), sizes.end(), 512U), 3);  // of 2014 bytes
}

TEST(RuvoClientUdp, PutsAnswersTogetherFromManyDatagrams) {
    ScriptedDaemon daemon(
        [](ScriptedPeer& peer) {
            peer.open();
            peer.expect(u16(1) + kLookup);
            const std::string answer = str(std::string(1200, 'y')) + i32(5);
            for (std::size_t i = 0; i < answer.size(); i += 500) peer.send(answer.substr(i, 500));
            peer.awaitClose();
        },
        kUdp);
    RuvoClient client(daemon.options());
    client.send(lookup());
    EXPECT_EQ(client.readString(), std::string(1200, 'y'));
    EXPECT_EQ(client.readInt(), 5);
}

TEST(RuvoClientUdp, RefusesARequestThatCouldBeLost) {
    const std::string most(32768 - 2 - 2 - 5 - 5, 'x');  // with count, code and two names
    ScriptedDaemon daemon(
        [&](ScriptedPeer& peer) {
            peer.open();
            peer.serve(engineRequest("M", "C", most), i32(1));
            peer.awaitClose();
        },
        kUdp);
    RuvoClient client(daemon.options());
    EXPECT_EQ(problemOf([&] { client.call(RuvoRequest("M", "C").addBytes(most + "x")); }),
              RuvoProblem::Argument);
    EXPECT_EQ(client.call(RuvoRequest("M", "C").addBytes(most)), 1);
}

TEST(RuvoClientUdp, TakesAnEmptyDatagramForTheEnd) {
    ScriptedDaemon daemon(
        [](ScriptedPeer& peer) {
            peer.open();
            peer.expect(u16(1) + kLookup);
            peer.close();
        },
        kUdp);
    RuvoClient client(daemon.options());
    EXPECT_EQ(problemOf([&] { client.call(lookup()); }), RuvoProblem::Closed);
}

TEST(RuvoClientUdp, TellsThatNobodyListens) {
    Ruvo::RuvoClientOptions options;
    options.useUdp = true;
    options.connectTimeout = std::chrono::milliseconds(500);
    {
        ScriptedDaemon daemon([](ScriptedPeer&) {}, kUdp);
        options.port = daemon.port();
    }
    const auto problem = problemOf([&] { RuvoClient client(options); });
    // Not every system tells that a datagram met nobody.
    EXPECT_TRUE(problem == RuvoProblem::Unreachable || problem == RuvoProblem::TimedOut);
}

TEST(RuvoClientUdp, TimesOutWhereNoAnswerComes) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) { peer.awaitClose(); }, kUdp);
    auto options = daemon.options();
    options.connectTimeout = std::chrono::milliseconds(50);
    EXPECT_EQ(problemOf([&] { RuvoClient client(options); }), RuvoProblem::TimedOut);
}

TEST(RuvoClientUdp, AsksTheDaemonToStopWithoutWaiting) {
    ScriptedDaemon daemon(
        [](ScriptedPeer& peer) {
            peer.open();
            peer.expect(u16(1) + u16(9999));
            peer.awaitClose();
        },
        kUdp);
    RuvoClient client(daemon.options());
    client.stopDaemon();
    EXPECT_FALSE(client.isOpen());
}
