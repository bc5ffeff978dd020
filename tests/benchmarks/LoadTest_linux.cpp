#include "benchmarks/bare/BareMatching.h"
#include "benchmarks/harness/BlockingSocket.h"
#include "benchmarks/harness/Conversation.h"
#include "benchmarks/harness/Listeners.h"
#include "benchmarks/harness/PingPong.h"
#include "benchmarks/harness/Placement.h"
#include "benchmarks/harness/Raising.h"
#include "benchmarks/harness/Requests.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>

namespace RuvoBench {
namespace {

using namespace std::string_literals;

// Both ends of a loopback connection.
struct Pair {
    Pair() {
        std::uint16_t port = 0;
        const Fd listener = listenOnLoopback(port);
        client = connectToLoopback(port);
        server = acceptClient(listener.get(), -1);
    }
    Fd client;
    Fd server;
};

TEST(BlockingSocket, CarriesWhatWasSentInPieces) {
    const Pair pair;
    sendAll(pair.client.get(), "ab");
    sendAll(pair.client.get(), "cd");
    char buffer[4];
    receiveExactly(pair.server.get(), buffer, sizeof buffer);
    EXPECT_EQ("abcd", std::string(buffer, sizeof buffer));
}

TEST(BlockingSocket, TellsTheEndFromTheMiddle) {
    Pair pair;
    sendAll(pair.client.get(), "ab");
    pair.client.close();
    char buffer[4];
    EXPECT_FALSE(receiveOrEnd(pair.server.get(), buffer, sizeof buffer));
    EXPECT_THROW(receiveExactly(pair.server.get(), buffer, 1), std::runtime_error);
}

TEST(BlockingSocket, AResetIsAnEndForServers) {
    Pair pair;
    setResetOnClose(pair.client.get());
    pair.client.close();
    char buffer[1];
    EXPECT_FALSE(receiveOrEnd(pair.server.get(), buffer, sizeof buffer));
}

TEST(BlockingSocket, NobodyConnectingIsAnError) {
    std::uint16_t port = 0;
    const Fd listener = listenOnLoopback(port);
    EXPECT_THROW(acceptClient(listener.get(), 0), std::runtime_error);
}

TEST(BlockingSocket, NobodyListeningIsAnError) {
    std::uint16_t port = 0;
    listenOnLoopback(port).close();
    EXPECT_THROW(connectToLoopback(port), std::runtime_error);
}

TEST(Conversation, RefusesAnotherSignalThanThatOfAdmission) {
    std::uint16_t port = 0;
    const Fd listener = listenOnLoopback(port);
    std::jthread server([&listener] {
        const Fd client = acceptClient(listener.get(), -1);
        sendAll(client.get(), "-\r\n");
    });
    EXPECT_THROW(Conversation{port}, std::runtime_error);
}

TEST(Conversation, AsksOneRequestAtATime) {
    std::uint16_t port = 0;
    const Fd listener = listenOnLoopback(port);
    std::string got(10, '\0');
    std::jthread server([&listener, &got] {
        const Fd client = acceptClient(listener.get(), -1);
        sendAll(client.get(), "+\r\n");
        receiveExactly(client.get(), got.data(), got.size());
        sendAll(client.get(), "\xff\xff\xff\xfe"s);
    });
    Conversation conversation(port);
    EXPECT_EQ(-2, conversation.ask("abc"));
    server.join();
    EXPECT_EQ("RUVO\n\0\1abc"s, got);
}

// The server's side of some listeners: a connection to each.
std::vector<Fd> connectTo(const Listeners& listeners) {
    std::vector<Fd> connections;
    for (std::size_t i = 0; i < listeners.size(); ++i) {
        const std::string name = listeners.remoteName(i);
        const auto port = std::stoul(name.substr(name.rfind(':') + 1));
        connections.push_back(connectToLoopback(static_cast<std::uint16_t>(port)));
    }
    return connections;
}

TEST(Listeners, DrainEndsWhenEachOneHasItsBytes) {
    Listeners listeners(2);
    const auto connections = connectTo(listeners);
    listeners.acceptAll();
    const std::string bytes(100000, 'x');
    std::jthread server([&] {
        for (const auto& connection : connections) sendAll(connection.get(), bytes);
    });
    listeners.drain(bytes.size());
    char buffer[1];
    for (std::size_t i = 0; i < listeners.size(); ++i) {
        EXPECT_EQ(-1, ::recv(listeners.socket(i), buffer, 1, MSG_DONTWAIT)) << i;
    }
}

TEST(Listeners, LeaveMoreThanWasAskedForToTheNextDrain) {
    Listeners listeners(1);
    const auto connections = connectTo(listeners);
    listeners.acceptAll();
    sendAll(connections[0].get(), "abcdef");
    listeners.drain(4);
    char buffer[2];
    receiveExactly(listeners.socket(0), buffer, sizeof buffer);
    EXPECT_EQ("ef", std::string(buffer, sizeof buffer));
}

TEST(Listeners, AConnectionThatClosesIsAnError) {
    Listeners listeners(1);
    auto connections = connectTo(listeners);
    listeners.acceptAll();
    connections.clear();
    EXPECT_THROW(listeners.drain(1), std::runtime_error);
}

TEST(Listeners, NameTheirPortsForABareServer) {
    Listeners listeners(2);
    const auto portOf = [&](std::size_t i) {
        return listeners.remoteName(i).substr(std::string("tcp:127.0.0.1:").size());
    };
    EXPECT_EQ(portOf(0) + "," + portOf(1), listeners.ports());
}

TEST(Raising, HasFourBatchesUnderWayAtMostAndWaitsForEveryAnswer) {
    constexpr int kBatches = 20;
    Pair pair;
    std::atomic<int> answered{0};
    std::atomic<int> mostUnderWay{0};
    std::atomic<int> sent{0};
    std::jthread server([&] {
        char batch[3];
        for (; answered < kBatches; ++answered) {
            receiveExactly(pair.server.get(), batch, sizeof batch);
            sendAll(pair.server.get(), "rr");
        }
    });
    std::string bytes = "xyz";
    const double seconds = raiseWhile(
        pair.client.get(), kBatches,
        [&](std::uint64_t number) {
            EXPECT_EQ(static_cast<std::uint64_t>(sent.load()), number);
            mostUnderWay = std::max(mostUnderWay.load(), ++sent - answered);
            return std::string_view(bytes);
        },
        2, [] {});
    EXPECT_GE(seconds, 0);
    EXPECT_EQ(kBatches, sent);
    // One more may be answered already, but not yet counted.
    EXPECT_LE(mostUnderWay, 5);
    char left[1];
    EXPECT_EQ(-1, ::recv(pair.client.get(), left, 1, MSG_DONTWAIT));
}

TEST(Raising, AServerThatHangsUpIsAnError) {
    Pair pair;
    pair.server.close();
    EXPECT_THROW(raiseWhile(
                     pair.client.get(), 1, [](std::uint64_t) { return "x"; }, 1, [] {}),
                 std::runtime_error);
}

TEST(Calibrate, FindsTheUnitsForATime) {
    const auto seconds = [](std::uint64_t units) { return static_cast<double>(units) * 1e-3; };
    const auto units = calibrate(seconds, 0.2);
    EXPECT_GE(units, 199u);
    EXPECT_LE(units, 201u);
}

TEST(Calibrate, IsOneAtLeast) {
    EXPECT_EQ(1u, calibrate([](std::uint64_t) { return 5.0; }, 0.2));
}

TEST(PingPong, P50IsInMicroseconds) {
    std::vector<std::int64_t> times{9000000, 1000, 2500};
    EXPECT_DOUBLE_EQ(2.5, p50Microseconds(times));
    times.clear();
    EXPECT_THROW(p50Microseconds(times), std::runtime_error);
}

TEST(PingPong, AServerThatHangsUpIsAnErrorOfTheWholeRate) {
    Pair dead;
    dead.server.close();
    EXPECT_THROW(roundTripRate({dead.client.get()}, "x", 1, std::chrono::milliseconds(1)),
                 std::runtime_error);
}

TEST(Pinned, KeepsTheThreadOnOneProcessorForItsLife) {
    const auto before = allowedProcessors();
    {
        const Pinned pinned(before.back());
        EXPECT_EQ(std::vector<int>{before.back()}, allowedProcessors());
        EXPECT_EQ(std::min<std::size_t>(before.size(), 2), placements().size());
        EXPECT_EQ(before.front(), serverProcessor());
    }
    EXPECT_EQ(before, allowedProcessors());
}

TEST(BareMatching, CountsPlainTextsAsTheExpressionsDo) {
    const std::vector<std::string> patterns{"^disk", "disk$", "^disk$", "disk", "^raid disk$"};
    const BareMatching plain(patterns, true);
    const BareMatching expressions(patterns, false);
    for (const std::string text : {"disk", "disk failed", "raid disk", "raid disk ok", "fan"}) {
        EXPECT_EQ(expressions.countMatches(text), plain.countMatches(text)) << text;
    }
    EXPECT_EQ(4u, plain.countMatches("disk"));
    EXPECT_EQ(0u, plain.countMatches("fan"));
}

}  // namespace
}  // namespace RuvoBench
