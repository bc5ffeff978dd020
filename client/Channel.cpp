#include "client/Channel.h"

#include <algorithm>

namespace Ruvo {
namespace {

using VornPlatform::IoResult;
using VornPlatform::OsCondition;
using VornPlatform::OsError;

constexpr std::size_t kDatagramBytes = 512;
constexpr std::size_t kReceiveBytes = 65536;
// Datagrams are not held back when the receiver is slow, they are lost: what is
// sent at once must fit the system's buffer of any receiver.
constexpr std::size_t kMaxDatagramRequest = 32768;
// While sending, answers up to here are taken in.
constexpr std::size_t kMaxInputWhileSending = std::size_t{16} << 20;

}  // namespace

Channel::Channel(const RuvoClientOptions& options, const Deadline& deadline)
    : datagrams_(options.useUdp) {
    const std::uint16_t defaultPort =
        datagrams_ ? RUVO_DEFAULT_UDP_PORT : RUVO_DEFAULT_TCP_PORT;
    const std::uint16_t port = options.port != 0 ? options.port : defaultPort;
    address_ = (datagrams_ ? "udp:" : "tcp:") + options.host + ":" + std::to_string(port);

    const auto found = VornPlatform::resolve(options.host, port);
    if (found.addresses.empty()) {
        throw RuvoClientError(RuvoProblem::Unreachable,
                              "cannot find the host " + options.host + ": " + found.problem,
                              found.error.code());
    }
    OsError error;
    for (const auto& peer : found.addresses) {
        error = connectTo(peer, deadline);
        if (!error) return;
    }
    std::string reason = error.text();
    if (error.condition() == OsCondition::ConnectionRefused) reason = "no daemon listens there";
    throw RuvoClientError(RuvoProblem::Unreachable, "cannot reach " + address_ + ": " + reason,
                          error.code());
}

Channel::~Channel() { close(); }

OsError Channel::connectTo(const VornPlatform::SocketAddress& peer, const Deadline& deadline) {
    VornPlatform::Socket socket;
    if (datagrams_) {
        OsError error = connectUdp(peer, socket);
        if (!error) error = VornPlatform::setNonBlocking(socket.handle(), true);
        if (!error) socket_ = std::move(socket);
        return error;
    }
    OsError error = startConnectTcp(peer, socket);
    if (error) return error;
    VornPlatform::SocketWait wait{.socket = socket.handle(), .wantWrite = true};
    const IoResult ready = waitReady(std::span(&wait, 1), deadline.millisecondsLeft());
    if (ready.error) return ready.error;
    if (ready.count == 0) {
        throw RuvoClientError(RuvoProblem::TimedOut,
                              "cannot reach " + address_ + ": no connection in time");
    }
    error = VornPlatform::pendingError(socket.handle());
    if (error) return error;
    (void)VornPlatform::setNoDelay(socket.handle(), true);  // only slower without
    socket_ = std::move(socket);
    return {};
}

void Channel::fail(const std::string& doing, OsError error) {
    close();
    const OsCondition condition = error.condition();
    // Windows tells of an unreachable datagram port as of a reset.
    if (condition == OsCondition::ConnectionRefused ||
        (datagrams_ && condition == OsCondition::ConnectionLost)) {
        throw RuvoClientError(RuvoProblem::Unreachable,
                              "cannot reach " + address_ + ": no daemon listens there",
                              error.code());
    }
    throw RuvoClientError(RuvoProblem::Closed,
                          "lost the daemon at " + address_ + " while " + doing + ": " +
                              error.text(),
                          error.code());
}

bool Channel::wait(bool forWriting, const Deadline& deadline, bool& canRead, bool& canWrite) {
    VornPlatform::SocketWait wait;
    wait.socket = socket_.handle();
    wait.wantWrite = forWriting;
    wait.wantRead = !forWriting || (!peerClosed_ && buffered().size() < kMaxInputWhileSending);
    const IoResult ready =
        waitReady(std::span(&wait, 1), deadline.isOver() ? 0 : deadline.millisecondsLeft());
    if (ready.error) fail("waiting", ready.error);
    canRead = wait.wantRead && wait.canRead;
    canWrite = forWriting && wait.canWrite;
    return ready.count > 0;
}

void Channel::send(std::string_view bytes, const Deadline& deadline) {
    if (!datagrams_) {
        sendPiece(bytes, deadline);
        return;
    }
    if (bytes.size() > kMaxDatagramRequest) {
        throw RuvoClientError(RuvoProblem::Argument,
                              "over UDP a request has at most " +
                                  std::to_string(kMaxDatagramRequest) + " bytes; use TCP");
    }
    while (!bytes.empty()) {
        const std::size_t size = std::min(bytes.size(), kDatagramBytes);
        sendPiece(bytes.substr(0, size), deadline);
        bytes.remove_prefix(size);
    }
}

void Channel::sendPiece(std::string_view piece, const Deadline& deadline) {
    while (!piece.empty()) {
        const IoResult sent = VornPlatform::send(socket_.handle(), piece.data(), piece.size());
        if (sent.error && sent.error.condition() != OsCondition::WouldBlock) {
            fail("sending", sent.error);
        }
        if (!sent.error) {
            piece.remove_prefix(std::min(sent.count, piece.size()));
            continue;
        }
        bool canRead = false;
        bool canWrite = false;
        if (!wait(true, deadline, canRead, canWrite)) {
            close();
            throw RuvoClientError(RuvoProblem::TimedOut,
                                  "the daemon at " + address_ + " does not take the request");
        }
        if (canRead) receiveOnce();
    }
}

void Channel::receiveOnce() {
    if (used_ == input_.size()) {
        input_.clear();
        used_ = 0;
    }
    const std::size_t before = input_.size();
    input_.resize(before + kReceiveBytes);
    const IoResult got =
        VornPlatform::receiveNow(socket_.handle(), input_.data() + before, kReceiveBytes);
    input_.resize(before + got.count);
    if (got.error) {
        if (got.error.condition() != OsCondition::WouldBlock) fail("receiving", got.error);
    } else if (got.count == 0) {
        peerClosed_ = true;  // of a stream the end; an empty datagram says the same
    }
}

bool Channel::fill(std::size_t size, const Deadline& deadline) {
    while (buffered().size() < size) {
        if (peerClosed_) return false;
        bool canRead = false;
        bool canWrite = false;
        if (!wait(false, deadline, canRead, canWrite)) {
            throw RuvoClientError(RuvoProblem::TimedOut,
                                  "no answer from the daemon at " + address_ + " in time");
        }
        if (canRead) receiveOnce();
    }
    return true;
}

void Channel::consume(std::size_t size) {
    used_ += size;
    // Keeps a long stream of answers from growing the buffer, at a cost that
    // stays in proportion to what was consumed.
    if (used_ >= kReceiveBytes && used_ >= input_.size() / 2) {
        input_.erase(0, used_);
        used_ = 0;
    }
}

bool Channel::isPeerGone() {
    if (!socket_ || peerClosed_) return true;
    if (!datagrams_) return VornPlatform::isPeerClosed(socket_.handle());
    try {
        receiveOnce();  // an empty datagram, or that the last one met nobody
    } catch (const RuvoClientError&) {
        return true;
    }
    return peerClosed_;
}

void Channel::endSending() noexcept {
    if (sendingEnded_ || !socket_) return;
    sendingEnded_ = true;
    if (datagrams_) {
        (void)VornPlatform::send(socket_.handle(), "", std::size_t{0});
    } else {
        (void)VornPlatform::shutdownSend(socket_.handle());  // fails where the peer has gone
    }
}

void Channel::close() noexcept {
    // Frees the daemon's side at once; otherwise it waits for more.
    if (datagrams_) endSending();
    socket_.close();
}

}  // namespace Ruvo
