// Locks of a real daemon, and clients that go away at every step of one.

#include "tests/support/ArbiterWire.h"
#include "tests/support/DaemonLauncher.h"
#include "tests/support/TestListener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace IntegrationTests {
namespace {

using ::testing::Each;
using ::testing::Gt;
using namespace TestSupport;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kForever = -1;
constexpr int kPatienceMs = 20'000;
constexpr milliseconds kWrongly{50};  // how long what must not happen is waited for

class Arbiter : public ::testing::Test {
protected:
    static void SetUpTestSuite() { daemon_ = new Daemon({.udp = true}); }
    static void TearDownTestSuite() {
        EXPECT_EQ(daemon_->stop(), 0);
        delete daemon_;
        daemon_ = nullptr;
    }
    static Daemon& daemon() { return *daemon_; }
    static WireClient opened() { return daemon_->client(); }

    void TearDown() override { EXPECT_TRUE(daemon().serves()); }

    // The path's lock. A waiter that has gone may have it for the moment in which
    // the daemon finds that out.
    static std::int32_t lockAmongWaiters(WireClient& client, const std::string& path) {
        const std::int32_t handle = lockOver(client, path, kPatienceMs);
        EXPECT_GT(handle, 0) << path;
        return handle;
    }
    // Locked by nobody, which may take the daemon a moment to find out.
    static void expectFree(const std::string& path) {
        auto client = opened();
        EXPECT_EQ(unlockOver(client, lockAmongWaiters(client, path)), 0) << path;
    }
    // A client that waits for the path, which somebody has locked.
    static WireClient waiting(const std::string& path, int waitMs = kForever) {
        auto client = opened();
        // The answer of the first request says that the second is being served.
        client.send(WireText()
                        .shortNumber(2)
                        .bytes(unlockRequest(0).text())
                        .bytes(lockRequest(path, waitMs).text()));
        EXPECT_EQ(client.readNumber(), 0);
        return client;
    }

private:
    static Daemon* daemon_;
};

Daemon* Arbiter::daemon_ = nullptr;

// ---- locks ---------------------------------------------------------------------

// On a daemon of its own, where nobody else takes a number.
TEST(ArbiterNumbers, AreGivenInTurnOneLockAtATime) {
    Daemon own;
    auto one = own.client();
    auto other = own.client();
    EXPECT_EQ(lockOver(one, "once:a"), 1);
    EXPECT_EQ(lockOver(other, "once:a"), 0);
    EXPECT_EQ(lockOver(other, "once,a"), 0);
    EXPECT_EQ(lockOver(one, "once:a"), 0) << "nor its holder a second time";
    EXPECT_EQ(lockOver(other, "once"), 2);
    EXPECT_EQ(lockOver(other, "once:a:b"), 3);
    EXPECT_EQ(unlockOver(other, 1), 0) << "whoever has its handle";
    EXPECT_EQ(lockOver(other, "once:a"), 4);
    for (int handle = 2; handle <= 4; ++handle) EXPECT_EQ(unlockOver(one, handle), 0);
    EXPECT_EQ(lockOver(one, "once:a"), 5);
}

TEST_F(Arbiter, AnswersEveryUnlockAlike) {
    auto client = opened();
    const auto handle = lockOver(client, "alike");
    for (const std::int32_t wrong : {0, -1, handle + 1, std::numeric_limits<std::int32_t>::min()}) {
        EXPECT_EQ(unlockOver(client, wrong), 0);
        EXPECT_EQ(lockOver(client, "alike"), 0);
    }
    EXPECT_EQ(unlockOver(client, handle), 0);
    EXPECT_EQ(unlockOver(client, handle), 0);
    expectFree("alike");
}

TEST_F(Arbiter, KeepsALockBeyondItsConnection) {
    std::int32_t handle = 0;
    {
        auto client = opened();
        handle = lockOver(client, "beyond");
        client.finishSending();
        EXPECT_EQ(client.readRest(), "") << "the conversation is over";
    }
    auto client = opened();
    EXPECT_EQ(lockOver(client, "beyond", 1), 0);
    EXPECT_EQ(unlockOver(client, handle), 0);
    const auto next = lockOver(client, "beyond");
    EXPECT_GT(next, handle);
    unlockOver(client, next);
}

TEST_F(Arbiter, WaitsUntilTheTimeIsUp) {
    auto client = opened();
    const auto handle = lockOver(client, "time");
    for (const int waitMs : {1, 150}) {
        const auto begun = Clock::now();
        EXPECT_EQ(lockOver(client, "time", waitMs), 0);
        EXPECT_GE(Clock::now() - begun, milliseconds(waitMs));
    }
    unlockOver(client, handle);
}

TEST_F(Arbiter, GivesALockToWhoWaits) {
    auto holder = opened();
    for (const int waitMs : {kPatienceMs, kForever, std::numeric_limits<int>::max(),
                             std::numeric_limits<int>::min()}) {
        const auto handle = lockOver(holder, "wait");
        auto waiter = waiting("wait", waitMs);
        EXPECT_FALSE(waiter.hasInput(kWrongly)) << waitMs;
        unlockOver(holder, handle);
        const auto next = waiter.readNumber();
        EXPECT_GT(next, handle) << waitMs;
        EXPECT_EQ(lockOver(holder, "wait"), 0);
        unlockOver(waiter, next);
    }
}

TEST_F(Arbiter, LetsOneOfManyWaitersHaveIt) {
    auto holder = opened();
    auto handle = lockOver(holder, "many");
    std::vector<WireClient> waiters;
    for (int i = 0; i < 20; ++i) waiters.push_back(waiting("many"));
    std::vector<std::int32_t> handles;
    while (!waiters.empty()) {
        unlockOver(holder, handle);
        auto winner = waiters.end();
        ASSERT_TRUE(waitUntil([&] {
            winner = std::find_if(waiters.begin(), waiters.end(), [](WireClient& waiter) {
                return waiter.hasInput(milliseconds(0));
            });
            return winner != waiters.end();
        }));
        handle = winner->readNumber();
        handles.push_back(handle);
        waiters.erase(winner);
    }
    unlockOver(holder, handle);
    EXPECT_THAT(handles, Each(Gt(0)));
}

// On a daemon of its own: the batch names a number that it is to be given.
TEST(ArbiterNumbers, AreNotHeldBackWhileALaterRequestWaits) {
    Daemon own;
    auto holder = own.client();
    const auto handle = lockOver(holder, "batch");
    auto client = own.client();
    client.send(WireText()
                    .shortNumber(3)
                    .bytes(lockRequest("batch:other", 0).text())
                    .bytes(lockRequest("batch", kForever).text())
                    .bytes(unlockRequest(handle + 1).text()));
    EXPECT_EQ(client.readNumber(), handle + 1);
    EXPECT_FALSE(client.hasInput(kWrongly));
    unlockOver(holder, handle);
    EXPECT_EQ(client.readNumber(), handle + 2);
    EXPECT_EQ(client.readNumber(), 0);
    unlockOver(client, handle + 2);
}

// ---- paths ---------------------------------------------------------------------

TEST_F(Arbiter, TakesEveryPath) {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
    std::string deep;
    while (deep.size() < 1'000'000) deep += "d:";
    auto client = opened();
    std::vector<std::int32_t> handles;
    for (const std::string& path :
         {std::string(), std::string("root"), bytes, std::string(1, '\0'), std::string("\0\0", 2),
          deep.substr(0, 2000), deep, std::string(1 << 20, 'x'), std::string(1000, ':') + 'y'}) {
        handles.push_back(lockOver(client, path));
        EXPECT_GT(handles.back(), 0) << path.size();
        EXPECT_EQ(lockOver(client, path), 0) << path.size();
    }
    for (const char* same : {":", ",", ":,:"}) EXPECT_EQ(lockOver(client, same), 0);
    for (const auto handle : handles) EXPECT_EQ(unlockOver(client, handle), 0);
    const auto root = lockOver(client, ":");
    EXPECT_GT(root, 0);
    unlockOver(client, root);
}

TEST_F(Arbiter, EndsTheConversationAtAPathThatIsTooLong) {
    auto client = opened();
    client.trySend(batchOf(lockRequest(std::string((1 << 20) + 1, 'l'), 0)).text());
    EXPECT_EQ(client.readRest(), "");
    expectFree(std::string(1 << 20, 'l'));
}

// ---- clients that go away ------------------------------------------------------

// The ways in which a client closes its connection.
enum class End { Close, HalfClose, Reset };

void end(WireClient& client, End how) {
    if (how == End::Reset) return client.reset();
    client.finishSending();
    EXPECT_TRUE(client.hasArrived());
    if (how == End::Close) client.close();
}

constexpr End kEnds[] = {End::Close, End::HalfClose, End::Reset};

TEST_F(Arbiter, KeepsNothingForAClientThatGoesWithinItsRequest) {
    const std::string all =
        WireText().line("RUVO").bytes(batchOf(lockRequest("within", kForever)).text()).text();
    for (std::size_t cut = 0; cut < all.size(); ++cut) {
        WireClient client(daemon().tcpPort());
        client.send(all.substr(0, cut));
        end(client, kEnds[cut % 3]);
    }
    expectFree("within");
}

// Nobody is in its way: it could have the lock at once.
TEST_F(Arbiter, KeepsNothingForAClientThatGoesWithItsRequest) {
    for (int i = 0; i < 50; ++i) {
        auto client = opened();
        client.sendLast(batchOf(lockRequest("with", i % 2 == 0 ? 0 : kForever)));
        EXPECT_EQ(client.readRest(), WireText().number(0).text());
        expectFree("with");
    }
}

// Not only after a while: of several tries one is over within five seconds, on a
// machine that is busy as well.
TEST_F(Arbiter, GivesBackSoonWhatAClientThatHasGoneWasGiven) {
    auto holder = opened();
    bool isSoon = false;
    for (int i = 0; i < 4 && !isSoon; ++i) {
        auto handle = lockAmongWaiters(holder, "soon");
        auto client = waiting("soon");
        end(client, kEnds[i % 3]);
        unlockOver(holder, handle);
        handle = lockOver(holder, "soon", 5000);
        isSoon = handle > 0;
        if (!isSoon) handle = lockAmongWaiters(holder, "soon");
        unlockOver(holder, handle);
    }
    EXPECT_TRUE(isSoon);
}

// What is behind the lock in the batch has an answer of its own.
TEST_F(Arbiter, TellsWhoHasEndedItsSideThatItHasNoLock) {
    auto client = opened();
    client.sendLast(WireText()
                        .shortNumber(2)
                        .bytes(lockRequest("half", 0).text())
                        .bytes(WireText().request("JobStatus", "RUVO_JS_LOOKUP").string("?").text()));
    EXPECT_EQ(client.readRest(), WireText().number(0).number(-1).text());
    expectFree("half");
}

TEST_F(Arbiter, KeepsNothingForAClientThatGoesWhileItWaits) {
    auto holder = opened();
    for (int i = 0; i < 30; ++i) {
        const auto handle = lockAmongWaiters(holder, "waits");
        auto client = waiting("waits", i % 2 == 0 ? kForever : kPatienceMs);
        end(client, kEnds[i % 3]);
        unlockOver(holder, handle);
        expectFree("waits");
    }
}

// The requests behind the lock are more than the system takes for a daemon that
// does not read them.
TEST_F(Arbiter, KeepsNothingForAClientThatHasSentMuchAndGoesWhileItWaits) {
    const std::string lookUp =
        WireText().request("JobStatus", "RUVO_JS_LOOKUP").string(std::string(10'000, '?')).text();
    WireText batch;
    batch.shortNumber(52).bytes(unlockRequest(0).text());
    batch.bytes(lockRequest("much", kForever).text());
    for (int i = 0; i < 50; ++i) batch.bytes(lookUp);
    auto holder = opened();
    for (const End how : kEnds) {
        const auto handle = lockAmongWaiters(holder, "much");
        auto client = opened();
        client.send(batch);
        EXPECT_EQ(client.readNumber(), 0);
        end(client, how);
        unlockOver(holder, handle);
        expectFree("much");
    }
}

// Long before anybody unlocks: its thread and its connection are not kept.
TEST_F(Arbiter, NoticesThatAClientHasGoneWhileItWaits) {
    Daemon own({.logLevel = 9});
    auto holder = own.client();
    lockOver(holder, "notices");
    for (const End how : kEnds) {
        auto client = own.client();
        client.send(batchOf(lockRequest("notices", kForever)));
        ASSERT_TRUE(own.logs(9,
                             "RuvoRAEngine::RANode::lock(notices): delaying for -1ms or until "
                             "node is unlocked"));
        end(client, how);
        EXPECT_TRUE(own.logs(9, "RuvoRATimedUnlock::wait: the client has gone"));
        EXPECT_TRUE(own.logs(9, "RuvoRAEngine::RANode::lock(notices): exit (false)"));
    }
    EXPECT_EQ(own.stop(), 0);
}

TEST_F(Arbiter, GivesTheLockToTheNextWhenAWaiterHasGone) {
    auto holder = opened();
    for (int i = 0; i < 20; ++i) {
        const auto handle = lockAmongWaiters(holder, "next");
        auto gone = waiting("next");
        auto waiter = waiting("next");
        auto alsoGone = waiting("next");
        end(gone, kEnds[i % 3]);
        end(alsoGone, kEnds[(i + 1) % 3]);
        unlockOver(holder, handle);
        const auto next = waiter.readNumber();
        ASSERT_GT(next, handle);
        unlockOver(holder, next);
    }
    expectFree("next");
}

// A client process of its own, which is killed.
class ClientProcess {
public:
    ClientProcess(std::uint16_t port, const std::string& bytes)
        : output_(directory_.file("output")),
          process_({"bash", "-c",
                    "exec 3<>/dev/tcp/127.0.0.1/" + std::to_string(port) + "; printf '" +
                        escaped(bytes) + "' >&3; exec cat <&3"},
                   output_, directory_.file("errors")) {}

    // What the daemon has answered.
    std::string output() const { return readFile(output_); }
    void kill() {
        process_.signal(SIGKILL);
        process_.waitForExit();
    }

private:
    static std::string escaped(const std::string& bytes) {
        std::string text;
        for (const char byte : bytes) {
            char code[5];
            std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned char>(byte));
            text += code;
        }
        return text;
    }

    TemporaryDirectory directory_;
    std::string output_;
    SpawnedProcess process_;
};

TEST_F(Arbiter, KeepsNothingForAClientThatIsKilledWhileItWaits) {
    auto holder = opened();
    for (int i = 0; i < 5; ++i) {
        const auto handle = lockAmongWaiters(holder, "killed");
        ClientProcess client(daemon().tcpPort(), WireText()
                                                     .line("RUVO")
                                                     .shortNumber(2)
                                                     .bytes(unlockRequest(0).text())
                                                     .bytes(lockRequest("killed", kForever).text())
                                                     .text());
        ASSERT_TRUE(waitUntil([&] { return client.output().size() == 3 + 4; }));
        client.kill();
        unlockOver(holder, handle);
        expectFree("killed");
    }
}

// Who was told its handle holds the lock, whatever becomes of it.
TEST_F(Arbiter, KeepsALockForAClientThatIsKilledAfterwards) {
    std::string told;
    {
        ClientProcess client(
            daemon().tcpPort(),
            WireText().line("RUVO").bytes(batchOf(lockRequest("told", 0)).text()).text());
        ASSERT_TRUE(waitUntil([&] { return client.output().size() == 3 + 4; }));
        told = client.output().substr(3);
        client.kill();
    }
    std::int32_t handle = 0;
    for (const char byte : told) handle = handle * 256 + static_cast<unsigned char>(byte);
    auto client = opened();
    EXPECT_EQ(lockOver(client, "told", 1), 0);
    EXPECT_EQ(unlockOver(client, handle), 0);
    expectFree("told");
}

TEST_F(Arbiter, OutlivesClientsThatLeaveInCrowds) {
    auto holder = opened();
    const auto handle = lockOver(holder, "crowd");
    {
        std::vector<WireClient> crowd;
        for (int i = 0; i < 60; ++i) crowd.push_back(waiting("crowd"));
        for (std::size_t i = 0; i < crowd.size(); ++i) end(crowd[i], kEnds[i % 3]);
        unlockOver(holder, handle);
    }
    expectFree("crowd");
}

// ---- events --------------------------------------------------------------------

TEST_F(Arbiter, TellsListenersOfEveryChangeInOrder) {
    const TcpListener listener;
    auto client = opened();
    client.send(batchOf(WireText()
                            .request("Notifier", "RUVO_NN_REGISTER")
                            .string("^VornRAEvent:events")
                            .string(listener.remoteName())
                            .number(5)));
    EXPECT_EQ(client.readNumber(), 0);
    const auto eventOf = [](const std::string& name, std::int32_t state) {
        char data[4];
        std::memcpy(data, &state, sizeof data);
        return WireText()
            .number(5)
            .string("udp:127.0.0.1")
            .string("VornRAEvent:" + name)
            .string(name)
            .number(4)
            .bytes(std::string_view(data, sizeof data))
            .text();
    };
    std::string expected;
    for (int i = 0; i < 10; ++i) {
        unlockOver(client, lockOver(client, i % 2 == 0 ? "events,a" : "events:a"));
        expected += eventOf("events,a", 1) + eventOf("events,a", 0);
    }
    const auto handle = lockOver(client, "events");
    lockOver(client, "events");
    unlockOver(client, 0);
    unlockOver(client, handle);
    expected += eventOf("events", 1) + eventOf("events", 0);
    const auto delivery = listener.accept();
    EXPECT_EQ(readBytes(delivery, expected.size()), expected);
    client.send(batchOf(WireText()
                            .request("Notifier", "RUVO_NN_UNREGISTER")
                            .string(listener.remoteName())
                            .number(5)));
    EXPECT_EQ(client.readNumber(), 0);
}

// ---- UDP -----------------------------------------------------------------------

class DatagramClient {
public:
    explicit DatagramClient(std::uint16_t port) : client_(WireClient::udp(port)) {
        client_.send("RUVO\n");
        EXPECT_EQ(client_.readDatagram(), "+\r\n");
    }
    void send(const WireText& request) { client_.send(batchOf(request)); }
    std::int32_t answer() {
        std::int32_t number = 0;
        for (const char byte : client_.readDatagram()) {
            number = number * 256 + static_cast<unsigned char>(byte);
        }
        return number;
    }
    void close() { client_.send(""); }

private:
    WireClient client_;
};

TEST_F(Arbiter, ServesDatagrams) {
    DatagramClient one(daemon().udpPort());
    DatagramClient other(daemon().udpPort());
    one.send(lockRequest("udp", 0));
    const auto handle = one.answer();
    EXPECT_GT(handle, 0);
    other.send(lockRequest("udp", kForever));
    one.send(unlockRequest(handle));
    EXPECT_EQ(one.answer(), 0);
    const auto next = other.answer();
    EXPECT_GT(next, handle);
    other.send(unlockRequest(next));
    EXPECT_EQ(other.answer(), 0);
}

TEST_F(Arbiter, KeepsNothingForADatagramClientThatClosesWhileItWaits) {
    Daemon own({.udp = true, .logLevel = 9});
    auto holder = own.client();
    const auto handle = lockOver(holder, "udp gone");
    DatagramClient gone(own.udpPort());
    gone.send(lockRequest("udp gone", kForever));
    gone.close();
    // Until then its end may be on its way.
    ASSERT_TRUE(own.logs(9, "RuvoRATimedUnlock::wait: the client has gone"));
    unlockOver(holder, handle);
    EXPECT_GT(lockOver(holder, "udp gone"), 0);
}

// ---- stopping ------------------------------------------------------------------

struct Stop {
    Clock::duration took;
    bool leftThreads;
};

// Of a daemon in which so many clients wait for a lock.
Stop stopAmongWaits(int waits) {
    Daemon daemon({.properties = "ruvod.limits.clients=1000\n"});
    auto holder = daemon.client();
    lockOver(holder, "stop");
    std::vector<WireClient> waiters;
    for (int i = 0; i < waits; ++i) {
        const int waitMs = i % 2 == 0 ? kForever : std::numeric_limits<int>::max();
        waiters.push_back(daemon.client());
        waiters.back().send(WireText()
                                .shortNumber(2)
                                .bytes(unlockRequest(0).text())
                                .bytes(lockRequest("stop", waitMs).text()));
        EXPECT_EQ(waiters.back().readNumber(), 0);
    }
    const auto took = timeOf([&] { EXPECT_EQ(daemon.stop(), 0) << daemon.process().errors(); });
    for (auto& waiter : waiters) EXPECT_EQ(waiter.readRest(), "") << "no answer is made up";
    return {took, daemon.log().find("threads still running") != std::string::npos};
}

// The daemon leaves behind, and says so, what has not ended after some seconds. On a
// busy machine that may come to pass, but not each time.
TEST(ArbiterStop, EndsHundredsOfWaits) {
    EXPECT_TRUE(waitUntil([] { return !stopAmongWaits(500).leftThreads; }));
}

// Each would find out by itself within a second. The thread sanitizer sleeps as long at
// the end of a program, unless it is told not to.
TEST(ArbiterStop, EndsWaitsAtOnce) {
    const std::string options = environment("TSAN_OPTIONS");
    ::setenv("TSAN_OPTIONS", (options + ":atexit_sleep_ms=0").c_str(), 1);
    EXPECT_TRUE(oneTakesLessThan(milliseconds(800), [] { return stopAmongWaits(20).took; }));
    ::setenv("TSAN_OPTIONS", options.c_str(), 1);
}

}  // namespace
}  // namespace IntegrationTests
