#include "benchmarks/harness/BlockingSocket.h"
#include "benchmarks/harness/Listeners.h"
#include "benchmarks/harness/PingPong.h"
#include "benchmarks/harness/Placement.h"
#include "benchmarks/harness/Servers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <filesystem>
#include <stdexcept>

namespace RuvoBench {
namespace {

Settings settingsOfThisBuild() {
    const auto own = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    Settings settings;
    settings.bareProgram = (own.parent_path() / "benchmarks" / "ruvobare").string();
    return settings;
}

std::string receive(int socket, std::size_t size) {
    std::string bytes(size, '\0');
    receiveExactly(socket, bytes.data(), size);
    return bytes;
}

bool isQuiet(int socket) {
    char byte;
    return ::recv(socket, &byte, 1, MSG_DONTWAIT | MSG_PEEK) == -1;
}

TEST(BareServer, PingAnswersEveryWholeRequest) {
    const BareServer server(settingsOfThisBuild(), {"ping", "3", "2"});
    const Fd client = connectToLoopback(server.port());
    sendAll(client.get(), "abcde");
    EXPECT_EQ("aa", receive(client.get(), 2));
    EXPECT_TRUE(isQuiet(client.get()));
    sendAll(client.get(), "f");
    EXPECT_EQ("aa", receive(client.get(), 2));
}

TEST(BareServer, PingServesItsClientsAtOnce) {
    const BareServer server(settingsOfThisBuild(), {"ping", "2", "1"});
    const Fd slow = connectToLoopback(server.port());
    sendAll(slow.get(), "a");
    const Fd quick = connectToLoopback(server.port());
    sendAll(quick.get(), "ab");
    EXPECT_EQ("a", receive(quick.get(), 1));
    EXPECT_GT(roundTripRate({quick.get()}, "ab", 1, std::chrono::milliseconds(1)), 0);
    EXPECT_GT(latencyP50(quick.get(), "ab", 1, std::chrono::milliseconds(1)), 0);
}

TEST(BareServer, GreetAdmitsBeforeItAnswers) {
    const BareServer server(settingsOfThisBuild(), {"greet", "1", "1"});
    const Fd client = connectToLoopback(server.port());
    sendAll(client.get(), "RUVO\n");
    EXPECT_EQ("+\r\n", receive(client.get(), 3));
    sendAll(client.get(), "x");
    EXPECT_EQ("a", receive(client.get(), 1));
}

TEST(BareServer, HopAnswersTheClientAndTellsTheListener) {
    Listeners listeners(1);
    const BareServer server(settingsOfThisBuild(), {"hop", "3", "2", "5", listeners.ports()});
    listeners.acceptAll();
    const Fd client = connectToLoopback(server.port());
    sendAll(client.get(), "abc");
    EXPECT_EQ("aa", receive(client.get(), 2));
    EXPECT_EQ("ddddd", receive(listeners.socket(0), 5));
    EXPECT_TRUE(isQuiet(listeners.socket(0)));
}

TEST(BareServer, FanWritesAsManyDeliveriesToEveryListener) {
    Listeners listeners(3);
    const BareServer server(settingsOfThisBuild(), {"fan", "100", listeners.ports()});
    listeners.acceptAll();
    const Fd client = connectToLoopback(server.port());
    for (const std::uint64_t deliveries : {1ULL, 1000ULL}) {
        sendAll(client.get(),
                {reinterpret_cast<const char*>(&deliveries), sizeof deliveries});
        listeners.drain(deliveries * 100);
        for (std::size_t i = 0; i < listeners.size(); ++i) {
            EXPECT_TRUE(isQuiet(listeners.socket(i)));
        }
    }
}

TEST(BareServer, StopsWhenTold) {
    BareServer server(settingsOfThisBuild(), {"ping", "1", "1"});
    EXPECT_GT(server.startMs(), 0);
    EXPECT_GT(residentKiB(server.pid()), 100);
    EXPECT_GE(processorMs(server.pid()), 0);
    EXPECT_GT(processorSeconds(server.pid()), 0);
    EXPECT_GE(server.stop(), 0);
}

TEST(ChildProcess, CountsItsProcessorTimeAlone) {
    const TemporaryFolder folder;
    ChildProcess child({"/bin/sh", "-c", "echo ready; while :; do :; done"}, serverProcessor(),
                       folder.path("errors"));
    EXPECT_EQ("ready", child.readLine());
    EXPECT_EQ(1, threadsOf(child.pid()));
    const double own = ownProcessorSeconds();
    while (processorSeconds(child.pid()) < 0.02) continue;
    EXPECT_GT(ownProcessorSeconds(), own);
    EXPECT_GE(processorMs(child.pid()), 10);
}

TEST(ChildProcess, WithoutAProcessHasNoFigures) {
    constexpr pid_t kNobody = 0x0FFFFFFF;
    EXPECT_THROW(residentKiB(kNobody), std::runtime_error);
    EXPECT_THROW(processorMs(kNobody), std::runtime_error);
    EXPECT_THROW(threadsOf(kNobody), std::runtime_error);
    EXPECT_THROW(processorSeconds(kNobody), std::runtime_error);
}

TEST(BareServer, AnUnknownModeIsAnError) {
    EXPECT_THROW(BareServer(settingsOfThisBuild(), {"pong"}), std::runtime_error);
}

TEST(ChildProcess, ThatFailsIsAnErrorWhenItIsStopped) {
    const TemporaryFolder folder;
    ChildProcess child({"/bin/sh", "-c", "trap 'exit 3' TERM; echo ready; while :; do :; done"},
                       serverProcessor(), folder.path("errors"));
    EXPECT_EQ("ready", child.readLine());
    EXPECT_THROW(child.terminate(), std::runtime_error);
}

TEST(ChildProcess, HandsOutItsOutputLineByLine) {
    const TemporaryFolder folder;
    ChildProcess child({"/bin/sh", "-c", "printf 'a\\nb\\nc'"}, serverProcessor(),
                       folder.path("errors"));
    EXPECT_EQ("a", child.readLine());
    EXPECT_EQ("b", child.readLine());
    EXPECT_THROW(child.readLine(), std::runtime_error);
}

TEST(Daemon, ThatCannotStartSaysWhy) {
    const TemporaryFolder folder;
    Settings settings;
    settings.programs = folder.path("");
    const auto program = folder.path("ruvohost");
    std::filesystem::copy_file("/bin/sh", program);
    // The shell takes "run" for a script and complains that there is none.
    try {
        const Daemon daemon(settings);
        FAIL() << "it started";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), testing::HasSubstr("run"));
        EXPECT_THAT(error.what(), testing::HasSubstr("ended before it was ready"));
    }
}

TEST(TemporaryFolder, IsGoneWithTheObject) {
    std::string path;
    {
        const TemporaryFolder folder;
        path = folder.path("");
        EXPECT_TRUE(std::filesystem::is_directory(path));
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
}  // namespace RuvoBench
