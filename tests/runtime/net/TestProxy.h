#pragma once

#include "runtime/net/VornProxyDependent.h"

#include <functional>
#include <string>
#include <utility>

// A proxy whose content is a text that the test chooses.
class TestProxy : public VornNet::VornProxyDependent {
public:
    using Writer = std::function<void(VornNet::VornConnection&)>;

    TestProxy(const std::string& remoteName, std::int32_t handle, Writer writer)
        : VornProxyDependent(remoteName, handle), writer_(std::move(writer)) {}
    TestProxy(const std::string& remoteName, std::int32_t handle, const std::string& text = "")
        : TestProxy(remoteName, handle, [text](VornNet::VornConnection& connection) {
              int count = 0;
              connection.write(text.data(), static_cast<int>(text.size()), count);
          }) {}

    void tell() { remoteNotify(VornSupport::VornNotification()); }

protected:
    void addContent(VornNet::VornConnection& connection,
                    const VornSupport::VornNotification&) override {
        writer_(connection);
    }

private:
    Writer writer_;
};
