#pragma once

#include "runtime/monitor/VornEventMonitor.h"
#include "runtime/monitor/VornEventMonitorManager.h"
#include "runtime/support/VornMutex.h"

#include <functional>
#include <string>
#include <vector>

// What several monitors did, in order. Any thread.
class Journal {
public:
    void write(const std::string& line) {
        VornSupport::VornMutexLock lock(mutex_);
        lines_.push_back(line);
    }
    std::vector<std::string> take() {
        VornSupport::VornMutexLock lock(mutex_);
        return std::exchange(lines_, {});
    }

private:
    VornSupport::VornMutex mutex_;
    std::vector<std::string> lines_ VORN_GUARDED_BY(mutex_);
};

// A monitor whose operations the test gives.
class TestMonitor : public VornMonitor::VornEventMonitor {
public:
    explicit TestMonitor(const std::string& name, Journal* journal = nullptr)
        : VornEventMonitor(name), journal_(journal) {}
    ~TestMonitor() override {
        retire();
        note("end");
    }

    void configure() override {
        note("configure");
        if (onConfigure) onConfigure();
    }
    void add(VornMonitor::VornEventData& event) override {
        note("event " + event.source + " " + event.text);
        event.text = "changed";
        if (onEvent) onEvent();
    }
    using VornEventMonitor::getProperties;
    using VornEventMonitor::requireProperty;
    using VornEventMonitor::retire;

    std::function<bool()> onInitialize;
    std::function<bool()> onCleanup;
    std::function<void()> onConfigure;
    std::function<void()> onEvent;
    std::function<void(VornNet::VornConnection&)> onClient;

protected:
    bool initialize() override {
        note("initialize");
        return !onInitialize || onInitialize();
    }
    bool cleanup() override {
        note("cleanup");
        return !onCleanup || onCleanup();
    }
    void handleClient(VornNet::VornConnection& connection) override {
        if (onClient) {
            onClient(connection);
        } else {
            VornEventMonitor::handleClient(connection);
        }
    }

private:
    void note(const std::string& what) {
        if (journal_ != nullptr) journal_->write(getMonitorName() + " " + what);
    }

    Journal* const journal_;
};

// Sets the grace of the manager for a scope.
class Grace {
public:
    explicit Grace(std::chrono::milliseconds grace) {
        VornMonitor::VornEventMonitorManager::getInstance().setGraceForTest(grace);
    }
    ~Grace() {
        VornMonitor::VornEventMonitorManager::getInstance().setGraceForTest(
            std::chrono::seconds(2));
    }
};
