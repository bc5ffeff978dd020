#pragma once

#include "notifier/RuvoNNEngine.h"
#include "tests/support/FakeConnection.h"

#include <cstdint>
#include <string>
#include <vector>

// The engine, with what its callers reach through the manager opened up.
class TestNotifier : public RuvoService::RuvoNNEngine {
public:
    using RuvoNNEngine::cleanup;
    using RuvoNNEngine::handleClient;
    using RuvoNNEngine::initialize;

    // Runs one command and returns what it wrote.
    std::vector<std::string> run(TestSupport::FakeConnection& connection) {
        handleClient(static_cast<VornNet::VornConnection&>(connection));
        return connection.written();
    }
    std::vector<std::string> enroll(const std::string& signature, const std::string& remoteName,
                                    std::int32_t handle) {
        TestSupport::FakeConnection connection;
        connection.sendString("RUVO_NN_REGISTER");
        connection.sendString(signature).sendString(remoteName).sendInt(handle);
        return run(connection);
    }
    std::vector<std::string> withdraw(const std::string& remoteName, std::int32_t handle) {
        TestSupport::FakeConnection connection;
        connection.sendString("RUVO_NN_UNREGISTER").sendString(remoteName).sendInt(handle);
        auto written = run(connection);
        std::erase(written, "flush");
        return written;
    }
    std::vector<std::string> raise(const std::string& eventName, const std::string& data = "") {
        TestSupport::FakeConnection connection;
        connection.sendString("RUVO_NN_NOTIFY").sendString("the sender");
        connection.sendString(eventName).sendString("the message");
        connection.sendInt(static_cast<int>(data.size())).sendBytes(data);
        return run(connection);
    }
};

inline RuvoService::RuvoNNEngine::Event eventNamed(const std::string& name) {
    return VornSupport::makeCounted<RuvoService::RuvoNNEventNotification>("s", name, "m", 0,
                                                                          nullptr);
}
