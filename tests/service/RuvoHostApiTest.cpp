#include "service/RuvoHostApi.h"

#include "runtime/platform/Socket.h"
#include "runtime/support/VornThread.h"
#include "service/RuvoService.h"
#include "tests/service/OpenService.h"
#include "tests/support/TestListener.h"
#include "tests/support/TestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <regex>
#include <string>
#include <thread>
#include <vector>

extern "C" const RuvoHostApi* ruvoHostApi();

namespace ServiceTests {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using TestSupport::waitUntil;

const RuvoHostApi& api() { return *ruvoHostApi(); }

// The module as its host drives it, on a thread.
class Hosted {
public:
    explicit Hosted(const std::string& properties) {
        created = api().create(properties.c_str(), "", error, sizeof error);
        if (created != 0) return;
        thread_ = std::thread([this] {
            result = api().run(&Hosted::onStarted, this, error, sizeof error);
            ended = true;
        });
        waitUntil([this] { return started || ended; });
    }
    ~Hosted() { stop(); }

    void stop() {
        if (created == 0) api().stop();
        join();
    }
    void join() {
        if (thread_.joinable()) thread_.join();
        if (created == 0) destroyed = api().destroy(20000);
        created = -1;
    }

    int created = -1;
    int destroyed = -1;
    std::atomic<int> result{-1};
    std::atomic<bool> started{false};
    std::atomic<bool> ended{false};
    char error[256] = "";

private:
    static void onStarted(void* context) { static_cast<Hosted*>(context)->started = true; }

