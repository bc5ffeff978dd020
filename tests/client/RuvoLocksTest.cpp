#include "client/RuvoLocks.h"

#include "tests/client/ScriptedDaemon.h"

#include <gtest/gtest.h>

#include <future>
#include <limits>
#include <vector>

using namespace ClientTest;
using Ruvo::RuvoClient;
using Ruvo::RuvoClientError;
using Ruvo::RuvoClientOptions;
using Ruvo::RuvoLocks;
using Ruvo::RuvoProblem;
using std::chrono::milliseconds;

namespace {

using Transport = ScriptedDaemon::Transport;

std::string lockRequest(std::string_view path, std::int64_t wait) {
    return engineRequest("Arbiter", "RUVO_RA_LOCK", str(path) + i32(wait));
}

std::string unlockRequest(std::int64_t handle) {
    return engineRequest("Arbiter", "RUVO_RA_UNLOCK", i32(handle));
}

// Takes a lock request that the client then gives up, and answers it when it has.
ScriptedDaemon::Script answerTooLate(const std::string& request, const std::string& answer) {
    return [=](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(1) + request);
        peer.awaitClose();  // of its sending side
        if (answer.empty()) {
            peer.close();
        } else {
            peer.send(answer);
        }
    };
}

ScriptedDaemon::Script takeUnlock(std::int64_t handle) {
    return [=](ScriptedPeer& peer) {
        peer.open();
        peer.serve(unlockRequest(handle), i32(0));
        peer.awaitClose();
    };
}

bool no() { return false; }

// What a call throws; Internal, with a failure of the test, when it does not.
template <typename Call>
RuvoClientError thrownBy(Call call) {
    try {
        call();
    } catch (const RuvoClientError& error) {
        return error;
    }
    ADD_FAILURE() << "nothing was thrown";
    return RuvoClientError(RuvoProblem::Internal, "");
}

}  // namespace

TEST(RuvoLocks, LocksAndUnlocks) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.serve(lockRequest("store:shelf,3", 0), i32(1));
        peer.serve(lockRequest(std::string("\xff\0", 2), 5000), i32(2147483647));
        peer.serve(unlockRequest(1), i32(0));
        peer.serve(unlockRequest(-5), i32(0));
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    RuvoLocks locks(client);
    EXPECT_EQ(locks.lock("store:shelf,3"), 1);
    EXPECT_EQ(locks.lock(std::string("\xff\0", 2), milliseconds(5000)), 2147483647);
    locks.unlock(1);
    locks.unlock(-5);
}

TEST(RuvoLocks, SaysThatSomebodyElseHoldsItAndGoesOn) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.serve(lockRequest("a", 0), i32(0));
        peer.serve(lockRequest("a", 10), i32(0));
        peer.serve(lockRequest("b", 0), i32(3));
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    RuvoLocks locks(client);
    EXPECT_EQ(locks.lock("a"), std::nullopt);
    EXPECT_EQ(locks.lock("a", milliseconds(10)), std::nullopt);
    EXPECT_TRUE(client.isOpen());
    EXPECT_EQ(locks.lock("b"), 3);
}

TEST(RuvoLocks, WritesWaitsAsTheDaemonReadsThem) {
    const std::vector<std::pair<milliseconds, std::int64_t>> waits = {
        {milliseconds(0), 0},
        {milliseconds(1), 1},
        {milliseconds(2147483647), 2147483647},
        {milliseconds(2147483648), 2147483647},
        {milliseconds::max(), 2147483647},
        {RuvoLocks::kForever, -1},
        {milliseconds(-7), -1},
        {milliseconds::min(), -1}};
    for (const auto& [wait, sent] : waits) {
        EXPECT_EQ(RuvoLocks::lockRequest("p", wait).bytes(), lockRequest("p", sent));
    }
    EXPECT_EQ(RuvoLocks::unlockRequest(8).bytes(), unlockRequest(8));
}

