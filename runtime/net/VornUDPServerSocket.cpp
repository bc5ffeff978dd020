#include "runtime/net/VornUDPServerSocket.h"

#include "runtime/net/VornNetLimits.h"
#include "runtime/net/VornUDPConnection.h"

#include <new>

namespace VornNet {
namespace {

using VornPlatform::OsCondition;
using VornPlatform::OsError;
using VornSupport::VornSmartPointer;

constexpr int kPauseMs = 100;  // after a failure that may last

}  // namespace

VornUDPServerSocket::VornUDPServerSocket(int port, const std::string& address, int datagramBytes,
                                         std::chrono::milliseconds silence)
    : port_(std::make_shared<UDPPort>(port, address, datagramBytes, silence)) {}

VornUDPServerSocket::~VornUDPServerSocket() { VornUDPServerSocket::close(); }

void VornUDPServerSocket::close() {
    if (gate_.close()) port_->close();
}

bool VornUDPServerSocket::mayBegin() {
    const int limit = VornNetLimits::getInstance().clients;
    if (VornAcceptedConnections::getInstance().size() < limit &&
        port_->peerCount() < static_cast<std::size_t>(limit)) {
        return true;
    }
    refusals_.write(3, "VornUDPServerSocket::waitForClient: a new peer's datagram dropped, as "
                       "\"ruvod.limits.clients\" (" + std::to_string(limit) + ") are connected");
    return false;
}

VornSmartPointer<VornConnection> VornUDPServerSocket::welcome(const UDPPort::PeerPointer& peer) {
    try {
        auto connection = VornSupport::makeCounted<VornUDPConnection>(port_, peer);
        VornAcceptedConnections::getInstance().add(*connection);
        return connection;
    } catch (...) {
        port_->forget(*peer);
        throw;
    }
}

VornSmartPointer<VornConnection> VornUDPServerSocket::waitForClient(bool wait) {
    const EndpointGate::Visit visit(gate_);
    if (!visit) return nullptr;
    while (!gate_.isClosed()) {
        try {
            UDPPort::PeerPointer begun;
            const OsError error = port_->receiveNext(begun, [this] { return mayBegin(); });
            if (begun != nullptr) return welcome(begun);
            if (!error) continue;
            if (error.condition() != OsCondition::WouldBlock) {
                failures_.write(3, "VornUDPServerSocket::waitForClient: " + error.text());
                gate_.wait(VornPlatform::kNoSocket, kPauseMs);
            } else if (wait) {
                gate_.wait(port_->socket(), -1);
            }
            if (!wait) return nullptr;
        } catch (const std::bad_alloc&) {
            failures_.write(2, "VornUDPServerSocket::waitForClient: no memory for a datagram");
        }
    }
    return nullptr;
}

}  // namespace VornNet
