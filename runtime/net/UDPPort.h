#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/Socket.h"
#include "runtime/support/VornMutex.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace VornNet {

// The socket of a UDP endpoint and the conversations on it, shared by the
// endpoint, whose thread receives for all of them, and their connections. One
// conversation is what one peer address sends, in the order received, until an
// empty datagram, or until neither side has sent anything for the time of
// silence while a read waits or isGone() asks. Any thread unless said otherwise.
class VORN_EXPORT UDPPort {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::size_t kQueueBytes = std::size_t{256} * 1024;  // unread, of a peer

    struct Peer {
        VornPlatform::SocketAddress address;
        VornPlatform::SocketAddress local;  // where the peer sends to
        // The rest is guarded by the port's mutex.
        std::string queue;  // received bytes, of which the first `taken` were read
        std::size_t taken = 0;
        Clock::time_point lastTraffic{};
        bool ended = false;   // nothing more comes in
        bool byPeer = false;  // ended by the peer's own word
        bool aborted = false;
        VornSupport::VornCondition changed;
    };
    using PeerPointer = std::shared_ptr<Peer>;

    enum class Arrival { Bytes, NothingYet, End };

    // Throws VornException when the address cannot be had.
    UDPPort(int port, const std::string& address, int datagramBytes,
            std::chrono::milliseconds silence);
    UDPPort(const UDPPort&) = delete;
    UDPPort& operator=(const UDPPort&) = delete;

    const VornPlatform::SocketAddress& address() const { return address_; }
    VornPlatform::SocketHandle socket() const { return socket_.handle(); }  // endpoint's thread
    std::chrono::milliseconds silence() const { return silence_; }
    std::size_t peerCount() const VORN_EXCLUDES(mutex_);

    // Takes one datagram off the socket; WouldBlock when none is there. `begun`
    // becomes the peer when it is a new one, for which `mayBegin` was asked.
    // Endpoint's thread.
    VornPlatform::OsError receiveNext(PeerPointer& begun, const std::function<bool()>& mayBegin)
        VORN_EXCLUDES(mutex_);

    // Reads what a peer has sent; NothingYet only without `wait`.
    Arrival read(Peer& peer, char* buffer, std::size_t size, bool wait, std::size_t& count)
        VORN_EXCLUDES(mutex_);
    // Sends both pieces in datagrams of at most the port's size. Throws
    // VornException.
    void send(Peer& peer, std::string_view first, std::string_view second) VORN_EXCLUDES(mutex_);
    // Tells a peer that has not ended the conversation itself that it is over.
    void sendEnd(Peer& peer) VORN_EXCLUDES(mutex_);
    // The peer's conversation is over: its next datagram begins another one.
    void forget(const Peer& peer) VORN_EXCLUDES(mutex_);
    void abort(Peer& peer) VORN_EXCLUDES(mutex_);
    bool isGone(Peer& peer) VORN_EXCLUDES(mutex_);

    // Frees the port; every conversation on it has ended.
    void close() VORN_EXCLUDES(mutex_);

private:
    bool deliverToKnown(std::string_view datagram, const VornPlatform::SocketAddress& from)
        VORN_EXCLUDES(mutex_);
    PeerPointer begin(std::string_view datagram, const VornPlatform::SocketAddress& from,
                      const VornPlatform::SocketAddress& to) VORN_EXCLUDES(mutex_);
    void endIfSilentLocked(Peer& peer) VORN_REQUIRES(mutex_);
    void sendDatagram(Peer& peer, std::string_view datagram) VORN_EXCLUDES(mutex_);

    const std::size_t datagramBytes_;
    const std::chrono::milliseconds silence_;
    std::vector<char> received_;  // one datagram; endpoint's thread
    VornPlatform::SocketAddress address_;

    mutable VornSupport::VornMutex mutex_;
    std::unordered_map<VornPlatform::SocketAddress, PeerPointer> peers_ VORN_GUARDED_BY(mutex_);
    VornSupport::VornMutex sending_;  // held to send and to close the socket
    VornPlatform::Socket socket_;
};

}  // namespace VornNet
