#pragma once

#include "notifier/RuvoNNEngine.h"
#include "runtime/net/VornProxyDependent.h"
#include "runtime/support/VornMutex.h"
#include "runtime/support/VornSmartPointer.h"
#include "scheduler/RuvoTSClock.h"
#include "scheduler/RuvoTSEngine.h"
#include "scheduler/RuvoTSTaskSet.h"
#include "tests/support/FakeConnection.h"
#include "tests/support/TestSupport.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace TestSupport {

// 2024-06-15 12:00:00 UTC.
inline constexpr std::int32_t kNoon = 1'718'452'800;

// The scheduler's clock while it lives. It stands still; whoever moves it has
// what is due by then fired, on other threads. The zone is that of the machine.
class TestClock : public RuvoService::RuvoTSClock {
public:
    explicit TestClock(std::int64_t seconds = kNoon);
    ~TestClock() override;

    std::int64_t wallMs() const override { return wallMs_; }
    std::int64_t elapsedMs() const override { return elapsedMs_; }

    // Time passes.
    void advance(std::int64_t seconds) { move(seconds * 1000, seconds * 1000); }
    void advanceMs(std::int64_t ms) { move(ms, ms); }
    // Somebody sets the wall clock; a machine that slept looks the same.
    void jump(std::int64_t seconds) { move(seconds * 1000, 0); }

private:
    void move(std::int64_t wallMs, std::int64_t elapsedMs);

    std::atomic<std::int64_t> wallMs_;
    std::atomic<std::int64_t> elapsedMs_{1'000'000};
};

// Sets or removes a variable of the environment for a scope.
class Variable {
public:
    Variable(const std::string& name, const std::optional<std::string>& value);
    ~Variable();
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const std::string name_;
    const std::optional<std::string> before_;
};

// A folder of temporary files of our own: the store and batch files go there.
class StoreFolder {
public:
    std::string file(std::string_view name) const { return directory_.file(name); }
    std::string text() const { return directory_.text(); }
    std::string store() const { return file("RuvoTSEngineExecTasks.dat"); }
    std::string fresh() const { return file("RuvoTSEngineExecTasks.tmp"); }
    std::string previous() const { return file("RuvoTSEngineExecTasks.bak"); }
    // The lines of the store, without their ends.
    std::vector<std::string> lines() const;

private:
    TemporaryDirectory directory_;
    Variable temp_{"TEMP", directory_.text()};
};

// A consumer that keeps what it is offered: "VornTSEvent:17 2".
class EventLog : public VornNet::VornProxyDependent {
public:
    EventLog() : VornProxyDependent("test:events", 0) {}
    bool checkEvent(const VornSupport::VornNotification& notification) override;

    std::vector<std::string> events() const VORN_EXCLUDES(mutex_);
    // The states of one task's events, in order.
    std::vector<int> statesOf(std::int32_t handle) const;
    // Waits until these are the states of the task's events.
    bool awaitStates(std::int32_t handle, const std::vector<int>& states) const;

protected:
    void addContent(VornNet::VornConnection&, const VornSupport::VornNotification&) override {}

private:
    mutable VornSupport::VornMutex mutex_;
    std::vector<std::string> events_ VORN_GUARDED_BY(mutex_);
};

// The scheduler's tasks without its engine: an open task set, runs that may
// begin, and afterwards nothing of it left.
class OpenTaskSet {
public:
    OpenTaskSet();
    ~OpenTaskSet();

    RuvoService::RuvoTSTaskSet& set() const { return RuvoService::RuvoTSTaskSet::getInstance(); }
};

// The whole engine, started, with the notification engine behind it and a
// consumer of all events.
class OpenScheduler {
public:
    OpenScheduler();
    ~OpenScheduler();

    RuvoService::RuvoTSEngine& engine() { return *engine_; }
    const EventLog& events() const { return *events_; }
    // Stops the engine and, with another stop() and start(), starts it again.
    void stop() { engine_->stop(); }
    void start() { engine_->start(); }

    // Sends a request to the engine and returns what it wrote.
    static std::vector<std::string> request(FakeConnection& connection,
                                            const std::string& monitor = "Scheduler");
    // The answer of a command that takes a handle read as `unsigned`.
    static std::vector<std::string> ask(const std::string& command, std::int32_t handle);
    // Schedules; the result is the answer.
    static std::int32_t schedule(const std::string& name, const std::string& appName,
                                 const std::string& params, std::int32_t time,
                                 std::uint32_t frequency, const std::string& path = "",
                                 const std::string& logFile = "");
    static std::int32_t scheduleBlob(const std::string& name, const std::string& blob,
                                     std::int32_t time, std::uint32_t frequency);

private:
    std::unique_ptr<RuvoService::RuvoNNEngine> notifier_;
    std::unique_ptr<RuvoService::RuvoTSEngine> engine_;
    VornSupport::VornSmartPointer<EventLog> events_;
};

// The number of an answer "int 7".
std::int32_t numberOf(const std::string& answer);

// Makes "cmd" be found by children, as the engine does in the real service.
void provideCommandInterpreter();

}  // namespace TestSupport
