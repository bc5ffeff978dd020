#pragma once

#include "jobstatus/RuvoJSEngine.h"
#include "notifier/RuvoNNEngine.h"
#include "tests/notifier/RecordingDependent.h"
#include "tests/support/FakeConnection.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

// A job-status engine with a notification engine whose events are recorded.
class JobStatusFixture : public testing::Test {
protected:
    class Notifier : public RuvoService::RuvoNNEngine {
    public:
        using RuvoNNEngine::cleanup;
        using RuvoNNEngine::initialize;
    };
    class Engine : public RuvoService::RuvoJSEngine {
    public:
        using RuvoJSEngine::cleanup;
        using RuvoJSEngine::handleClient;
        using RuvoJSEngine::initialize;
        using RuvoJSEngine::retire;
        using RuvoJSEngine::RuvoJSEngine;
    };
    using Texts = std::vector<std::string>;
    using Connection = TestSupport::FakeConnection;

    Texts serve(Connection& connection) {
        engine_.handleClient(static_cast<VornNet::VornConnection&>(connection));
        return connection.written();
    }
    // A command with numbers for arguments; the number that it answers.
    int ask(const std::string& command, const std::vector<int>& numbers) {
        Connection connection;
        connection.sendString(command);
        for (const int number : numbers) connection.sendInt(number);
        return answerOf(connection);
    }
    int create(const std::string& name, const std::string& description = "d") {
        Connection connection;
        connection.sendString("RUVO_JS_CREATE").sendString(description).sendString(name);
        return answerOf(connection);
    }
    int lookup(const std::string& name) {
        Connection connection;
        connection.sendString("RUVO_JS_LOOKUP").sendString(name);
        return answerOf(connection);
    }
    int answerOf(Connection& connection) {
        const Texts written = serve(connection);
        EXPECT_EQ(connection.unread(), 0u);
        if (written.size() != 1 || !written[0].starts_with("int ")) {
            ADD_FAILURE() << "not one number was answered";
            return -12345;
        }
        return std::stoi(written[0].substr(4));
    }

    // "name=code" of every event so far, once the queue is empty.
    Texts events() {
        notifier_.initialize();
        notifier_.cleanup();
        Texts lines;
        const Texts names = recorder_->names();
        const Texts data = recorder_->data();
        for (std::size_t i = 0; i < names.size(); ++i) {
            std::int32_t code = -12345;
            EXPECT_EQ(data[i].size(), sizeof code);
            std::memcpy(&code, data[i].data(), sizeof code);
            lines.push_back(names[i] + "=" + std::to_string(code));
        }
        return lines;
    }

    Recorder recorder_;
    Notifier notifier_;
    Engine engine_{&notifier_};
};
