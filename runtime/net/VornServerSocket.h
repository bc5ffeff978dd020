#pragma once

#include "runtime/net/EndpointGate.h"
#include "runtime/net/VornIPCServer.h"
#include "runtime/platform/Export.h"
#include "runtime/platform/Socket.h"

#include <string>

namespace VornNet {

// Listens for TCP clients. Each one comes as a VornSocketConnection that
// VornAcceptedConnections knows. While as many connections live as
// VornNetLimits::clients allows, a new one is closed at once and logged.
class VORN_EXPORT VornServerSocket : public VornIPCServer {
public:
    // The system queues at least kLeastBacklog clients that come at once, and
    // more with a larger `backlog`: one that it turns away tries again only
    // after a second, so that a short queue costs a burst of clients minutes.
    static constexpr int kLeastBacklog = 1024;

    // Of `port` the low 16 bits count; 0 takes a free port. `address` is a
    // numeric local address, or "*" for all of them.
    VornServerSocket(int port, int backlog, const std::string& address = "*");
    ~VornServerSocket() override;

    VornSupport::VornSmartPointer<VornConnection> waitForClient(bool wait) override;
    // Returns when no thread waits any more; the port is free then.
    void close() override;
    std::string getAddress() const override { return "tcp:" + address_.text(); }
    int getPort() const { return address_.port(); }

private:
    VornSupport::VornSmartPointer<VornConnection> welcome(VornPlatform::Socket socket,
                                                          const VornPlatform::SocketAddress& peer);
    void afterFailure(VornPlatform::OsError error);

    EndpointGate gate_;
    VornPlatform::Socket listener_;
    VornPlatform::SocketAddress address_;
    QuietLog refusals_;
    QuietLog failures_;
};

}  // namespace VornNet
