#include "runtime/net/VornUDPConnection.h"

#include "runtime/net/VornLocalAccess.h"
#include "runtime/support/VornPostponed.h"

#include <utility>

namespace VornNet {

VornUDPConnection::VornUDPConnection(std::shared_ptr<UDPPort> port, UDPPort::PeerPointer peer)
    : port_(std::move(port)), peer_(std::move(peer)) {}

VornUDPConnection::~VornUDPConnection() { close(); }

VornStreamConnection::Received VornUDPConnection::receiveSome(char* buffer, std::size_t size,
                                                              bool wait) {
    std::size_t count = 0;
    switch (port_->read(*peer_, buffer, size, wait, count)) {
        case UDPPort::Arrival::NothingYet: return {Arrival::NothingYet, 0, {}};
        case UDPPort::Arrival::End: return {Arrival::End, 0, {}};
        case UDPPort::Arrival::Bytes: break;
    }
    if (isAdmitted() && VornLocalAccess::getInstance().asksOwner() && !admitsPeer()) {
        return {Arrival::End, 0, {}};
    }
    return {Arrival::Bytes, count, {}};
}

void VornUDPConnection::sendAll(std::string_view first, std::string_view second) {
    if (isAborted()) fail("the connection was aborted");
    hasSent_ = true;
    // What others wait for is not to wait for room in the system, nor for another
    // conversation of the endpoint that does; and inside its lock it cannot be done.
    VornSupport::VornPostponed::perform();
    port_->send(*peer_, first, second);
}

void VornUDPConnection::breakChannel() { port_->abort(*peer_); }

void VornUDPConnection::closeChannel(std::string_view held, bool) {
    struct Forgetting {
        UDPPort& port;
        const UDPPort::Peer& peer;
        ~Forgetting() { port.forget(peer); }
    };
    const Forgetting afterwards{*port_, *peer_};
    if (isAborted()) return;
    if (!held.empty()) sendAll(held, {});
    if (hasSent_) port_->sendEnd(*peer_);
}

VornStreamConnection::Look VornUDPConnection::lookAtChannel() {
    return port_->isGone(*peer_) ? Look::Gone : Look::Quiet;
}

bool VornUDPConnection::admitsPeer() {
    return VornLocalAccess::getInstance().admits(VornPlatform::Transport::Udp, peer_->address,
                                                 peer_->local);
}

}  // namespace VornNet