    std::thread thread_;
};

std::string addresses() {
    char text[1000];
    api().addresses(text, sizeof text);
    return text;
}

// The test library's own expressions are simpler ones on Windows.
::testing::AssertionResult matches(const std::string& text, const char* pattern) {
    if (std::regex_match(text, std::regex(pattern))) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << text;
}

TEST(RuvoHostApi, StatesItsVersion) {
    EXPECT_EQ(api().version, RUVO_HOST_API_VERSION);
    EXPECT_TRUE(matches(api().moduleVersion, "[0-9]+\\.[0-9]+\\.[0-9]+"));
}

TEST(RuvoHostApi, RunsTheDaemonFromCreateToDestroy) {
    const Place place("ruvod.tcp-server.port=0\nruvod.udp-server.port=0\n");
    Hosted daemon(place.properties());
    ASSERT_EQ(daemon.created, 0) << daemon.error;
    ASSERT_TRUE(daemon.started);
    EXPECT_TRUE(matches(addresses(), "tcp:[^\n]*:[0-9]+\nudp:[^\n]*:[0-9]+\n"));
    daemon.stop();
    EXPECT_EQ(daemon.result, 0) << daemon.error;
    EXPECT_EQ(daemon.destroyed, 0);
    EXPECT_EQ(VornSupport::VornThread::liveCount(), 0);
    EXPECT_EQ(addresses(), "");
}

TEST(RuvoHostApi, TellsWhenThreadsAreLeftAtTheEnd) {
    class Left : public VornSupport::VornThread {
    public:
        Left() : VornThread("Left") {}
        VornSupport::VornEvent end{true};

    protected:
        int run() override {
            end.wait();
            return 0;
        }
    };
    const Place place("ruvod.tcp-server.port=0\n");
    Left left;
    ASSERT_TRUE(left.start());
    char error[256] = "";
    ASSERT_EQ(api().create(place.properties().c_str(), "", error, sizeof error), 0) << error;
    EXPECT_EQ(api().destroy(1), 1);
    EXPECT_TRUE(place.logged(2, "RuvoHostApi::destroy: threads still running: 1"));
    left.end.set();
    left.waitForThreadExit();
    EXPECT_TRUE(VornSupport::VornThread::waitForLiveCount(0, 60000));
}

TEST(RuvoHostApi, CanBeDoneAgain) {
    const Place place("ruvod.tcp-server.port=0\n");
    for (int i = 0; i < 3; ++i) {
        Hosted daemon(place.properties());
        EXPECT_TRUE(daemon.started);
    }
}

TEST(RuvoHostApi, CutsTextsToTheirBuffers) {
    const Place place("ruvod.tcp-server.port=0\n");
    const Hosted daemon(place.properties());
    char text[6] = "#####";
    api().addresses(text, 5);
    EXPECT_STREQ(text, "tcp:");
    EXPECT_EQ(text[5], '\0');
    api().addresses(nullptr, 0);
}

TEST(RuvoHostApi, TellsWhyItCannotMakeTheService) {
    const Place place;
    const std::string missing = place.file("missing");
    char error[300] = "";
    EXPECT_EQ(api().create(missing.c_str(), "", error, sizeof error), 1);
    EXPECT_THAT(error, HasSubstr("couldn't open file " + missing));
    // Nothing is left over that the next attempt would stumble on.
    const Hosted daemon(place.properties());
    EXPECT_TRUE(daemon.started);
}

TEST(RuvoHostApi, TellsWhyItCannotStartTheService) {
    const Place place;
    TestSupport::writeFile(place.properties(), "logging.target=0\n");
    Hosted daemon(place.properties());
    daemon.join();
    EXPECT_FALSE(daemon.started);
    EXPECT_EQ(daemon.result, 1);
    EXPECT_STREQ(daemon.error, "property not found: ruvod.operating-directory");
    EXPECT_EQ(daemon.destroyed, 0);
}

TEST(RuvoHostApi, HasOneServiceAtATime) {
    const Place place;
    const Hosted daemon(place.properties());
    char error[100] = "";
    EXPECT_EQ(api().create(place.properties().c_str(), "", error, sizeof error), 1);
    EXPECT_STREQ(error, "there is a service already");
}

TEST(RuvoHostApi, RunsNothingBeforeCreate) {
    char error[100] = "";
    EXPECT_EQ(api().run(nullptr, nullptr, error, sizeof error), 1);
    EXPECT_STREQ(error, "there is no service");
}

TEST(RuvoHostApi, KeepsAStopThatComesEarly) {
    const Place place;
    api().stop();
    Hosted daemon(place.properties());
    EXPECT_TRUE(waitUntil([&] { return daemon.ended.load(); }));
    EXPECT_EQ(daemon.result, 0);
    daemon.join();
    // Once: the next service runs.
    const Hosted next(place.properties());
    EXPECT_TRUE(next.started);
    EXPECT_FALSE(next.ended);
}

TEST(RuvoHostApi, ReloadsTheRunningService) {
    const Place place;
    api().reload();
    const Hosted daemon(place.properties());
    ASSERT_TRUE(daemon.started);
    api().reload();
    EXPECT_TRUE(waitUntil([&] {
        return place.logged(
            3, "RuvoService::reloadProperties: " + place.properties() + " was read again");
    }));
}

TEST(RuvoHostApi, StopsAndReloadsNobodyAfterDestroy) {
    const Place place;
    {
        const Hosted daemon(place.properties());
        EXPECT_TRUE(daemon.started);
    }
    api().reload();
    api().stop();
    // That stop is for whoever comes next.
    Hosted next(place.properties());
    EXPECT_TRUE(waitUntil([&] { return next.ended.load(); }));
}

TEST(RuvoHostApi, BreaksTheConnectionsOfQuietClientsWhenItStops) {
    const Place place("ruvod.tcp-server.port=0\nruvod.local-access=any\n");
    Hosted daemon(place.properties());
    ASSERT_TRUE(daemon.started);
    const std::string address = addresses();
    const auto port = std::stoi(address.substr(address.rfind(':') + 1));
    std::vector<VornPlatform::Socket> clients(20);
    for (auto& client : clients) {
        const auto peer = VornPlatform::SocketAddress::parse("127.0.0.1",
                                                             static_cast<std::uint16_t>(port));
        ASSERT_FALSE(VornPlatform::connectTcp(*peer, client));
        VornPlatform::send(client.handle(), "RUVO\n", 5);
        ASSERT_EQ(TestSupport::readBytes(client, 3), "+\r\n");
    }
    daemon.stop();
    EXPECT_EQ(daemon.destroyed, 0) << "somebody still waits for a client";
    for (auto& client : clients) EXPECT_EQ(TestSupport::readBytes(client, 1), "");
}

TEST(RuvoHostApi, ChecksAFileAndStartsNothing) {
    const Place place("ruvod.wrong=1\nlogging.level=99\n");
    std::vector<std::string> lines;
    const auto found = [](void* context, const char* line) {
        static_cast<std::vector<std::string>*>(context)->push_back(line);
    };
    EXPECT_EQ(api().check(place.properties().c_str(), found, &lines), 3);
    EXPECT_EQ(lines.size(), 3u);
    lines.clear();
    place.write("");
    EXPECT_EQ(api().check(place.properties().c_str(), found, &lines), 0);
    EXPECT_THAT(lines, IsEmpty());
    EXPECT_EQ(api().check(place.file("missing").c_str(), found, &lines), 1);
    EXPECT_THAT(lines, ElementsAre(place.file("missing") + ": the file cannot be read"));
    EXPECT_FALSE(TestSupport::exists(place.file("ruvod.log")));
}

}  // namespace
}  // namespace ServiceTests
