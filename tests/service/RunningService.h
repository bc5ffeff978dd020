#pragma once

#include "tests/service/OpenService.h"
#include "tests/support/TestSupport.h"

#include <atomic>
#include <string>
#include <thread>

namespace ServiceTests {

// A service that runs on a thread of its own, as it does under its host, from
// the moment its monitors are started. Stopped and destroyed at the end.
class RunningService {
public:
    explicit RunningService(const std::string& properties) : service_(properties, "argument") {
        service_.setStartedHandler([this] { started_ = true; });
        host_ = std::thread([this] {
            result_ = service_.run();
            ended_ = true;
        });
        TestSupport::waitUntil([this] { return isStarted() || hasEnded(); });
    }
    ~RunningService() { stop(); }
    RunningService(const RunningService&) = delete;
    RunningService& operator=(const RunningService&) = delete;

    OpenService& operator*() { return service_; }
    OpenService* operator->() { return &service_; }

    bool isStarted() const { return started_; }
    bool hasEnded() const { return ended_; }
    // What run() returned.
    bool stop() {
        service_.stop();
        return join();
    }
    bool join() {
        if (host_.joinable()) host_.join();
        return result_;
    }

private:
    OpenService service_;
    std::atomic<bool> started_{false};
    std::atomic<bool> ended_{false};
    std::atomic<bool> result_{false};
    std::thread host_;
};

}  // namespace ServiceTests
