#include "runtime/net/VornSocketConnection.h"

#include "runtime/net/VornLocalAccess.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornPostponed.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace VornNet {
namespace {

using VornPlatform::IoResult;
using VornPlatform::OsCondition;
using VornPlatform::OsError;
using VornPlatform::Socket;
using VornPlatform::SocketAddress;
using VornPlatform::SocketWait;
using VornSupport::VornException;
using VornSupport::VornMutexLock;
using VornSupport::VornPostponed;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kConnect{10000};    // for one address
constexpr milliseconds kConnectLook{200};  // how often an abort is looked for meanwhile
constexpr milliseconds kLastBytes{2000};   // for the peer to take what is held at the end
constexpr milliseconds kLinger{1000};      // for the peer to stop sending at the end
constexpr std::size_t kLingerBytes = std::size_t{256} * 1024;

int msUntil(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
    return static_cast<int>(std::max<milliseconds::rep>(left.count(), 0));
}

}  // namespace

VornSocketConnection::VornSocketConnection(const std::string& host, int port, int noDelay, int raw)
    : host_(host), noDelay_(noDelay) {
    peer_.setPort(static_cast<std::uint16_t>(port));
    if (raw != 0) setRawMode(true);
}

VornSocketConnection::VornSocketConnection(Socket socket, const SocketAddress& peer)
    : peer_(peer), socket_(std::move(socket)) {
    VornPlatform::setKeepAlive(socket_.handle());
    VornPlatform::setNoDelay(socket_.handle(), true);
}

VornSocketConnection::~VornSocketConnection() { close(); }

std::string VornSocketConnection::getPeerName() const {
    if (peer_) return "tcp:" + peer_.text();
    return "tcp:" + host_ + ":" + std::to_string(peer_.port());
}

// ---- connecting --------------------------------------------------------------

OsError VornSocketConnection::connectTo(const SocketAddress& address, milliseconds patience) {
    Socket socket;
    if (const OsError error = VornPlatform::startConnectTcp(address, socket)) return error;
    const auto deadline = Clock::now() + patience;
    SocketWait wait{.socket = socket.handle(), .wantWrite = true};
    // A connect under way cannot be broken off from another thread everywhere,
    // hence the looks in between.
    while (!wait.canWrite) {
        if (isAborted()) fail("the connection was aborted");
        const int ms = std::min(msUntil(deadline), static_cast<int>(kConnectLook.count()));
        const IoResult waited = VornPlatform::waitReady({&wait, 1}, ms);
        if (waited.error) return waited.error;
        if (!wait.canWrite && ms == 0) return OsError::timedOut();
    }
    OsError error = VornPlatform::pendingError(socket.handle());
    if (!error) error = VornPlatform::setNonBlocking(socket.handle(), false);
    if (error) return error;
    VornPlatform::setKeepAlive(socket.handle());
    VornPlatform::setNoDelay(socket.handle(), noDelay_ != 0);
    VornMutexLock lock(mutex_);
    socket_ = std::move(socket);
    peer_ = address;
    return {};
}

void VornSocketConnection::connectToOneOf(std::span<const SocketAddress> addresses,
                                          milliseconds patience) {
    OsError error;
    for (const SocketAddress& address : addresses) {
        error = connectTo(address, patience);
        if (!error) break;
    }
    if (error) {
        throw VornException("cannot connect to " + host_ + ":" + std::to_string(peer_.port()),
                            error);
    }
    // An abort that came before the socket was in place did not reach it.
    if (isAborted()) fail("the connection was aborted");
}

void VornSocketConnection::establish() {
    if (socket_) fail("is connected already");
    const auto resolved = VornPlatform::resolve(host_, peer_.port());
    if (resolved.addresses.empty()) {
        throw VornException("cannot connect to " + host_ + ":" + std::to_string(peer_.port()) +
                                ": " + resolved.problem,
                            resolved.error.code());
    }
    connectToOneOf(resolved.addresses, kConnect);
}

// ---- the channel -------------------------------------------------------------

// For a socket that somebody has made non-blocking.
void VornSocketConnection::awaitReady(bool write) {
    SocketWait wait{.socket = socket_.handle(), .wantRead = !write, .wantWrite = write};
    const IoResult waited = VornPlatform::waitReady({&wait, 1}, -1);
    if (waited.error) fail("waiting for the network failed", waited.error);
}

