#pragma once

#include "runtime/platform/LocalTime.h"
#include "tests/support/DaemonLauncher.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace IntegrationTests {

using namespace TestSupport;

inline constexpr std::int32_t kOnce = 3;
inline constexpr std::int32_t kDaily = 0;
inline constexpr std::int64_t kIn2033 = 2'000'000'000;

// For a run that is due in a second or two: what the daemon reads only after that,
// on a machine that is busy, it runs two minutes later.
inline constexpr std::chrono::seconds kRunPatience{200};

inline std::int64_t now() {
    return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
}

inline WireText ask(std::string_view command) {
    return WireText().shortNumber(1).request("Scheduler", command);
}

inline WireText ask(std::string_view command, std::int32_t task) {
    return ask(command).number(task);
}

inline WireText& addTime(WireText& text, std::int32_t frequency, std::int64_t time) {
    const auto at = VornPlatform::toUtc(time);
    text.number(frequency).number(at.month).number(at.day).number(at.year);
    return text.number(at.hour).number(at.minute).number(at.second);
}

// The daemon keeps its tasks and batch files in a folder of the test's.
class Scheduler : public ::testing::Test {
protected:
    Scheduler() { start(); }

    void start() {
        daemon_.emplace(Daemon::Options{.properties = "ruvod.load-monitors=SchedulerFollow\n",
                                        .udp = true,
                                        .temp = folder_.text()});
        client_.emplace(daemon_->client());
    }
    void stop() {
        client_.reset();
        EXPECT_EQ(daemon_->stop(), 0);
        daemon_.reset();
    }
    // From then on it is asked over UDP.
    void useDatagrams() {
        client_.emplace(WireClient::udp(daemon_->udpPort()));
        client_->open();
        pieceBytes_ = kDatagramBytes;
    }
    WireClient& client() { return *client_; }
    void send(const WireText& text) {
        std::string_view bytes = text.text();
        while (!bytes.empty()) {
            const std::string_view piece = bytes.substr(0, pieceBytes_);
            client().send(piece);
            bytes.remove_prefix(piece.size());
        }
    }
    Daemon& daemon() { return *daemon_; }

    std::int32_t schedule(const std::string& name, const std::string& program,
                          const std::string& params, std::int64_t time, std::int32_t frequency,
                          const std::string& log = "") {
        WireText request =
            ask("RUVO_TS_SCHEDULE").string(name).string(program).string("").string(params);
        addTime(request, frequency, time).string(log);
        send(request);
        return client().readNumber();
    }
    std::int32_t scheduleBlob(const std::string& name, const std::string& bytes, std::int64_t time,
                              std::int32_t frequency) {
        WireText request = ask("RUVO_TS_SCHEDULE_BLOB")
                               .string(name)
                               .number(static_cast<std::int64_t>(bytes.size()));
        request.bytes(bytes);
        send(addTime(request, frequency, time));
        return client().readNumber();
    }
    std::int32_t number(const WireText& request) {
        send(request);
        return client().readNumber();
    }
    std::int32_t lookup(const std::string& name) {
        return number(ask("RUVO_TS_SCHEDULED_TASK_LOOKUP").string(name));
    }
    std::int32_t state(std::int32_t task) { return number(ask("RUVO_TS_TASK_STATE", task)); }
    std::int32_t exitCode(std::int32_t task) { return number(ask("RUVO_TS_EXIT_CODE", task)); }
    std::string list() {
        EXPECT_EQ(number(ask("RUVO_TS_LIST_EXEC")), 0);
        return client().readString();
    }
    std::string listBlobs() {
        EXPECT_EQ(number(ask("RUVO_TS_LIST_BLOB")), 0);
        return client().readString();
    }
    std::string retrieve(std::int32_t task) {
        EXPECT_EQ(number(ask("RUVO_TS_RETRIEVE_BLOB", task)), 0);
        return client().read(static_cast<std::uint32_t>(client().readNumber()));
    }
    std::string lastRun(std::int32_t task) {
        send(ask("RUVO_TS_EXECUTION_INFO", task).number(24));
        std::string text = client().readString();
        EXPECT_EQ(client().readNumber(), static_cast<std::int32_t>(text.size()));
        return text;
    }
    // The code behind the empty text that is the answer where there is none.
    std::int32_t noLastRun(std::int32_t task, std::int32_t room) {
        send(ask("RUVO_TS_EXECUTION_INFO", task).number(room));
        EXPECT_EQ(client().readString(), "");
        return client().readNumber();
    }
    std::string nextTime(std::int32_t task, std::int32_t frequency) {
        EXPECT_EQ(number(ask("RUVO_TS_GET_NEXT_TIME", task)), 0);
        std::string text = client().readString();
        EXPECT_EQ(client().readNumber(), frequency);
        return text;
    }
    std::string file(std::string_view name) const { return folder_.file(name); }

private:
    static constexpr std::size_t kDatagramBytes = 512;

    const TemporaryDirectory folder_;
    std::size_t pieceBytes_ = std::string::npos;
    std::optional<Daemon> daemon_;
    std::optional<WireClient> client_;
};

}  // namespace IntegrationTests
