#include "client/RuvoListener.h"

#include "client/Delivery.h"
#include "runtime/net/WireCodec.h"
#include "runtime/platform/Socket.h"

#include <algorithm>
#include <deque>
#include <random>
#include <set>
#include <span>
#include <utility>
#include <vector>

namespace Ruvo {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using VornPlatform::IoResult;
using VornPlatform::OsCondition;
using VornPlatform::OsError;
using VornPlatform::SocketWait;

constexpr std::size_t kReceiveBytes = 65536;
constexpr std::size_t kKeptCapacity = std::size_t{1} << 20;
constexpr int kBacklog = 16;

[[noreturn]] void failWith(const std::string& what, OsError error) {
    throw RuvoClientError(RuvoProblem::Internal, what + ": " + error.text(), error.code());
}

}  // namespace

class ListenerCore {
public:
    explicit ListenerCore(const RuvoListenerOptions& options) : options_(options) {
        OsError error = options_.useUdp ? VornPlatform::bindUdp(0, "127.0.0.1", socket_)
                                        : VornPlatform::listenTcp(0, kBacklog, "127.0.0.1", socket_);
        VornPlatform::SocketAddress address;
        if (!error) error = VornPlatform::localAddress(socket_.handle(), address);
        if (!error) error = waker_.open();
        if (error) failWith("cannot listen on the loopback address", error);
        remoteName_ = (options_.useUdp ? "udp:" : "tcp:") + address.text();
    }

    const std::string& remoteName() const { return remoteName_; }
    std::int32_t newHandle();
    std::optional<RuvoDelivery> next(milliseconds timeout);
    bool wasWoken() const { return woken_; }
    void wake() { waker_.wake(); }
    std::uint64_t rejected() const { return rejected_; }
    std::uint64_t lost() const { return lost_; }

private:
    struct Connection {
        VornPlatform::Socket socket;
        std::string held;     // the beginning of a delivery
        bool proven = false;  // has brought a delivery that is ours
    };

    void receive(int waitMs);
    void acceptAll();
    bool receiveFrom(Connection& connection);
    bool takeDeliveries(Connection& connection);
    void receiveDatagram();
    bool isOurs(std::int32_t handle) const { return handles_.empty() || handles_.contains(handle); }
    bool keep(RuvoDelivery&& delivery);
    void giveUp(std::string_view begun);
    std::size_t heldBytes() const;

    const RuvoListenerOptions options_;
    VornPlatform::Socket socket_;
    VornPlatform::SocketWaker waker_;
    std::string remoteName_;
    std::set<std::int32_t> handles_;
    std::vector<Connection> connections_;
    std::deque<RuvoDelivery> ready_;
    std::uint64_t rejected_ = 0;
    std::uint64_t lost_ = 0;
    bool woken_ = false;
    std::string datagram_;
};

std::optional<RuvoDelivery> ListenerCore::next(milliseconds timeout) {
    // A year: longer ones would overflow the clock.
    constexpr milliseconds kLongest = std::chrono::hours(24 * 365);
    const auto end = Clock::now() + std::clamp(timeout, milliseconds(0), kLongest);
    woken_ = false;
    for (;;) {
        if (!ready_.empty()) {
            std::optional<RuvoDelivery> delivery(std::move(ready_.front()));
            ready_.pop_front();
            return delivery;
        }
        if (woken_) return std::nullopt;
        int waitMs = -1;
        if (timeout.count() >= 0) {
            const auto left = std::chrono::ceil<milliseconds>(end - Clock::now()).count();
            if (left <= 0 && timeout.count() > 0) return std::nullopt;
            waitMs = static_cast<int>(std::clamp<long long>(left, 0, 3600000));
        }
        receive(waitMs);
        if (timeout.count() == 0 && ready_.empty()) return std::nullopt;
    }
}

// Waits once and takes in whatever is there.
void ListenerCore::receive(int waitMs) {
    std::vector<SocketWait> waits;
    waits.push_back({.socket = waker_.handle(), .wantRead = true});
    waits.push_back({.socket = socket_.handle(), .wantRead = true});
    for (const Connection& connection : connections_) {
        waits.push_back({.socket = connection.socket.handle(), .wantRead = true});
    }
    const IoResult result = VornPlatform::waitReady(waits, waitMs);
    if (result.error) failWith("cannot wait for deliveries", result.error);
    if (result.count == 0) return;

    if (waits[0].canRead) {
        waker_.clear();
        woken_ = true;
    }
    for (std::size_t i = 2; i < waits.size(); ++i) {
        Connection& connection = connections_[i - 2];
        if (waits[i].canRead && !receiveFrom(connection)) connection.socket.close();
    }
    std::erase_if(connections_, [](const Connection& each) { return !each.socket; });
    if (waits[1].canRead) {
        if (options_.useUdp) {
            receiveDatagram();
        } else {
            acceptAll();
        }
    }
}

