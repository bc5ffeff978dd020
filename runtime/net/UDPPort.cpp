#include "runtime/net/UDPPort.h"

#include "runtime/support/VornException.h"

#include <algorithm>
#include <cstring>

namespace VornNet {
namespace {

using VornPlatform::IoResult;
using VornPlatform::OsCondition;
using VornPlatform::OsError;
using VornPlatform::SocketAddress;
using VornPlatform::SocketWait;
using VornSupport::VornException;
using VornSupport::VornMutexLock;

constexpr std::size_t kLargestDatagram = 65535;
constexpr int kMostToSend = 65507;                // what fits into one datagram of IPv4
constexpr std::size_t kKeptQueue = 1024;          // memory that an empty queue may keep
constexpr std::chrono::milliseconds kTake{2000};  // for the system to take one datagram
constexpr int kTakeLookMs = 50;

}  // namespace

UDPPort::UDPPort(int port, const std::string& address, int datagramBytes,
                 std::chrono::milliseconds silence)
    : datagramBytes_(static_cast<std::size_t>(std::clamp(datagramBytes, 1, kMostToSend))),
      silence_(silence),
      received_(kLargestDatagram) {
    const auto wanted = static_cast<std::uint16_t>(port);
    OsError error = VornPlatform::bindUdp(wanted, address, socket_);
    if (!error) error = VornPlatform::localAddress(socket_.handle(), address_);
    if (error) {
        throw VornException(
            "VornUDPServerSocket: cannot receive on udp:" + address + ":" + std::to_string(wanted),
            error);
    }
}

// ---- receiving ---------------------------------------------------------------

// False when the datagram belongs to no conversation that is under way.
bool UDPPort::deliverToKnown(std::string_view datagram, const SocketAddress& from) {
    VornMutexLock lock(mutex_);
    const auto found = peers_.find(from);
    if (found == peers_.end()) return false;
    Peer& peer = *found->second;
    if (peer.ended) {
        // Its connection has not been closed yet, but the peer goes on already.
        peers_.erase(found);
        return false;
    }
    if (datagram.empty()) {
        peer.ended = peer.byPeer = true;
    } else if (peer.queue.size() - peer.taken + datagram.size() > kQueueBytes) {
        // A stream with a hole is worth nothing: what came before is its end.
        peer.ended = true;
    } else {
        // A reader that never catches up would keep all that it has read.
        if (peer.taken >= peer.queue.size() - peer.taken) {
            peer.queue.erase(0, peer.taken);
            peer.taken = 0;
        }
        peer.queue.append(datagram);
        peer.lastTraffic = Clock::now();
    }
    peer.changed.notifyAll();
    return true;
}

UDPPort::PeerPointer UDPPort::begin(std::string_view datagram, const SocketAddress& from,
                                    const SocketAddress& to) {
    auto peer = std::make_shared<Peer>();
    peer->address = from;
    peer->local = to ? to : address_;
    peer->local.setPort(address_.port());
    peer->queue = datagram;
    peer->lastTraffic = Clock::now();
    VornMutexLock lock(mutex_);
    peers_[from] = peer;
    return peer;
}

OsError UDPPort::receiveNext(PeerPointer& begun, const std::function<bool()>& mayBegin) {
    SocketAddress from;
    SocketAddress to;
    const IoResult got =
        VornPlatform::receiveFrom(socket_.handle(), received_.data(), received_.size(), from, to);
    if (got.error) return got.error;
    const std::string_view datagram(received_.data(), got.count);
    if (!from || deliverToKnown(datagram, from) || datagram.empty()) return {};
    if (mayBegin()) begun = begin(datagram, from, to);
    return {};
}

void UDPPort::endIfSilentLocked(Peer& peer) {
    if (Clock::now() - peer.lastTraffic >= silence_) peer.ended = true;
}

UDPPort::Arrival UDPPort::read(Peer& peer, char* buffer, std::size_t size, bool wait,
                               std::size_t& count) {
    VornMutexLock lock(mutex_);
    while (peer.queue.empty()) {
        if (!peer.ended) endIfSilentLocked(peer);
        if (peer.ended || peer.aborted) return Arrival::End;
        if (!wait) return Arrival::NothingYet;
        peer.changed.waitUntil(mutex_, peer.lastTraffic + silence_);
    }
    if (peer.aborted) return Arrival::End;
    count = std::min(size, peer.queue.size() - peer.taken);
    std::memcpy(buffer, peer.queue.data() + peer.taken, count);
    peer.taken += count;
    if (peer.taken == peer.queue.size()) {
        peer.taken = 0;
        peer.queue.clear();
        if (peer.queue.capacity() > kKeptQueue) peer.queue.shrink_to_fit();
    }
    return Arrival::Bytes;
}

bool UDPPort::isGone(Peer& peer) {
    VornMutexLock lock(mutex_);
    // Also while something is unread: who waits for something else reads nothing.
    if (!peer.ended) endIfSilentLocked(peer);
    return peer.ended || peer.aborted;
}

void UDPPort::abort(Peer& peer) {
    VornMutexLock lock(mutex_);
    peer.aborted = true;
    peer.changed.notifyAll();
}

void UDPPort::forget(const Peer& peer) {
    VornMutexLock lock(mutex_);
    const auto found = peers_.find(peer.address);
    if (found != peers_.end() && found->second.get() == &peer) peers_.erase(found);
}

std::size_t UDPPort::peerCount() const {
    VornMutexLock lock(mutex_);
    return peers_.size();
}

// ---- sending -----------------------------------------------------------------

void UDPPort::sendDatagram(Peer& peer, std::string_view datagram) {
    const auto deadline = Clock::now() + kTake;
    for (;;) {
        VornMutexLock lock(sending_);
        if (!socket_) throw VornException("UDPPort: the endpoint was closed");
        const IoResult sent =
            VornPlatform::sendTo(socket_.handle(), datagram, peer.address, peer.local);
        if (!sent.error) return;
        if (sent.error.condition() != OsCondition::WouldBlock || Clock::now() >= deadline) {
            throw VornException("UDPPort: sending to " + peer.address.text() + " failed",
                                sent.error);
        }
        SocketWait wait{.socket = socket_.handle(), .wantWrite = true};
        VornPlatform::waitReady({&wait, 1}, kTakeLookMs);
    }
}

void UDPPort::send(Peer& peer, std::string_view first, std::string_view second) {
    std::string datagram;
    while (!first.empty() || !second.empty()) {
        datagram.assign(first.substr(0, datagramBytes_));
        first.remove_prefix(datagram.size());
        const std::size_t more = std::min(second.size(), datagramBytes_ - datagram.size());
        datagram.append(second.substr(0, more));
        second.remove_prefix(more);
        sendDatagram(peer, datagram);
    }
    VornMutexLock lock(mutex_);
    peer.lastTraffic = Clock::now();
}

void UDPPort::sendEnd(Peer& peer) {
    {
        VornMutexLock lock(mutex_);
        if (peer.byPeer) return;
    }
    sendDatagram(peer, {});
}

void UDPPort::close() {
    {
        VornMutexLock lock(mutex_);
        for (auto& [address, peer] : peers_) {
            peer->ended = true;
            peer->changed.notifyAll();
        }
        peers_.clear();
    }
    VornMutexLock lock(sending_);
    socket_.close();
}

}  // namespace VornNet
