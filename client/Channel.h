#pragma once

#include "client/Deadline.h"
#include "client/RuvoClient.h"
#include "runtime/platform/Socket.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace Ruvo {

// The bytes of one conversation, over TCP or in datagrams of at most 512 bytes
// over UDP. One thread. Failures throw RuvoClientError.
class Channel {
public:
    // Connects to the first address of the host that takes it.
    Channel(const RuvoClientOptions& options, const Deadline& deadline);
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    // Sends all of it. Answers that arrive meanwhile are taken in, so that two
    // full directions do not wait for each other.
    void send(std::string_view bytes, const Deadline& deadline);
    // Waits until at least `size` bytes are buffered. False when the peer closed
    // before; throws TimedOut after the deadline.
    bool fill(std::size_t size, const Deadline& deadline);
    std::string_view buffered() const { return std::string_view(input_).substr(used_); }
    void consume(std::size_t size);

    // Nothing more will be sent. What the peer still sends is received.
    void endSending() noexcept;
    // Looks, does not wait.
    bool isPeerGone();
    void close() noexcept;
    bool isOpen() const { return static_cast<bool>(socket_); }
    bool isDatagrams() const { return datagrams_; }
    VornPlatform::SocketHandle handle() const { return socket_.handle(); }
    const std::string& address() const { return address_; }

private:
    VornPlatform::OsError connectTo(const VornPlatform::SocketAddress& peer,
                                    const Deadline& deadline);
    // Waits for readiness; false after the deadline.
    bool wait(bool forWriting, const Deadline& deadline, bool& canRead, bool& canWrite);
    void sendPiece(std::string_view piece, const Deadline& deadline);
    void receiveOnce();
    [[noreturn]] void fail(const std::string& doing, VornPlatform::OsError error);

    VornPlatform::Socket socket_;
    const bool datagrams_;
    std::string address_;
    std::string input_;        // received; the first used_ bytes are consumed
    std::size_t used_ = 0;
    bool peerClosed_ = false;  // nothing more will be received
    bool sendingEnded_ = false;
};

}  // namespace Ruvo
