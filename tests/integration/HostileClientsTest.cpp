// Clients that break off, send nonsense, promise too much or come in crowds.

#include "tests/support/DaemonLauncher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <exception>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace IntegrationTests {
namespace {

using namespace TestSupport;

WireText createJob(const std::string& name) {
    return WireText().request("JobStatus", "RUVO_JS_CREATE").string("").string(name);
}

std::int32_t lookup(Daemon& daemon, const std::string& name) {
    auto client = daemon.client();
    client.send(
        WireText().shortNumber(1).request("JobStatus", "RUVO_JS_LOOKUP").string(name));
    return client.readNumber();
}

// A conversation that touches every kind of read.
std::string wholeConversation(const std::string& job) {
    return WireText()
        .line("RUVO")
        .shortNumber(4)
        .shortNumber(0)
        .request("Notifier", "RUVO_NN_NOTIFY")
        .string("sender")
        .string("hostile.event")
        .string("message")
        .number(5)
        .bytes("12345")
        .request("JobStatus", "RUVO_JS_MAP_JOB")
        .number(1)
        .number(2)
        .number(10)
        .number(20)
        .bytes(createJob(job).text())
        .shortNumber(1)
        .shortNumber(4)
        .text();
}

TEST(HostileClients, MayBreakOffAtEveryByte) {
    Daemon daemon;
    const std::size_t length = wholeConversation("cut 000").size();
    // After these bytes the job has been asked for in full.
    const std::size_t complete = length - 4;
    for (std::size_t cut = 0; cut <= length; ++cut) {
        const std::string number = std::to_string(cut);
        const std::string job = "cut " + std::string(3 - number.size(), '0') + number;
        WireClient client(daemon.tcpPort());
        client.send(wholeConversation(job).substr(0, cut));
        if (cut % 2 == 0) {
            client.finishSending();
            client.readRest();
        }
    }
    auto client = daemon.client();
    for (std::size_t cut = 0; cut <= length; cut += 2) {
        const std::string number = std::to_string(cut);
        const std::string job = "cut " + std::string(3 - number.size(), '0') + number;
        const bool created = lookup(daemon, job) > 0;
        EXPECT_EQ(created, cut >= complete) << cut;
    }
}

TEST(HostileClients, MayResetTheirConnections) {
    Daemon daemon;
    const std::string conversation = wholeConversation("reset");
    for (std::size_t cut = 0; cut <= conversation.size(); cut += 5) {
        WireClient client(daemon.tcpPort());
        client.send(conversation.substr(0, cut));
        client.reset();
    }
    EXPECT_TRUE(daemon.serves());
}

TEST(HostileClients, MaySendNonsense) {
    Daemon daemon;
    std::mt19937 random(20260301);
    const std::vector<std::string> beginnings{
        "", "RUVO\n", WireText().line("RUVO").shortNumber(9).text(),
        WireText().line("RUVO").shortNumber(9).request("JobStatus", "RUVO_JS_MAP_JOB").text(),
        WireText().line("RUVO").shortNumber(9).request("Notifier", "RUVO_NN_REGISTER").text(),
        WireText().line("RUVO").shortNumber(9).request("Notifier", "RUVO_NN_NOTIFY").text()};
    for (int i = 0; i < 300; ++i) {
        std::string bytes = beginnings[static_cast<std::size_t>(i) % beginnings.size()];
        const auto count = random() % 600;
        for (unsigned n = 0; n < count; ++n) bytes.push_back(static_cast<char>(random()));
        WireClient client(daemon.tcpPort());
        client.trySend(bytes);
        client.finishSending();
        client.readRest();
    }
    EXPECT_TRUE(daemon.serves());
}

// Each with its lines in the log, at the levels that an administrator looks at.
TEST(HostileClients, AreLoggedWithTheReason) {
    Daemon daemon;
    const auto logs = [&daemon](const char* text) {
        return waitUntil([&] { return daemon.log().find(text) != std::string::npos; });
    };
    {
        auto client = daemon.client();
        client.send(WireText().shortNumber(1).shortNumber(4711));
        EXPECT_EQ(client.readRest(), "");
    }
    EXPECT_TRUE(logs("] 3 RuvoService::handleClient: exception: RuvoService::handleClient: Unknown "
                     "command. Error code (4711)\n"));
    EXPECT_TRUE(logs("] 3 RuvoService::handleClient: Access Server communication failed with "
                     "exception - RuvoService::handleClient: Unknown command\n"));
    {
        auto client = daemon.client();
        client.send(WireText().shortNumber(1).shortNumber(7777).number(0x7fffffff));
        EXPECT_EQ(client.readRest(), "");
    }
    EXPECT_TRUE(logs("] 3 RuvoService::handleClient: Access Server communication failed with "
                     "exception - "));
    EXPECT_TRUE(logs("\"ruvod.limits.string-bytes\" allows 1048576"));
    daemon.client();  // goes without a word
    EXPECT_TRUE(logs(": the peer has closed the connection"));
}

TEST(HostileClients, MaySendNonsenseInDatagrams) {
    Daemon daemon({.udp = true});
    std::mt19937 random(20260302);
    for (int i = 0; i < 100; ++i) {
        std::string bytes = i % 2 == 0 ? "RUVO\n" : "";
        const auto count = random() % 700;  // the daemon takes 512 of them
        for (unsigned n = 0; n < count; ++n) bytes.push_back(static_cast<char>(random()));
        auto client = WireClient::udp(daemon.udpPort());
        client.trySend(bytes);
        client.trySend("");
    }
    EXPECT_TRUE(daemon.serves());
    auto client = WireClient::udp(daemon.udpPort());
    client.send("RUVO\n");
    EXPECT_EQ(client.readDatagram(), "+\r\n");
}

TEST(HostileClients, AreCutOffAtAStringOverTheLimit) {
    Daemon daemon({.properties = "ruvod.limits.string-bytes=1000\n"});
    {
        auto client = daemon.client();
        client.send(WireText().shortNumber(1).bytes(createJob(std::string(1000, 'n')).text()));
        EXPECT_GT(client.readNumber(), 0) << "exactly the limit is allowed";
    }
    const std::string tooLong(1001, 'n');
    auto client = daemon.client();
    client.send(WireText().shortNumber(1).bytes(createJob(tooLong).text()));
    EXPECT_EQ(client.readRest(), "");
    EXPECT_EQ(lookup(daemon, std::string(1000, 'n')), 1);
    EXPECT_TRUE(daemon.serves());
}

TEST(HostileClients, AreCutOffAtTheDeclarationOfTooMuch) {
    Daemon daemon;
    const std::string request = WireText().shortNumber(1).shortNumber(7777).text();
    for (const std::int64_t length : {1048577LL, 0x7fffffffLL, 0x80000000LL, 0xffffffffLL}) {
        auto client = daemon.client();
        // Nothing but the length comes: the daemon does not wait for the rest.
        client.send(WireText().bytes(request).number(length));
        EXPECT_EQ(client.readRest(), "") << length;
    }
    const std::string notify = WireText()
                                   .shortNumber(1)
                                   .request("Notifier", "RUVO_NN_NOTIFY")
                                   .string("s")
                                   .string("e")
                                   .string("m")
                                   .text();
    for (const std::int64_t size : {-1LL, -2147483648LL, 67108865LL, 2147483647LL}) {
        auto client = daemon.client();
        client.send(WireText().bytes(notify).number(size));
        EXPECT_EQ(client.readRest(), "") << size;
    }
    EXPECT_TRUE(daemon.serves());
}

TEST(HostileClients, MayPromiseMuchAndSendNothing) {
    Daemon daemon;
    // Each of them holds its thread and next to nothing else.
    std::vector<WireClient> clients;
    for (int i = 0; i < 100; ++i) {
        clients.push_back(daemon.client());
        clients.back().send(WireText().shortNumber(1).shortNumber(7777).number(1048576).bytes("a"));
    }
    EXPECT_TRUE(daemon.serves());
    EXPECT_EQ(daemon.stop(), 0);
}

TEST(HostileClients, AreClosedAtOnceBeyondTheLimit) {
    Daemon daemon({.properties = "ruvod.limits.clients=3\n"});
    std::vector<WireClient> clients;
    for (int i = 0; i < 3; ++i) clients.push_back(daemon.client());
    WireClient refused(daemon.tcpPort());
    EXPECT_EQ(refused.readRest(), "");
    EXPECT_TRUE(waitUntil([&] {
        return daemon.log().find(" closed, as \"ruvod.limits.clients\" (3) are connected\n") !=
               std::string::npos;
    }));
    clients.pop_back();
    EXPECT_TRUE(waitUntil([&] {
        try {
            return daemon.serves();
        } catch (const std::exception&) {
            return false;  // its place is not free yet
        }
    }));
}

// Clients that never stop raising events cannot keep the daemon from stopping.
TEST(HostileClients, CannotKeepTheDaemonBusyWhenItStops) {
    Daemon daemon;
    auto listener = daemon.client();
    for (int i = 0; i < 50; ++i) {
        listener.send(WireText()
                          .shortNumber(1)
                          .request("Notifier", "RUVO_NN_REGISTER")
                          .string("no.such.event" + std::to_string(i) + "|nor.that")
                          .string("tcp:127.0.0.1:9")
                          .number(i)
                          .text());
        ASSERT_EQ(listener.readNumber(), 0);
    }
    const std::string raise = WireText()
                                  .request("Notifier", "RUVO_NN_NOTIFY")
                                  .string("s")
                                  .string("e")
                                  .string("m")
                                  .number(0)
                                  .text();
    std::string batch = WireText().shortNumber(200).text();
    for (int i = 0; i < 200; ++i) batch += raise;
    std::atomic<bool> over{false};
    std::vector<std::jthread> raisers;
    for (int i = 0; i < 2; ++i) {
        raisers.emplace_back([&] {
            while (!over) {
                try {
                    auto client = daemon.client();
                    while (!over) {
                        client.send(batch);
                        for (int n = 0; n < 200; ++n) client.readNumber();
                    }
                } catch (const std::exception&) {
                    // Broken off, as it should be; comes again at once.
                }
            }
        });
    }
    EXPECT_TRUE(waitUntil([&] { return daemon.serves(); }));
    EXPECT_EQ(daemon.stop(), 0);
    over = true;
}

TEST(HostileClients, MakeWayWhenTheyDoNotSayWhatTheyAre) {
    Daemon daemon({.properties = "ruvod.limits.opening-ms=200\n"});
    auto client = daemon.client();
    WireClient silent(daemon.tcpPort());
    WireClient slow(daemon.tcpPort());
    slow.send("RUV");
    EXPECT_EQ(silent.readRest(), "");
    EXPECT_EQ(slow.readRest(), "");
    EXPECT_TRUE(waitUntil([&] {
        return daemon.log().find("RuvoService::handleClient: no first line within "
                                 "\"ruvod.limits.opening-ms\" from tcp:") != std::string::npos;
    }));
    // A conversation has all the time in the world.
    client.send(WireText().shortNumber(1).bytes(createJob("late").text()));
    EXPECT_EQ(client.readNumber(), 1);
}

TEST(HostileClients, MayComeInCrowds) {
    Daemon daemon;
    std::vector<WireClient> clients;
    for (int i = 0; i < 1000; ++i) clients.push_back(daemon.client());
    for (int i = 0; i < 1000; ++i) {
        clients[static_cast<std::size_t>(i)].send(
            WireText().shortNumber(1).bytes(createJob(std::to_string(i)).text()));
    }
    std::vector<bool> taken(1001, false);
    for (auto& client : clients) {
        const auto id = client.readNumber();
        ASSERT_GE(id, 1);
        ASSERT_LE(id, 1000);
        EXPECT_FALSE(taken[static_cast<std::size_t>(id)]) << id;
        taken[static_cast<std::size_t>(id)] = true;
    }
    clients.clear();
    EXPECT_TRUE(daemon.serves());
}

TEST(HostileClients, MayAllConnectAtOnce) {
    Daemon daemon;
    std::vector<WireClient> clients;
    for (int i = 0; i < 40; ++i) {
        clients.emplace_back(daemon.tcpPort());
        clients.back().send("RUVO\n");
    }
    for (auto& client : clients) EXPECT_EQ(client.read(3), "+\r\n");
}

// The daemon leaves behind, and says so, what has not ended after some seconds. On a
// busy machine that may come to pass, but not each time.
TEST(HostileClients, DoNotHoldUpTheStop) {
    const auto isFollowed = [] {
        Daemon daemon;
        std::vector<WireClient> clients;
        for (int i = 0; i < 500; ++i) {
            clients.push_back(daemon.client());
            // Some wait for the next batch, some within one, some within a string.
            if (i % 3 == 1) clients.back().send(WireText().shortNumber(5).shortNumber(0));
            if (i % 3 == 2) {
                clients.back().send(WireText().shortNumber(1).shortNumber(7777).number(9));
            }
        }
        EXPECT_EQ(daemon.stop(), 0);
        for (auto& client : clients) EXPECT_EQ(client.readRest(), "");
        return daemon.log().find("threads still running") == std::string::npos;
    };
    EXPECT_TRUE(waitUntil(isFollowed));
}

}  // namespace
}  // namespace IntegrationTests