TEST(RuvoLocks, WaitsLongerThanForOtherAnswers) {
    for (const std::int64_t wait :
         {std::int64_t{60000}, std::int64_t{-1}, std::int64_t{2147483647}}) {
        std::promise<void> waited;
        ScriptedDaemon daemon([&](ScriptedPeer& peer) {
            peer.open();
            peer.expect(u16(1) + lockRequest("a", wait));
            waited.get_future().wait();
            peer.send(i32(9));
            peer.awaitClose();
        });
        RuvoClientOptions options = daemon.options();
        options.timeout = milliseconds(1);
        RuvoClient client(options);
        int asked = 0;
        const auto handle = RuvoLocks(client).lock("a", milliseconds(wait), [&] {
            if (++asked == 2) waited.set_value();
            return true;
        });
        EXPECT_EQ(handle, 9);
        EXPECT_GE(asked, 2);
    }
}

TEST(RuvoLocks, LeavesNothingLockedWhenTheWaitIsGivenUp) {
    for (const std::string& answer : {i32(0), std::string()}) {
        ScriptedDaemon daemon(answerTooLate(lockRequest("a", -1), answer));
        RuvoClient client(daemon.options());
        EXPECT_EQ(RuvoLocks(client).lock("a", RuvoLocks::kForever, no), std::nullopt);
        EXPECT_FALSE(client.isOpen());
    }
}

TEST(RuvoLocks, UnlocksWhatWasGrantedWhileTheWaitWasGivenUp) {
    for (const Transport transport : {Transport::Tcp, Transport::Udp}) {
        ScriptedDaemon daemon(
            std::vector{answerTooLate(lockRequest("a", 5000), i32(7)), takeUnlock(7)}, transport);
        RuvoClient client(daemon.options());
        EXPECT_EQ(RuvoLocks(client).lock("a", milliseconds(5000), no), std::nullopt);
        EXPECT_FALSE(client.isOpen());
    }
}

TEST(RuvoLocks, LeavesNothingLockedWhenTheQuestionThrows) {
    ScriptedDaemon daemon(
        std::vector{answerTooLate(lockRequest("a", 5000), i32(7)), takeUnlock(7)});
    RuvoClient client(daemon.options());
    const auto fail = []() -> bool { throw std::length_error("whatever"); };
    EXPECT_THROW(RuvoLocks(client).lock("a", milliseconds(5000), fail), std::length_error);
    EXPECT_FALSE(client.isOpen());
}

// As a question does that another conversation is to answer.
TEST(RuvoLocks, LeavesNothingLockedWhenTheQuestionThrowsAnErrorOfAConversation) {
    ScriptedDaemon daemon(
        std::vector{answerTooLate(lockRequest("a", 5000), i32(7)), takeUnlock(7)});
    RuvoClient client(daemon.options());
    const auto fail = []() -> bool { throw RuvoClientError(RuvoProblem::Closed, "another's", 5); };
    const RuvoClientError error =
        thrownBy([&] { RuvoLocks(client).lock("a", milliseconds(5000), fail); });
    EXPECT_EQ(error.problem(), RuvoProblem::Closed);
    EXPECT_STREQ(error.what(), "another's");
    EXPECT_EQ(error.code(), 5);
    EXPECT_FALSE(client.isOpen());
}

TEST(RuvoLocks, TellsWhichLockItCouldNotUndo) {
    ScriptedDaemon daemon(std::vector<ScriptedDaemon::Script>{
        answerTooLate(lockRequest("a", 5000), i32(7)), [](ScriptedPeer& peer) {
            peer.expect("RUVO\n");
            peer.close();
        }});
    RuvoClient client(daemon.options());
    const RuvoClientError error =
        thrownBy([&] { RuvoLocks(client).lock("a", milliseconds(5000), no); });
    EXPECT_EQ(error.problem(), RuvoProblem::AccessRefused);
    EXPECT_NE(std::string(error.what()).find("handle 7 could not be unlocked"), std::string::npos)
        << error.what();
}

