#include "tests/scheduler/SchedulerTestTools.h"

#include "notifier/RuvoNNEventNotification.h"
#include "runtime/monitor/VornEventMonitorManager.h"
#include "runtime/net/VornProxyDependentContainer.h"
#include "runtime/platform/BatchCommand.h"
#include "runtime/platform/Environment.h"
#include "runtime/platform/LocalTime.h"
#include "scheduler/RuvoTSRuns.h"
#include "scheduler/RuvoTSTime.h"
#include "scheduler/RuvoTSTimeKeeper.h"

#include <cstring>
#include <sstream>
#include <stdexcept>

namespace TestSupport {

using namespace RuvoService;
using VornNet::VornProxyDependentContainer;

// ---- the clock -------------------------------------------------------------------

TestClock::TestClock(std::int64_t seconds) : wallMs_(seconds * 1000) {
    RuvoTSClock::setCurrentForTest(this);
    setUtcOffset(utcOffsetMinutes());
}

TestClock::~TestClock() { RuvoTSClock::setCurrentForTest(nullptr); }

void TestClock::move(std::int64_t wallMs, std::int64_t elapsedMs) {
    wallMs_ += wallMs;
    elapsedMs_ += elapsedMs;
    RuvoTSTimeKeeper::getInstance().look();
}

// ---- surroundings ----------------------------------------------------------------

Variable::Variable(const std::string& name, const std::optional<std::string>& value)
    : name_(name), before_(VornPlatform::getEnv(name)) {
    VornPlatform::setEnv(name_, value);
}

Variable::~Variable() { VornPlatform::setEnv(name_, before_); }

std::vector<std::string> StoreFolder::lines() const {
    std::vector<std::string> lines;
    std::istringstream text(readFile(store()));
    for (std::string line; std::getline(text, line);) {
        if (line.ends_with('\r')) line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

void provideCommandInterpreter() {
    const auto bin = VornPlatform::getEnv("RUVO_BIN");
    const std::string folder =
        bin ? *bin : toText(toPath(VornPlatform::executableFolder()).parent_path() / "bin");
    if (!VornPlatform::provideInterpreter(folder)) {
        throw std::runtime_error("no cmd in " + folder);
    }
}

// ---- events ----------------------------------------------------------------------

bool EventLog::checkEvent(const VornSupport::VornNotification& notification) {
    const auto* const event = RuvoNNEventNotification::from(notification);
    if (event == nullptr) return false;
    std::int32_t state = 0;
    if (event->getSender() != "udp:127.0.0.1" || event->getDataSize() != sizeof state ||
        event->getEventName() != "VornTSEvent:" + std::string(event->getMessage())) {
        throw std::runtime_error("not an event of a task");
    }
    std::memcpy(&state, event->getData(), sizeof state);
    VornSupport::VornMutexLock lock(mutex_);
    events_.push_back(std::string(event->getEventName()) + ' ' + std::to_string(state));
    return false;
}

std::vector<std::string> EventLog::events() const {
    VornSupport::VornMutexLock lock(mutex_);
    return events_;
}

std::vector<int> EventLog::statesOf(std::int32_t handle) const {
    const std::string begin = "VornTSEvent:" + std::to_string(handle) + ' ';
    std::vector<int> states;
    for (const std::string& event : events()) {
        if (event.starts_with(begin)) states.push_back(std::stoi(event.substr(begin.size())));
    }
    return states;
}

bool EventLog::awaitStates(std::int32_t handle, const std::vector<int>& states) const {
    return waitUntil([&] { return statesOf(handle) == states; });
}

// ---- the set and the engine ------------------------------------------------------

OpenTaskSet::OpenTaskSet() {
    RuvoTSRuns::getInstance().open();
    set().open([] { return true; });
}

OpenTaskSet::~OpenTaskSet() {
    const auto tasks = set().release();
    for (const auto& task : tasks) task->retire();
    RuvoTSRuns::getInstance().stop(20'000);
    for (const auto& task : tasks) task->removeMyProxyDependents();
    RuvoTSTimeKeeper::getInstance().forgetAllForTest();  // of tasks outside the set
}

OpenScheduler::OpenScheduler()
    : notifier_((provideCommandInterpreter(), std::make_unique<RuvoNNEngine>())),
      engine_(std::make_unique<RuvoTSEngine>(notifier_.get())),
      events_(VornSupport::makeCounted<EventLog>()) {
    VornProxyDependentContainer::getInstance().add(events_);
    notifier_->start();
    engine_->start();
}

OpenScheduler::~OpenScheduler() {
    engine_->stop();
    engine_.reset();
    notifier_->stop();
    notifier_.reset();
    VornProxyDependentContainer::getInstance().remove(*events_);
}

std::vector<std::string> OpenScheduler::request(FakeConnection& connection,
                                                const std::string& monitor) {
    VornMonitor::VornEventMonitorManager::getInstance().handleClient(monitor, connection);
    return connection.written();
}

std::vector<std::string> OpenScheduler::ask(const std::string& command, std::int32_t handle) {
    FakeConnection connection;
    connection.sendString(command).sendInt(handle);
    return request(connection);
}

std::int32_t OpenScheduler::schedule(const std::string& name, const std::string& appName,
                                     const std::string& params, std::int32_t time,
                                     std::uint32_t frequency, const std::string& path,
                                     const std::string& logFile) {
    const auto at = VornPlatform::toUtc(time);
    FakeConnection connection;
    connection.sendString("RUVO_TS_SCHEDULE").sendString(name).sendString(appName);
    connection.sendString(path).sendString(params).sendUnsigned(frequency);
    connection.sendInt(at.month).sendInt(at.day).sendInt(at.year);
    connection.sendInt(at.hour).sendInt(at.minute).sendInt(at.second).sendString(logFile);
    return numberOf(request(connection).at(0));
}

std::int32_t OpenScheduler::scheduleBlob(const std::string& name, const std::string& blob,
                                         std::int32_t time, std::uint32_t frequency) {
    const auto at = VornPlatform::toUtc(time);
    FakeConnection connection;
    connection.sendString("RUVO_TS_SCHEDULE_BLOB").sendString(name);
    connection.sendInt(static_cast<int>(blob.size())).sendBytes(blob).sendUnsigned(frequency);
    connection.sendInt(at.month).sendInt(at.day).sendInt(at.year);
    connection.sendInt(at.hour).sendInt(at.minute).sendInt(at.second);
    return numberOf(request(connection).at(0));
}

std::int32_t numberOf(const std::string& answer) {
    if (!answer.starts_with("int ")) throw std::runtime_error("no number: " + answer);
    return std::stoi(answer.substr(4));
}

}  // namespace TestSupport
