#pragma once

#include "runtime/net/VornStreamConnection.h"
#include "runtime/platform/Export.h"
#include "runtime/platform/Socket.h"
#include "runtime/support/VornMutex.h"

#include <chrono>
#include <span>
#include <string>
#include <string_view>

namespace VornNet {

// A TCP connection: one that an endpoint accepted, or one that establish()
// makes. A peer that vanishes without a word is noticed after two minutes of
// silence (setKeepAlive). Threads as in VornConnection.
class VORN_EXPORT VornSocketConnection : public VornStreamConnection {
public:
    // To be connected by establish(). `host` is a name or a numeric address;
    // of `port` the low 16 bits count. `noDelay`: not 0, so that what is sent
    // goes out at once instead of waiting for an acknowledgement of what went
    // before. `raw`: not 0 starts in raw mode.
    VornSocketConnection(const std::string& host, int port, int noDelay = 1, int raw = 0);
    // Takes over a connected, blocking socket.
    VornSocketConnection(VornPlatform::Socket socket, const VornPlatform::SocketAddress& peer);
    ~VornSocketConnection() override;

    // Connects; tries the addresses of the host one after the other, each for at
    // most 10 s. Throws VornException that names host, port and reason.
    void establish();

    SocketHandle getSocket() override { return socket_.handle(); }
    std::string getPeerName() const override;

protected:
    Received receiveSome(char* buffer, std::size_t size, bool wait) override;
    void sendAll(std::string_view first, std::string_view second) override;
    void breakChannel() override;
    void closeChannel(std::string_view held, bool unread) override;
    Look lookAtChannel() override;
    bool admitsPeer() override;

    // establish() behind the look-up; `patience` is for one address.
    void connectToOneOf(std::span<const VornPlatform::SocketAddress> addresses,
                        std::chrono::milliseconds patience);

private:
    VornPlatform::OsError connectTo(const VornPlatform::SocketAddress& address,
                                    std::chrono::milliseconds patience);
    void awaitReady(bool write);
    VornPlatform::IoResult sendPart(std::string_view first, std::string_view second);
    bool sendWithin(std::string_view bytes);
    void drain();

    const std::string host_;  // of establish()
    VornPlatform::SocketAddress peer_;
    const int noDelay_ = 1;
    // Guards that the socket is there while another thread breaks it. Only the
    // connection's own thread changes it, which reads it without the lock.
    VornSupport::VornMutex mutex_;
    VornPlatform::Socket socket_;
};

}  // namespace VornNet
