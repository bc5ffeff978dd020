#include "runtime/net/VornServerSocket.h"

#include "runtime/net/VornNetLimits.h"
#include "runtime/net/VornSocketConnection.h"
#include "runtime/support/VornException.h"

#include <algorithm>
#include <new>
#include <utility>

namespace VornNet {
namespace {

using VornPlatform::OsCondition;
using VornPlatform::OsError;
using VornPlatform::Socket;
using VornPlatform::SocketAddress;
using VornSupport::VornSmartPointer;

constexpr int kPauseMs = 100;  // after a failure that may last

}  // namespace

VornServerSocket::VornServerSocket(int port, int backlog, const std::string& address) {
    const auto wanted = static_cast<std::uint16_t>(port);
    OsError error =
        VornPlatform::listenTcp(wanted, std::max(backlog, kLeastBacklog), address, listener_);
    if (!error) error = VornPlatform::localAddress(listener_.handle(), address_);
    if (error) {
        throw VornSupport::VornException(
            "VornServerSocket: cannot listen on tcp:" + address + ":" + std::to_string(wanted),
            error);
    }
}

VornServerSocket::~VornServerSocket() { VornServerSocket::close(); }

void VornServerSocket::close() {
    if (gate_.close()) listener_.close();
}

VornSmartPointer<VornConnection> VornServerSocket::welcome(Socket socket,
                                                           const SocketAddress& peer) {
    auto& accepted = VornAcceptedConnections::getInstance();
    const int limit = VornNetLimits::getInstance().clients;
    if (accepted.size() >= limit) {
        refusals_.write(3, "VornServerSocket::waitForClient: " + peer.text() +
                               " closed, as \"ruvod.limits.clients\" (" + std::to_string(limit) +
                               ") are connected");
        return nullptr;
    }
    auto connection = VornSupport::makeCounted<VornSocketConnection>(std::move(socket), peer);
    accepted.add(*connection);
    return connection;
}

// A client that left while it waited, or a system without descriptors: the first
// is over, the second is waited out.
void VornServerSocket::afterFailure(OsError error) {
    failures_.write(3, "VornServerSocket::waitForClient: " + error.text());
    if (error.condition() != OsCondition::ConnectionLost) {
        gate_.wait(VornPlatform::kNoSocket, kPauseMs);
    }
}

VornSmartPointer<VornConnection> VornServerSocket::waitForClient(bool wait) {
    const EndpointGate::Visit visit(gate_);
    if (!visit) return nullptr;
    while (!gate_.isClosed()) {
        try {
            Socket socket;
            SocketAddress peer;
            const OsError error = VornPlatform::accept(listener_.handle(), socket, peer);
            const OsCondition condition = error.condition();
            if (!error) {
                if (auto connection = welcome(std::move(socket), peer)) return connection;
            } else if (condition != OsCondition::WouldBlock) {
                afterFailure(error);
            }
            if (error && !wait) return nullptr;
            if (condition == OsCondition::WouldBlock) gate_.wait(listener_.handle(), -1);
        } catch (const std::bad_alloc&) {
            failures_.write(2, "VornServerSocket::waitForClient: no memory for a client");
        }
    }
    return nullptr;
}

}  // namespace VornNet
