#pragma once

#include "arbiter/RuvoRAEngine.h"
#include "notifier/RuvoNNEngine.h"
#include "runtime/support/VornException.h"
#include "tests/notifier/RecordingDependent.h"
#include "tests/support/FakeConnection.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace ArbiterTest {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kForever = -1;
constexpr int kLong = 60'000;  // longer than any test waits
// For what must not happen: how long it is waited for.
constexpr milliseconds kWrongly{50};

class Notifier : public RuvoService::RuvoNNEngine {
public:
    using RuvoNNEngine::cleanup;
    using RuvoNNEngine::initialize;
};

class Engine : public RuvoService::RuvoRAEngine {
public:
    using RuvoRAEngine::cleanup;
    using RuvoRAEngine::handleClient;
    using RuvoRAEngine::initialize;
    using RuvoRAEngine::retire;
    using RuvoRAEngine::RuvoRAEngine;

    std::int32_t lock(std::string_view path, int waitMs = 0,
                      VornNet::VornConnection* client = nullptr) {
        return RuvoRAEngine::lock(path, waitMs, client);
    }
    bool isLocked(std::string_view path) { return getNode(path)->isLocked(); }
    std::string nameOf(std::string_view path) { return std::string(getNode(path)->getNodeName()); }
};

// A client that stays while nothing more of its script comes, and whose looks
// and flushes a test can use as moments within a wait.
class Client : public TestSupport::FakeConnection {
public:
    Client() { waitForMore(); }

    void flush() override {
        FakeConnection::flush();
        if (onFlush) onFlush();
    }
    bool isPeerGone() override {
        const bool isGone = gone || FakeConnection::isPeerGone();
        if (onLook) onLook();
        return isGone;
    }

    std::atomic<bool> gone{false};
    std::function<void()> onFlush;  // before a wait, and with a handle
    std::function<void()> onLook;   // when it is looked whether the client is there
};

// A lock command on a thread of its own.
class Waiter {
public:
    Waiter(Engine& engine, const std::string& path, int waitMs)
        : thread_([this, &engine, path, waitMs] {
              client.sendString("RUVO_RA_LOCK").sendString(path).sendInt(waitMs);
              try {
                  engine.handleClient(static_cast<VornNet::VornConnection&>(client));
              } catch (const VornSupport::VornException&) {
                  // Its connection was broken off.
              }
              elapsed_ = Clock::now() - begun_;
              ended_ = true;
          }) {}

    // It has found the node locked and waits, or is about to, for the n-th time.
    bool awaitWait(int n = 1) {
        return TestSupport::waitUntil([this, n] { return client.flushes() >= n; });
    }
    bool hasEnded() const { return ended_; }
    bool awaitEnd(milliseconds bound = TestSupport::kPatience) {
        return TestSupport::waitUntil([this] { return ended_.load(); }, bound);
    }
    // The handle it was told; -1 when none was, or when it does not end.
    std::int32_t handle() {
        if (!awaitEnd()) {
            ADD_FAILURE() << "the command does not end";
            client.abort();
        }
        if (thread_.joinable()) thread_.join();
        for (const auto& entry : client.written()) {
            if (entry.starts_with("int ")) return std::stoi(entry.substr(4));
        }
        return -1;
    }
    Clock::duration elapsed() const { return elapsed_; }  // after the end

    Client client;

private:
    const Clock::time_point begun_ = Clock::now();
    Clock::duration elapsed_{};
    std::atomic<bool> ended_{false};
    std::jthread thread_;
};

// An arbiter with a notification engine whose events are recorded.
class Fixture : public testing::Test {
protected:
    using Texts = std::vector<std::string>;

    Texts serve(Client& client) {
        engine_.handleClient(static_cast<VornNet::VornConnection&>(client));
        return client.written();
    }
    // The handle that the command answers.
    int lock(std::string_view path, int waitMs = 0) {
        Client client;
        client.sendString("RUVO_RA_LOCK").sendString(path).sendInt(waitMs);
        return answerOf(client);
    }
    int unlock(int handle) {
        Client client;
        client.sendString("RUVO_RA_UNLOCK").sendInt(handle);
        return answerOf(client);
    }
    int answerOf(Client& client) {
        Texts written = serve(client);
        EXPECT_EQ(client.unread(), 0u);
        std::erase(written, "flush");
        if (written.size() != 1 || !written[0].starts_with("int ")) {
            ADD_FAILURE() << "not one number was answered";
            return -12345;
        }
        return std::stoi(written[0].substr(4));
    }

    // "name=state" of every event so far, once the queue is empty.
    Texts events() {
        notifier_.initialize();
        notifier_.cleanup();
        Texts lines;
        const Texts names = recorder_->names();
        const Texts data = recorder_->data();
        for (std::size_t i = 0; i < names.size(); ++i) {
            std::int32_t state = -12345;
            EXPECT_EQ(data[i].size(), sizeof state);
            std::memcpy(&state, data[i].data(), sizeof state);
            lines.push_back(names[i] + "=" + std::to_string(state));
        }
        return lines;
    }

    Recorder recorder_;
    Notifier notifier_;
    Engine engine_{&notifier_};
};

}  // namespace ArbiterTest
