#include "tests/client/ScriptedDaemon.h"
#include "tests/client/c_abi_calls.h"

#include <gtest/gtest.h>

using namespace ClientTest;

namespace {

std::string job(std::string_view command, const std::string& arguments) {
    return engineRequest("JobStatus", command, arguments);
}

std::string event(std::string_view command, const std::string& arguments) {
    return engineRequest("Notifier", command, arguments);
}

std::string lock(std::string_view command, const std::string& arguments) {
    return engineRequest("Arbiter", command, arguments);
}

// Brings a listener these bytes and closes the connection.
void sendBytes(const char* remoteName, const std::string& bytes) {
    const std::string name = remoteName;
    const auto port = static_cast<std::uint16_t>(std::stoi(name.substr(name.rfind(':') + 1)));
    VornPlatform::Socket socket;
    ASSERT_FALSE(VornPlatform::connectTcp(*VornPlatform::SocketAddress::parse("127.0.0.1", port),
                                          socket));
    EXPECT_EQ(VornPlatform::send(socket.handle(), bytes.data(), bytes.size()).count, bytes.size());
}

void sendDelivery(const char* remoteName, std::int32_t handle) {
    sendBytes(remoteName, delivery(handle, "me", "disk.failed", std::string("a\0b", 3),
                                   std::string("\0x", 2)));
}

}  // namespace

TEST(CAbi, CallsEveryJobCommand) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        const std::string create = job("RUVO_JS_CREATE", str("at two") + str("backup"));
        peer.serve(create, i32(12));
        peer.serve(create, i32(-1));
        peer.serve(job("RUVO_JS_LOOKUP", str("backup")), i32(3));
        peer.serve(job("RUVO_JS_LOOKUP", str("other")), i32(-1));
        peer.serve(job("RUVO_JS_MAP_JOB", i32(3) + i32(2) + i32(7) + i32(-8)), i32(3));
        peer.serve(job("RUVO_JS_MAP_JOB", i32(3) + i32(0)), i32(3));
        peer.serve(job("RUVO_JS_SET_PROGRESS", i32(3) + i32(50)), i32(3));
        peer.serve(job("RUVO_JS_GET_PROGRESS", i32(3)), i32(50));
        peer.serve(job("RUVO_JS_GET_ALL_PROGRESS", ""), "");
        peer.serve(job("RUVO_JS_CANCEL", i32(3)), i32(3));
        peer.serve(job("RUVO_JS_DELETE", i32(3)), i32(3));
        peer.serve(job("RUVO_JS_DELETE", i32(3)), i32(-1));
        peer.awaitClose();
    });
    EXPECT_EQ(c_calls_jobs(daemon.port()), 0);
}

TEST(CAbi, CallsEveryNotifierCommand) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        const std::string client = str("tcp:127.0.0.1:1") + i32(-5);
        peer.serve(event("RUVO_NN_REGISTER", str("^a") + client), i32(0));
        peer.serve(event("RUVO_NN_NOTIFY", str("me") + str("abc") + str("text") +
                                               str(std::string("\0x", 2))),
                   i32(0));
        peer.serve(event("RUVO_NN_NOTIFY", str("me") + str("") + str("text") + i32(0)), i32(-2));
        peer.serve(event("RUVO_NN_UNREGISTER", client), i32(0));
        peer.serve(event("RUVO_NN_UNREGISTER", client), i32(-3));
        peer.awaitClose();
    });
    EXPECT_EQ(c_calls_notifier(daemon.port()), 0);
}

TEST(CAbi, CallsEveryLockCommand) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.serve(lock("RUVO_RA_LOCK", str("a:b") + i32(0)), i32(17));
        peer.serve(lock("RUVO_RA_LOCK", str("a:b") + i32(250)), i32(0));
        peer.serve(lock("RUVO_RA_LOCK", str("") + i32(-1)), i32(18));
        peer.serve(lock("RUVO_RA_LOCK", str("c") + i32(250)), i32(19));
        peer.serve(lock("RUVO_RA_LOCK", str("c") + i32(0)), i32(0));
        peer.serve(lock("RUVO_RA_UNLOCK", i32(17)), i32(0));
        peer.serve(lock("RUVO_RA_UNLOCK", i32(-1)), i32(0));
        peer.awaitClose();
    });
    EXPECT_EQ(c_calls_locks(daemon.port()), 0);
}

TEST(CAbi, GivesAWaitForALockUp) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(1) + lock("RUVO_RA_LOCK", str("a") + i32(-1)));
        peer.awaitClose();  // of its sending side
        peer.send(i32(0));
    });
    EXPECT_EQ(c_calls_lock_wait_given_up(daemon.port()), 0);
}