void ListenerCore::acceptAll() {
    for (std::size_t i = 0; i < options_.maxConnections; ++i) {
        Connection fresh;
        VornPlatform::SocketAddress peer;
        const OsError error = VornPlatform::accept(socket_.handle(), fresh.socket, peer);
        if (error.condition() == OsCondition::TooManyOpen) {
            failWith("cannot take a connection of the daemon", error);
        }
        // Nobody there any more, or a peer that gave up at once.
        if (error || VornPlatform::setNonBlocking(fresh.socket.handle(), true)) return;
        if (connections_.size() >= options_.maxConnections) {
            ++rejected_;
            // The oldest that never brought anything makes room: the daemon's own
            // connection is not to be kept out, nor thrown out, by idle ones.
            const auto idle = std::find_if(connections_.begin(), connections_.end(),
                                           [](const Connection& each) { return !each.proven; });
            if (idle == connections_.end()) continue;
            connections_.erase(idle);
        }
        connections_.push_back(std::move(fresh));
    }
}

std::size_t ListenerCore::heldBytes() const {
    std::size_t bytes = 0;
    for (const Connection& connection : connections_) bytes += connection.held.size();
    return bytes;
}

// One receive; false when the connection is to be closed.
bool ListenerCore::receiveFrom(Connection& connection) {
    const std::size_t before = connection.held.size();
    connection.held.resize(before + kReceiveBytes);
    const IoResult got = VornPlatform::receive(connection.socket.handle(),
                                               connection.held.data() + before, kReceiveBytes);
    connection.held.resize(before + got.count);
    if (got.error) return got.error.condition() == OsCondition::WouldBlock;
    if (got.count == 0) return false;
    if (takeDeliveries(connection) && heldBytes() <= options_.maxHeldBytes) return true;
    giveUp(connection.held);
    return false;
}

// Counts a delivery that will never be complete.
void ListenerCore::giveUp(std::string_view begun) {
    ++rejected_;
    if (begun.size() < 4) return;
    if (isOurs(static_cast<std::int32_t>(VornNet::decode32(begun.data())))) ++lost_;
}

// False when what came can never become a delivery.
bool ListenerCore::takeDeliveries(Connection& connection) {
    std::string_view left = connection.held;
    DecodeOutcome outcome = DecodeOutcome::Complete;
    while (!left.empty() && outcome == DecodeOutcome::Complete) {
        RuvoDelivery delivery;
        std::size_t consumed = 0;
        outcome = decodeDelivery(left, options_, delivery, consumed);
        if (outcome != DecodeOutcome::Complete) break;
        left.remove_prefix(consumed);
        if (keep(std::move(delivery))) connection.proven = true;
    }
    connection.held.erase(0, connection.held.size() - left.size());
    if (connection.held.size() < kReceiveBytes && connection.held.capacity() > kKeptCapacity) {
        connection.held.shrink_to_fit();  // one large event is no reason to stay large
    }
    return outcome != DecodeOutcome::Invalid;
}

void ListenerCore::receiveDatagram() {
    datagram_.resize(kReceiveBytes);
    VornPlatform::SocketAddress from;
    VornPlatform::SocketAddress to;
    const IoResult got = VornPlatform::receiveFrom(socket_.handle(), datagram_.data(),
                                                   datagram_.size(), from, to);
    if (got.error) return;  // of this datagram only
    RuvoDelivery delivery;
    std::size_t consumed = 0;
    const std::string_view bytes(datagram_.data(), got.count);
    const DecodeOutcome outcome = decodeDelivery(bytes, options_, delivery, consumed);
    if (outcome == DecodeOutcome::Invalid) {
        giveUp(bytes);
        return;
    }
    if (outcome != DecodeOutcome::Complete || consumed != bytes.size()) {
        ++rejected_;
        return;
    }
    keep(std::move(delivery));
}

bool ListenerCore::keep(RuvoDelivery&& delivery) {
    if (!isOurs(delivery.handle)) {
        ++rejected_;
        return false;
    }
    ready_.push_back(std::move(delivery));
    return true;
}

std::int32_t ListenerCore::newHandle() {
    std::random_device random;
    std::uniform_int_distribution<std::int32_t> choose(1);
    std::int32_t handle = choose(random);
    while (!handles_.insert(handle).second) handle = choose(random);
    return handle;
}

RuvoListener::RuvoListener(const RuvoListenerOptions& options)
    : core_(std::make_unique<ListenerCore>(options)) {}

RuvoListener::~RuvoListener() = default;
RuvoListener::RuvoListener(RuvoListener&&) noexcept = default;
RuvoListener& RuvoListener::operator=(RuvoListener&&) noexcept = default;

const std::string& RuvoListener::remoteName() const { return core_->remoteName(); }

std::int32_t RuvoListener::newHandle() { return core_->newHandle(); }

std::optional<RuvoDelivery> RuvoListener::next(milliseconds timeout) {
    return core_->next(timeout);
}

bool RuvoListener::wasWoken() const { return core_->wasWoken(); }

void RuvoListener::wake() { core_->wake(); }

std::uint64_t RuvoListener::rejected() const { return core_->rejected(); }

std::uint64_t RuvoListener::lost() const { return core_->lost(); }

}  // namespace Ruvo