TEST(RuvoLocks, TellsWhenNobodyKnowsWhetherTheLockWasGranted) {
    std::promise<void> done;
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(1) + lockRequest("a", -1));
        done.get_future().wait();  // a daemon that hangs
    });
    RuvoClient client(daemon.options());
    const RuvoClientError error =
        thrownBy([&] { RuvoLocks(client).lock("a", RuvoLocks::kForever, no); });
    done.set_value();
    EXPECT_EQ(error.problem(), RuvoProblem::TimedOut);
    EXPECT_NE(std::string(error.what()).find("may have granted"), std::string::npos);
    EXPECT_FALSE(client.isOpen());
}

TEST(RuvoLocks, GivesUpWhenTheDaemonBeginsTheWaitAnewTooOften) {
    ScriptedDaemon daemon(std::vector{answerTooLate(lockRequest("a", 20), i32(7)), takeUnlock(7)});
    RuvoClientOptions options = daemon.options();
    options.timeout = milliseconds(300);
    RuvoClient client(options);
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(RuvoLocks(client).lock("a", milliseconds(20)), std::nullopt);
    EXPECT_GE(std::chrono::steady_clock::now() - begun, milliseconds(320));
    EXPECT_FALSE(client.isOpen());
}

TEST(RuvoLocks, WaitsWithoutALimitOfTheConversation) {
    std::promise<void> waited;
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(1) + lockRequest("a", 1));
        waited.get_future().wait();
        peer.send(i32(4));
        peer.awaitClose();
    });
    RuvoClientOptions options = daemon.options();
    options.timeout = milliseconds(0);
    RuvoClient client(options);
    int asked = 0;
    const auto goesOn = [&] {
        if (++asked == 2) waited.set_value();
        return true;
    };
    EXPECT_EQ(RuvoLocks(client).lock("a", milliseconds(1), goesOn), 4);
}

TEST(RuvoLocks, TellsThatTheDaemonHasGoneDuringTheWait) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(1) + lockRequest("a", -1));
        peer.close();
    });
    RuvoClient client(daemon.options());
    const RuvoClientError error =
        thrownBy([&] { RuvoLocks(client).lock("a", RuvoLocks::kForever); });
    EXPECT_EQ(error.problem(), RuvoProblem::Closed);
}

TEST(RuvoLocks, TellsThatTheDaemonHasNoLocks) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.serve(lockRequest("a", 0), i32(-999));
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    const RuvoClientError error = thrownBy([&] { RuvoLocks(client).lock("a"); });
    EXPECT_EQ(error.problem(), RuvoProblem::Declined);
    EXPECT_EQ(error.code(), -999);
    EXPECT_FALSE(client.isOpen());  // it takes the path for what comes next
}

TEST(RuvoLocks, TakesOtherNumbersForNoHandle) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.serve(lockRequest("a", 0), i32(-1));
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    EXPECT_EQ(RuvoLocks(client).lock("a"), std::nullopt);
}

TEST(RuvoLocks, GivesSignsOfLifeDuringAWaitOverUdp) {
    ScriptedDaemon daemon(
        [](ScriptedPeer& peer) {
            peer.open();
            peer.expect(u16(1) + lockRequest("a", -1));
            for (int i = 0; i < 3; ++i) peer.expect(u16(1) + u16(0));
            peer.send(i32(6));
            peer.awaitClose();
        },
        Transport::Udp);
    RuvoClientOptions options = daemon.options();
    options.signOfLife = milliseconds(1);
    RuvoClient client(options);
    EXPECT_EQ(RuvoLocks(client).lock("a", RuvoLocks::kForever), 6);
}

TEST(RuvoLocks, SendsNoSignsOfLifeOverTcp) {
    std::promise<void> waited;
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(1) + lockRequest("a", -1));
        waited.get_future().wait();
        peer.send(i32(6));
        peer.serve(unlockRequest(6), i32(0));  // nothing else came before
        peer.awaitClose();
    });
    RuvoClientOptions options = daemon.options();
    options.signOfLife = milliseconds(1);
    RuvoClient client(options);
    RuvoLocks locks(client);
    int asked = 0;
    const auto goesOn = [&] {
        if (++asked == 3) waited.set_value();
        return true;
    };
    EXPECT_EQ(locks.lock("a", RuvoLocks::kForever, goesOn), 6);
    locks.unlock(6);
}
