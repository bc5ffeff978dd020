// "ruvoctl task wait" and "watch" against a daemon that follows a script.

#include "tests/client/RuvoctlTaskRun.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

using namespace ClientTest;

namespace {

std::uint32_t number(std::string_view bytes) {
    std::uint32_t value = 0;
    for (const char c : bytes.substr(0, 4)) value = value << 8 | static_cast<unsigned char>(c);
    return value;
}

// The daemon as a follower sees it.
class FollowedDaemon {
public:
    explicit FollowedDaemon(ScriptedPeer& peer) : peer_(peer) {
        peer_.open();
        peer_.serve(lookup().first, lookup().second);
        peer_.expect(u16(1) + engineRequest("SchedulerFollow", "RUVO_TS_FOLLOW"));
        remoteName_ = peer_.read(number(peer_.read(4)));
        handle_ = static_cast<std::int32_t>(number(peer_.read(4)));
        peer_.expect(i32(5));
        peer_.send(i32(0));
    }

    void tell(std::int32_t state) {
        if (!socket_) connect();
        const std::string bytes = i32(handle_) + i32(12345) + i32(state) + i32(5);
        VornPlatform::send(socket_.handle(), bytes.data(), bytes.size());
    }
    void serve(std::string_view request, std::string_view answer) { peer_.serve(request, answer); }
    void serveState(std::int32_t state) { serve(task("RUVO_TS_TASK_STATE", i32(5)), i32(state)); }
    void serveStatus(std::int32_t status) {
        serve(engineRequest("SchedulerFollow", "RUVO_TS_LAST_STATUS", i32(5)),
              i32(0) + i32(status));
    }
    void takeUnfollowing() {
        serve(engineRequest("SchedulerFollow", "RUVO_TS_UNFOLLOW",
                            str(remoteName_) + i32(handle_) + i32(5)),
              i32(0));
    }

private:
    void connect() {
        const auto port =
            static_cast<std::uint16_t>(std::stoi(remoteName_.substr(remoteName_.rfind(':') + 1)));
        if (VornPlatform::connectTcp(*VornPlatform::SocketAddress::parse("127.0.0.1", port),
                                     socket_)) {
            throw std::runtime_error("cannot reach the follower");
        }
    }

    ScriptedPeer& peer_;
    std::string remoteName_;
    std::int32_t handle_ = 0;
    VornPlatform::Socket socket_;
};

template <typename Script>
Result follow(Script script, Arguments arguments) {
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        FollowedDaemon followed(peer);
        script(followed);
        peer.awaitClose();
    });
    arguments.insert(arguments.begin(), {"--port", std::to_string(daemon.port()), "task"});
    return run(arguments);
}

}  // namespace

TEST(RuvoctlTask, WaitsForTheEndOfARun) {
    const auto script = [](FollowedDaemon& daemon) {
        daemon.serveState(2);
        daemon.tell(0);
        daemon.tell(1);
        daemon.serveStatus(7);
        daemon.takeUnfollowing();
    };
    const Result text = follow(script, {"wait", "backup"});
    EXPECT_EQ(text.status, 7);
    EXPECT_EQ(text.out, "task backup ended with status 7\n");
    EXPECT_EQ(follow(script, {"wait", "backup", "--json"}).out,
              "{\"handle\":5,\"exitCode\":7}\n");
}

TEST(RuvoctlTask, DoesNotWaitForATaskThatHasHadItsOnlyRun) {
    const Result result = follow(
        [](FollowedDaemon& daemon) {
            daemon.serveState(1);
            daemon.serveStatus(256);
            daemon.takeUnfollowing();
        },
        {"wait", "backup"});
    EXPECT_EQ(result.status, 255);  // not 0, although the low byte is
}

namespace {

// "task wait" of a task whose handle is known and that is gone: how the daemon
// answers the question for its status.
Result waitForGone(const std::string& answer, Arguments arguments) {
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(1) + engineRequest("SchedulerFollow", "RUVO_TS_FOLLOW"));
        peer.read(number(peer.read(4)));  // the remote name
        peer.read(4);
        peer.expect(i32(5));
        peer.send(i32(-9));
        peer.serve(engineRequest("SchedulerFollow", "RUVO_TS_LAST_STATUS", i32(5)), answer);
        peer.awaitClose();
    });
    arguments.insert(arguments.begin(), {"--port", std::to_string(daemon.port()), "task", "wait",
                                         "--handle", "5"});
    return run(arguments);
}

}  // namespace

