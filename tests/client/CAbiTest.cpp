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

// Brings a listener one delivery and closes the connection.
void sendDelivery(const char* remoteName, std::int32_t handle) {
    const std::string name = remoteName;
    const auto port = static_cast<std::uint16_t>(std::stoi(name.substr(name.rfind(':') + 1)));
    VornPlatform::Socket socket;
    ASSERT_FALSE(VornPlatform::connectTcp(*VornPlatform::SocketAddress::parse("127.0.0.1", port),
                                          socket));
    const std::string bytes = delivery(handle, "me", "disk.failed", std::string("a\0b", 3),
                                       std::string("\0x", 2));
    EXPECT_EQ(VornPlatform::send(socket.handle(), bytes.data(), bytes.size()).count, bytes.size());
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