VornStreamConnection::Received VornSocketConnection::receiveSome(char* buffer, std::size_t size,
                                                                 bool wait) {
    if (!socket_) fail("is not connected");
    for (;;) {
        const IoResult got = wait ? VornPlatform::receive(socket_.handle(), buffer, size)
                                  : VornPlatform::receiveNow(socket_.handle(), buffer, size);
        if (!got.error) {
            return {got.count == 0 ? Arrival::End : Arrival::Bytes, got.count, {}};
        }
        if (got.error.condition() != OsCondition::WouldBlock) {
            return {Arrival::Broken, 0, got.error};
        }
        if (!wait) return {Arrival::NothingYet, 0, {}};
        awaitReady(false);
    }
}

// What others wait for is not to wait for a peer that does not read.
IoResult VornSocketConnection::sendPart(std::string_view first, std::string_view second) {
    if (first.empty()) std::swap(first, second);
    return VornPostponed::isPending() ? VornPlatform::sendNow(socket_.handle(), first, second)
                                      : VornPlatform::send(socket_.handle(), first, second);
}

void VornSocketConnection::sendAll(std::string_view first, std::string_view second) {
    if (!socket_) fail("is not connected");
    while (!first.empty() || !second.empty()) {
        const IoResult sent = sendPart(first, second);
        if (sent.error) {
            if (isAborted()) fail("the connection was aborted");
            if (sent.error.condition() != OsCondition::WouldBlock) {
                fail("sending failed", sent.error);
            }
            VornPostponed::perform();
            awaitReady(true);
            continue;
        }
        const std::size_t ofFirst = std::min(sent.count, first.size());
        first.remove_prefix(ofFirst);
        second.remove_prefix(sent.count - ofFirst);
    }
}

void VornSocketConnection::breakChannel() {
    VornMutexLock lock(mutex_);
    if (socket_) VornPlatform::shutdownBoth(socket_.handle());
}

VornStreamConnection::Look VornSocketConnection::lookAtChannel() {
    if (!socket_) return Look::Gone;
    switch (VornPlatform::lookAtStream(socket_.handle())) {
        case VornPlatform::StreamLook::Closed: return Look::Gone;
        case VornPlatform::StreamLook::Bytes: return Look::Bytes;
        case VornPlatform::StreamLook::Quiet: break;
    }
    return Look::Quiet;
}

bool VornSocketConnection::admitsPeer() {
    SocketAddress local;
    if (!socket_ || VornPlatform::localAddress(socket_.handle(), local)) return false;
    return VornLocalAccess::getInstance().admits(VornPlatform::Transport::Tcp, peer_, local);
}

// ---- closing -----------------------------------------------------------------

// Sends on the non-blocking socket. False when the peer did not take it in time.
bool VornSocketConnection::sendWithin(std::string_view bytes) {
    const auto deadline = Clock::now() + kLastBytes;
    while (!bytes.empty()) {
        const IoResult sent = VornPlatform::send(socket_.handle(), bytes.data(), bytes.size());
        bytes.remove_prefix(sent.count);
        if (!sent.error) continue;
        const int ms = msUntil(deadline);
        if (sent.error.condition() != OsCondition::WouldBlock || ms == 0) return false;
        SocketWait wait{.socket = socket_.handle(), .wantWrite = true};
        VornPlatform::waitReady({&wait, 1}, ms);
    }
    return true;
}

// Reads away what the peer has sent and nobody wanted: closing a socket with
// unread bytes resets the connection, and the reset can overtake our last answer.
void VornSocketConnection::drain() {
    const auto deadline = Clock::now() + kLinger;
    char dropped[1024];
    for (std::size_t total = 0; total < kLingerBytes;) {
        const IoResult got = VornPlatform::receiveNow(socket_.handle(), dropped, sizeof dropped);
        total += got.count;
        if (!got.error && got.count == 0) return;
        if (!got.error) continue;
        const int ms = msUntil(deadline);
        if (got.error.condition() != OsCondition::WouldBlock || ms == 0) return;
        SocketWait wait{.socket = socket_.handle(), .wantRead = true};
        VornPlatform::waitReady({&wait, 1}, ms);
    }
}

void VornSocketConnection::closeChannel(std::string_view held, bool unread) {
    if (!socket_) return;
    if (!isAborted()) {
        bool taken = true;
        if (!held.empty()) {
            VornPlatform::setNonBlocking(socket_.handle(), true);
            taken = sendWithin(held);
        }
        unread = unread || VornPlatform::bytesAvailable(socket_.handle()) > 0;
        if (taken && unread && !VornPlatform::shutdownSend(socket_.handle())) drain();
    }
    VornMutexLock lock(mutex_);
    socket_.close();
}

}  // namespace VornNet