TEST(RuvoctlTask, EndsWithTheStatusOfATaskThatIsGone) {
    const Result text = waitForGone(i32(0) + i32(9), {});
    EXPECT_EQ(text.status, 9) << text.err;
    EXPECT_EQ(text.out, "task 5 ended with status 9\n");
    const Result none = waitForGone(i32(0) + i32(0), {"--json"});
    EXPECT_EQ(none.status, 0) << none.err;
    EXPECT_EQ(none.out, "{\"handle\":5,\"exitCode\":0}\n");
}

TEST(RuvoctlTask, TellsWhereATaskThatIsGoneHasNoStatus) {
    const Result cancelled = waitForGone(i32(0) + i32(-999), {});
    EXPECT_EQ(cancelled.status, 1);
    EXPECT_TRUE(has(cancelled.err, "the task was cancelled before a run had ended"))
        << cancelled.err;
    const Result unknown = waitForGone(i32(-9) + i32(0), {});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_TRUE(has(unknown.err, "there is no task 5")) << unknown.err;
}

TEST(RuvoctlTask, TellsAWaitingOneOfTheCancel) {
    const Result result = follow(
        [](FollowedDaemon& daemon) {
            daemon.serveState(2);
            daemon.tell(-1);
        },
        {"wait", "backup"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");  // or it would be the status of a run
    EXPECT_TRUE(has(result.err, "the task was cancelled")) << result.err;
}

TEST(RuvoctlTask, HearsOfTheEndOfATaskThatIsGoneAlready) {
    const Result result = follow(
        [](FollowedDaemon& daemon) {
            daemon.serveState(-9);
            daemon.tell(1);
            daemon.serveStatus(0);
            daemon.takeUnfollowing();
        },
        {"wait", "backup"});
    EXPECT_EQ(result.status, 0) << result.err;
}

// What a status of 1 means is told by the line.
TEST(RuvoctlTask, SaysThatAStatusIsThatOfTheRun) {
    for (const bool json : {false, true}) {
        const Result result = follow(
            [](FollowedDaemon& daemon) {
                daemon.serveState(2);
                daemon.tell(1);
                daemon.serveStatus(1);
                daemon.takeUnfollowing();
            },
            json ? std::vector<std::string>{"wait", "backup", "--json"}
                 : std::vector<std::string>{"wait", "backup"});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, json ? "{\"handle\":5,\"exitCode\":1}\n"
                                   : "task backup ended with status 1\n");
    }
}

TEST(RuvoctlTask, WaitsNoLongerThanItIsTold) {
    const Result result = follow(
        [](FollowedDaemon& daemon) {
            daemon.serveState(2);
            daemon.takeUnfollowing();
        },
        {"wait", "backup", "--for", "0.05"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(has(result.err, "the time is over")) << result.err;
}

TEST(RuvoctlTask, WatchesATaskToItsEnd) {
    const Result text = follow(
        [](FollowedDaemon& daemon) {
            for (const std::int32_t state : {2, 0, 1, -1}) daemon.tell(state);
        },
        {"watch", "backup"});
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_EQ(text.out, "backup: waiting\nbackup: running\nbackup: ended\nbackup: finished\n");
    const Result counted = follow(
        [](FollowedDaemon& daemon) {
            for (const std::int32_t state : {0, 1, 2}) daemon.tell(state);
            daemon.takeUnfollowing();
        },
        {"watch", "backup", "--count", "2", "--json"});
    EXPECT_EQ(counted.status, 0) << counted.err;
    EXPECT_EQ(counted.out, "{\"task\":\"backup\",\"handle\":5,\"state\":\"running\",\"code\":0}\n"
                           "{\"task\":\"backup\",\"handle\":5,\"state\":\"ended\",\"code\":1}\n");
}

TEST(RuvoctlTask, NoticesThatTheDaemonHasGone) {
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        FollowedDaemon followed(peer);
        followed.tell(0);
        peer.close();
    });
    const Result result =
        run({"--port", std::to_string(daemon.port()), "task", "watch", "backup"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "backup: running\n");
    EXPECT_TRUE(has(result.err, "the daemon has gone")) << result.err;
}

TEST(RuvoctlTask, SaysWhatADaemonWithoutFollowersLacks) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.serve(lookup().first, lookup().second);
        peer.expect(u16(1) + engineRequest("SchedulerFollow", "RUVO_TS_FOLLOW"));
        peer.close();
    });
    const Result result = run({"--port", std::to_string(daemon.port()), "task", "wait", "backup"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(has(result.err, "SchedulerFollow")) << result.err;
}