TEST(CAbi, SendsBatchesAndReadsEveryKindOfAnswer) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(2) +
                    engineRequest("M", "C",
                                  i32(-2) + str(std::string("a\0b", 3)) + str("") + "raw") +
                    engineRequest("M", "D"));
        peer.send(i32(-7) + str(std::string("x\0y", 3)) + str("") + "end");
        peer.expect(u16(1) + u16(0) + u16(1) + u16(4));
        peer.close();
    });
    EXPECT_EQ(c_calls_batch(daemon.port()), 0);
}

TEST(CAbi, CallsEveryTaskCommand) {
    const auto task = [](std::string_view command, const std::string& arguments) {
        return engineRequest("Scheduler", command, arguments);
    };
    const auto following = [](std::string_view command, const std::string& arguments) {
        return engineRequest("SchedulerFollow", command, arguments);
    };
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        const std::string plan =
            i32(1) + i32(11) + i32(22) + i32(2026) + i32(2) + i32(30) + i32(5);
        const std::string schedule = task(
            "RUVO_TS_SCHEDULE", str("name") + str("prog") + str("") + str("") + plan + str(""));
        const std::string bytes("a\0b", 3);
        const std::string registration = str("tcp:127.0.0.1:1") + i32(3) + i32(17);
        peer.open();
        peer.serve(schedule, i32(17));
        peer.serve(schedule, i32(-11));
        peer.serve(task("RUVO_TS_SCHEDULE_BLOB", str("blob") + i32(3) + bytes + plan), i32(18));
        peer.serve(task("RUVO_TS_SCHEDULED_TASK_LOOKUP", str("name")), i32(17));
        peer.serve(task("RUVO_TS_SCHEDULED_TASK_LOOKUP", str("other")), i32(-9));
        peer.serve(task("RUVO_TS_TASK_STATE", i32(17)), i32(2));
        peer.serve(task("RUVO_TS_EXIT_CODE", i32(17)), i32(-999));
        peer.serve(task("RUVO_TS_GET_NEXT_TIME", i32(17)),
                   i32(0) + str("2026 11 22 02 30 05") + i32(1));
        peer.serve(task("RUVO_TS_EXECUTION_INFO", i32(17) + i32(24)),
                   str("2024-02-29 12:00:00 UTC") + i32(23));
        peer.serve(task("RUVO_TS_RETRIEVE_BLOB", i32(18)), i32(0) + i32(3) + bytes);
        peer.serve(task("RUVO_TS_LIST_EXEC", ""), i32(0) + str("name a%00b  "));
        peer.serve(task("RUVO_TS_LIST_BLOB", ""), i32(0) + str(""));
        peer.serve(following("RUVO_TS_FOLLOW", registration), i32(0));
        peer.serve(following("RUVO_TS_UNFOLLOW", registration), i32(0));
        peer.serve(following("RUVO_TS_LAST_STATUS", i32(17)), i32(0) + i32(7));
        peer.serve(task("RUVO_TS_CANCEL", i32(17)), i32(17));
        peer.serve(task("RUVO_TS_CANCEL", i32(17)), i32(-9));
        peer.awaitClose();
    });
    EXPECT_EQ(c_calls_tasks(daemon.port()), 0);
}

TEST(CAbi, ReceivesTheChangesOfATask) {
    EXPECT_EQ(c_calls_task_listener([](const char* remoteName, std::int32_t handle) {
        sendBytes(remoteName, i32(handle) + i32(12345) + i32(-1) + i32(42));
    }), 0);
}

TEST(CAbi, TellsThatAccessIsRefused) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.expect("RUVO\n");
        peer.close();
    });
    EXPECT_EQ(c_calls_refused(daemon.port()), 0);
}

TEST(CAbi, TellsThatNobodyListens) { EXPECT_EQ(c_calls_unreachable(unusedPort()), 0); }

TEST(CAbi, TellsThatNoAnswerCame) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.awaitClose();
    });
    EXPECT_EQ(c_calls_time_out(daemon.port()), 0);
}

TEST(CAbi, StopsTheDaemon) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(1) + u16(9999));
        peer.close();
    });
    EXPECT_EQ(c_calls_stop(daemon.port()), 0);
}

TEST(CAbi, TalksOverUdp) {
    ScriptedDaemon daemon(
        [](ScriptedPeer& peer) {
            peer.open();
            peer.serve(job("RUVO_JS_LOOKUP", str("a")), i32(3));
            peer.awaitClose();
        },
        ScriptedDaemon::Transport::Udp);
    EXPECT_EQ(c_calls_over_udp(daemon.port()), 0);
}

TEST(CAbi, RefusesNullPointers) { EXPECT_EQ(c_calls_arguments(), 0); }

TEST(CAbi, ListensWakesAndTimesOut) { EXPECT_EQ(c_calls_listener_alone(), 0); }

TEST(CAbi, HandsOutDeliveries) { EXPECT_EQ(c_calls_listener(sendDelivery), 0); }
