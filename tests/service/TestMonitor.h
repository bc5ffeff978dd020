#pragma once

#include "runtime/monitor/VornEventMonitor.h"
#include "runtime/net/VornConnection.h"
#include "runtime/support/VornException.h"

#include <atomic>
#include <functional>
#include <string>

namespace ServiceTests {

// A monitor that counts what is done to it and serves clients as it is told.
class TestMonitor : public VornMonitor::VornEventMonitor {
public:
    using Serve = std::function<void(VornNet::VornConnection&)>;

    explicit TestMonitor(const std::string& name, Serve serve = {})
        : VornEventMonitor(name), serve_(std::move(serve)) {}
    ~TestMonitor() override { retire(); }

    void configure() override { ++configured; }
    void add(VornMonitor::VornEventData&) override { ++events; }

    // Before the start: the start fails.
    bool startable = true;
    std::atomic<int> initialized{0};
    std::atomic<int> cleanedUp{0};
    std::atomic<int> configured{0};
    std::atomic<int> events{0};

protected:
    using VornEventMonitor::handleClient;

    bool initialize() override {
        if (startable) ++initialized;
        return startable;
    }
    bool cleanup() override {
        ++cleanedUp;
        return true;
    }
    void handleClient(VornNet::VornConnection& connection) override { serve_(connection); }

private:
    const Serve serve_;
};

// Reads a number and answers with the next one.
inline void answerNext(VornNet::VornConnection& connection) {
    connection.writeInt(connection.readInt() + 1);
}

}  // namespace ServiceTests
