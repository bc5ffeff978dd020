#pragma once

#include "runtime/net/EndpointGate.h"
#include "runtime/net/UDPPort.h"
#include "runtime/net/VornIPCServer.h"
#include "runtime/platform/Export.h"

#include <chrono>
#include <memory>
#include <string>

namespace VornNet {

// Takes UDP peers for clients: the first datagram of an address begins a
// conversation, which comes as a VornUDPConnection. The thread in waitForClient
// also receives for the conversations under way, so it must come back to wait
// after every client. Unlike TCP ones, the conversations end with close(), as
// they have no socket of their own.
//
// Bounds: at most VornNetLimits::clients peers at once (datagrams of further
// ones are dropped), and 256 KiB that a peer has sent and nobody has read (the
// conversation ends there).
class VORN_EXPORT VornUDPServerSocket : public VornIPCServer {
public:
    static constexpr std::chrono::milliseconds kSilence{30000};

    // Of `port` the low 16 bits count; 0 takes a free port. `address` as in
    // VornServerSocket. Answers leave in datagrams of at most `datagramBytes`;
    // what comes in may be larger. After `silence` a conversation is over.
    explicit VornUDPServerSocket(int port, const std::string& address = "*",
                                 int datagramBytes = 512,
                                 std::chrono::milliseconds silence = kSilence);
    ~VornUDPServerSocket() override;

    VornSupport::VornSmartPointer<VornConnection> waitForClient(bool wait) override;
    void close() override;
    std::string getAddress() const override { return "udp:" + port_->address().text(); }
    int getPort() const { return port_->address().port(); }
    std::chrono::milliseconds getSilence() const { return port_->silence(); }

private:
    bool mayBegin();
    VornSupport::VornSmartPointer<VornConnection> welcome(const UDPPort::PeerPointer& peer);

    EndpointGate gate_;
    const std::shared_ptr<UDPPort> port_;
    QuietLog refusals_;
    QuietLog failures_;
};

}  // namespace VornNet
