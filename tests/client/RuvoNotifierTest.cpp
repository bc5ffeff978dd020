#include "client/RuvoNotifier.h"
#include "tests/client/ScriptedDaemon.h"

#include <gtest/gtest.h>

#include <vector>

using namespace ClientTest;
using Ruvo::RuvoClient;
using Ruvo::RuvoClientError;
using Ruvo::RuvoNotifier;
using Ruvo::RuvoProblem;

namespace {

std::string notifier(std::string_view command, const std::string& arguments) {
    return engineRequest("Notifier", command, arguments);
}

// The code that the daemon's refusal came with; 0 when it said yes.
template <typename Call>
std::int32_t refusalOf(const std::string& request, std::int32_t answer, Call call) {
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        peer.serve(request, i32(answer));
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    RuvoNotifier events(client);
    try {
        call(events);
    } catch (const RuvoClientError& error) {
        EXPECT_EQ(error.problem(), RuvoProblem::Declined);
        EXPECT_STRNE(error.what(), "");
        return error.code();
    }
    return 0;
}

}  // namespace

TEST(RuvoNotifier, RegistersSignatureRemoteNameAndHandle) {
    const std::string request = notifier(
        "RUVO_NN_REGISTER", str("^disk\\.") + str("tcp:127.0.0.1:4711") + i32(-77));
    const auto call = [](RuvoNotifier& events) {
        events.registerFor("^disk\\.", "tcp:127.0.0.1:4711", -77);
    };
    EXPECT_EQ(refusalOf(request, 0, call), 0);
    EXPECT_EQ(refusalOf(request, -2, call), -2);
    EXPECT_EQ(refusalOf(request, -999, call), -999);
}

TEST(RuvoNotifier, UnregistersRemoteNameAndHandle) {
    const std::string request =
        notifier("RUVO_NN_UNREGISTER", str("tcp:127.0.0.1:4711") + i32(5));
    const auto call = [](RuvoNotifier& events) { events.unregister("tcp:127.0.0.1:4711", 5); };
    EXPECT_EQ(refusalOf(request, 0, call), 0);
    EXPECT_EQ(refusalOf(request, -3, call), -3);
}

TEST(RuvoNotifier, NotifiesWithDataBehindItsSize) {
    const std::string data("\0\xff" "d", 3);
    const std::string request = notifier(
        "RUVO_NN_NOTIFY", str("me") + str("disk.failed") + str("bay 3") + i32(3) + data);
    const auto call = [&](RuvoNotifier& events) {
        events.notify("me", "disk.failed", "bay 3", data);
    };
    EXPECT_EQ(refusalOf(request, 0, call), 0);
    EXPECT_EQ(refusalOf(request, -2, call), -2);
}

TEST(RuvoNotifier, NotifiesWithoutData) {
    const std::string request =
        notifier("RUVO_NN_NOTIFY", str("") + str("e") + str("") + i32(0));
    EXPECT_EQ(refusalOf(request, 0, [](RuvoNotifier& events) { events.notify("", "e", ""); }), 0);
}

TEST(RuvoNotifier, MakesABatchOfItsRequests) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(3) + notifier("RUVO_NN_REGISTER", str("a") + str("udp:h:1") + i32(1)) +
                    notifier("RUVO_NN_NOTIFY", str("s") + str("e") + str("m") + str("d")) +
                    notifier("RUVO_NN_UNREGISTER", str("udp:h:1") + i32(1)));
        peer.send(i32(0) + i32(0) + i32(-3));
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    const auto answers = client.call(std::vector{
        RuvoNotifier::registerRequest("a", "udp:h:1", 1),
        RuvoNotifier::notifyRequest("s", "e", "m", "d"),
        RuvoNotifier::unregisterRequest("udp:h:1", 1)});
    EXPECT_EQ(answers, (std::vector<std::int32_t>{0, 0, -3}));
}
