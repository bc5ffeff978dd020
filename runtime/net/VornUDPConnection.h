#pragma once

#include "runtime/net/UDPPort.h"
#include "runtime/net/VornStreamConnection.h"
#include "runtime/platform/Export.h"

#include <memory>
#include <string>
#include <string_view>

namespace VornNet {

// What one peer address sends to a UDP endpoint, as a stream; answers go back in
// datagrams of the endpoint's size. close() tells the peer with an empty
// datagram, unless nothing was ever sent to it or the peer has ended the
// conversation itself. Ends with its endpoint.
//
// A datagram's source proves less than a connection does: the port of an
// admitted client may pass to somebody else's process. The owner of an admitted
// peer is therefore asked again whenever bytes have come.
class VORN_EXPORT VornUDPConnection : public VornStreamConnection {
public:
    VornUDPConnection(std::shared_ptr<UDPPort> port, UDPPort::PeerPointer peer);
    ~VornUDPConnection() override;

    std::string getPeerName() const override { return "udp:" + peer_->address.text(); }

protected:
    Received receiveSome(char* buffer, std::size_t size, bool wait) override;
    void sendAll(std::string_view first, std::string_view second) override;
    void breakChannel() override;
    void closeChannel(std::string_view held, bool unread) override;
    Look lookAtChannel() override;
    bool admitsPeer() override;

private:
    const std::shared_ptr<UDPPort> port_;
    const UDPPort::PeerPointer peer_;
    bool hasSent_ = false;
};

}  // namespace VornNet
