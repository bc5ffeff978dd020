#include "runtime/net/VornDeliveryChannel.h"

#include "runtime/net/VornContentConnection.h"
#include "runtime/net/VornDeliveryGathering.h"
#include "runtime/net/VornHostLookup.h"
#include "runtime/net/VornNetLimits.h"
#include "runtime/net/WireCodec.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace VornNet {
namespace {

using VornPlatform::OsCondition;
using VornSupport::VornException;
using VornSupport::VornMutexLock;
using std::chrono::milliseconds;

constexpr std::size_t kMostStream = 1u << 30;  // a delivery over TCP
constexpr std::size_t kKeptCapacity = 64 * 1024;  // of a buffer that is used again
constexpr milliseconds kFirstBackOff{100};
constexpr milliseconds kLongestBackOff{30000};
// A client that once stopped reading is trusted again after this time without
// a failure: that it connects says little, its system does that for it.
constexpr auto kTrust = std::chrono::seconds(30);
// Until then it gets this long, or a few hundred such clients that are tried
// again one after the other would hold everybody up all the time.
constexpr milliseconds kTrialPatience{50};

// Finds the channel of a name. Holds no reference, so that a channel ends with
// the last proxy that uses it.
class Channels {
public:
    static Channels& getInstance() {
        static Channels* const instance = new Channels;
        return *instance;
    }

    template <class Make>
    VornDeliveryChannel::Pointer find(const std::string& name, Make make) {
        VornMutexLock lock(mutex_);
        auto& entry = byName_[name];
        auto channel = entry.lock();
        if (!channel) entry = channel = make();
        return channel;
    }
    void forget(const std::string& name) {
        VornMutexLock lock(mutex_);
        const auto found = byName_.find(name);
        if (found != byName_.end() && found->second.expired()) byName_.erase(found);
    }

private:
    VornSupport::VornMutex mutex_;
    std::unordered_map<std::string, std::weak_ptr<VornDeliveryChannel>> byName_
        VORN_GUARDED_BY(mutex_);
};

milliseconds timeOut() { return milliseconds(VornNetLimits::getInstance().deliveryMs.load()); }

}  // namespace

VornDeliveryChannel::Pointer VornDeliveryChannel::forName(const std::string& remoteName) {
    return Channels::getInstance().find(
        remoteName, [&] { return Pointer(new VornDeliveryChannel(remoteName)); });
}

VornDeliveryChannel::VornDeliveryChannel(const std::string& remoteName)
    : name_(remoteName), remote_(VornRemoteName::parse(remoteName)) {}

VornDeliveryChannel::~VornDeliveryChannel() {
    if (socket_) VornPlatform::shutdownSend(socket_.handle());
    Channels::getInstance().forget(name_);
}

void VornDeliveryChannel::deliver(VornProxyDependent& proxy,
                                  const VornSupport::VornNotification& notification) {
    if (!remote_) throw VornException("no remote name that can be reached: " + name_);

    auto* const gathering = VornDeliveryGathering::current();
    // Taken, not borrowed: addContent, the proxy's own code, may deliver too.
    std::string head;
    if (gathering != nullptr) head.swap(gathering->scratch_);
    head.clear();
    appendInt(head, proxy.getHandle());
    const bool datagram = remote_->kind == VornRemoteName::Kind::Udp;
    VornContentConnection content(head, datagram ? kMostDatagram : kMostStream,
                                  datagram ? kMostDatagram + 1 : kShare);
    proxy.addContent(content, notification);
    if (content.hasFailed()) {
        throw VornException("delivery to " + name_ + " could not be written or is too large");
    }

    append(head, content.sharedOwner(), content.shared(), gathering);
    if (gathering != nullptr && head.capacity() <= kKeptCapacity) head.swap(gathering->scratch_);
}

void VornDeliveryChannel::append(std::string_view head, const VornDeliveryBacklog::Owner& owner,
                                 std::string_view rest, VornDeliveryGathering* gathering) {
    VornMutexLock lock(mutex_);
    refuseWhileBackingOffLocked();
    backlog_.add(head, owner, rest);
    const unsigned failuresBefore = failureCount_;
    if (backlog_.unsent() > (gathering != nullptr ? kGather : 0)) sendLocked();
    if (failureCount_ == failuresBefore && backlog_.unsent() > 0) {
        if (gathering == nullptr) {
            lock.unlock();
            std::vector<Pointer> self{shared_from_this()};
            waitFor(self, 0);
            lock.lock();
        } else {
            if (gatheredBy_ != gathering) {
                gatheredBy_ = gathering;
                gathering->held_.push_back(shared_from_this());
            }
            if (backlog_.unsent() > kGather) noteStallLocked(*gathering);
        }
    }
    if (failureCount_ != failuresBefore) throw VornException(failure_);
}

// A client on trial is not waited for: its time passes while others are told.
void VornDeliveryChannel::noteStallLocked(VornDeliveryGathering& gathering) {
    if (isOnTrialLocked()) {
        if (Clock::now() >= deadlineLocked()) failStalledLocked();
    } else if (stalledIn_ != &gathering) {
        stalledIn_ = &gathering;
        gathering.stalled_.push_back(shared_from_this());
    }
}

void VornDeliveryChannel::refuseWhileBackingOffLocked() {
    if (failures_ == 0 || state_ != State::Closed || Clock::now() >= nextTry_) return;
    throw VornException("delivery to " + name_ + " waits for its back-off: " + failure_);
}

void VornDeliveryChannel::openLocked() {
    refusedSince_ = Clock::now();
    nextAddress_ = 0;
    if (addresses_.empty()) {
        if (const auto numeric = VornPlatform::SocketAddress::parse(remote_->host, remote_->port)) {
            addresses_.push_back(*numeric);
        }
    }
    if (!addresses_.empty()) {
        connectNextLocked();
        return;
    }
    // The system's name service may take longer than a delivery may.
    state_ = State::Resolving;
    try {
        VornHostLookup::getInstance().find(
            remote_->host, remote_->port,
            [weak = weak_from_this()](VornPlatform::Resolved found) {
                if (const auto channel = weak.lock()) channel->resolved(std::move(found));
            });
    } catch (const std::exception& e) {
        failLocked(e.what(), false);
    }
}

void VornDeliveryChannel::resolved(VornPlatform::Resolved found) {
    VornMutexLock lock(mutex_);
    if (state_ != State::Resolving) return;  // given up meanwhile
    state_ = State::Closed;
    addresses_ = std::move(found.addresses);
    if (addresses_.empty()) {
        failLocked(found.problem, false);
    } else {
        connectNextLocked();
    }
}

// Goes through the host's addresses until one lets itself be connected to.
void VornDeliveryChannel::connectNextLocked() {
    VornPlatform::OsError error;
    while (nextAddress_ < addresses_.size()) {
        const auto& address = addresses_[nextAddress_++];
        const bool datagram = remote_->kind == VornRemoteName::Kind::Udp;
        error = datagram ? VornPlatform::connectUdp(address, socket_)
                         : VornPlatform::startConnectTcp(address, socket_);
        if (error) continue;
        if (datagram) VornPlatform::setNonBlocking(socket_.handle(), true);
        state_ = datagram ? State::Open : State::Connecting;
        openedAt_ = Clock::now();
        return;
    }
    failLocked(error.text(), false);
}

void VornDeliveryChannel::finishConnectLocked() {
    VornPlatform::SocketWait wait{.socket = socket_.handle(), .wantWrite = true};
    VornPlatform::waitReady({&wait, 1}, 0);
    if (!wait.canWrite) return;
    if (const auto error = VornPlatform::pendingError(socket_.handle())) {
        socket_.close();
        state_ = State::Closed;
        if (nextAddress_ < addresses_.size()) {
            connectNextLocked();
        } else {
            failLocked(error.text(), false);
        }
        return;
    }
    state_ = State::Open;
    VornPlatform::setNoDelay(socket_.handle(), true);
    VornPlatform::setKeepAlive(socket_.handle());
    // Also a delivery that an earlier connection took in part begins anew.
    backlog_.rewind();
}

// A client may close and listen again; what is sent into a connection that it
// has closed would be lost without a word. Anything it says is not for us.
void VornDeliveryChannel::reopenIfPeerLeftLocked() {
    if (remote_->kind == VornRemoteName::Kind::Udp) return;
    char ignored[256];
    const auto got = VornPlatform::receiveNow(socket_.handle(), ignored, sizeof ignored);
    const bool ended = !got.error && got.count == 0;
    const bool broken = got.error && got.error.condition() != OsCondition::WouldBlock;
    if (!ended && !broken) return;
    socket_.close();
    state_ = State::Closed;
    openLocked();
}

// Sends what the system takes without waiting.
void VornDeliveryChannel::sendLocked() {
    if (backlog_.unsent() == 0) return;
    if (state_ == State::Closed) openLocked();
    if (state_ == State::Open) reopenIfPeerLeftLocked();
    if (state_ == State::Connecting) finishConnectLocked();
    while (state_ == State::Open && backlog_.unsent() > 0) {
        const auto result = sendNextLocked();
        if (!result.error) {
            noteSentLocked(result.count);
        } else if (result.error.condition() == OsCondition::WouldBlock) {
            if (!refusedSince_) refusedSince_ = Clock::now();
            return;
        } else if (remote_->kind == VornRemoteName::Kind::Udp && nextAddress_ < addresses_.size()) {
            connectNextLocked();  // nobody there: the host's next address
        } else {
            failLocked(result.error.text(), false);
        }
    }
}

// Of a stream as much as goes at once, of datagrams one delivery.
VornPlatform::IoResult VornDeliveryChannel::sendNextLocked() {
    if (remote_->kind == VornRemoteName::Kind::Udp) {
        const std::string_view delivery = backlog_.nextDelivery();
        return VornPlatform::send(socket_.handle(), delivery.data(), delivery.size());
    }
    const auto pieces = backlog_.nextPieces();
    return pieces[1].empty()
               ? VornPlatform::send(socket_.handle(), pieces[0].data(), pieces[0].size())
               : VornPlatform::send(socket_.handle(), pieces[0], pieces[1]);
}

void VornDeliveryChannel::noteSentLocked(std::size_t bytes) {
    backlog_.markSent(bytes);
    if (backlog_.unsent() <= kGather) refusedSince_.reset();
    if (backlog_.unsent() > 0) return;
    if (!lastFailureStalled_ || Clock::now() - openedAt_ > kTrust) failures_ = 0;
}

milliseconds VornDeliveryChannel::backOffAfter(int failures) {
    return std::min<milliseconds>(kFirstBackOff * (1 << std::min(failures, 9)), kLongestBackOff);
}

void VornDeliveryChannel::failLocked(const std::string& reason, bool stalled) {
    const auto lost = backlog_.deliveries();
    const auto backOff = backOffAfter(failures_);
    ++failures_;
    ++failureCount_;
    lastFailureStalled_ = stalled;
    failure_ = "delivery to " + name_ + " failed: " + reason;
    nextTry_ = Clock::now() + backOff;
    socket_.close();
    state_ = State::Closed;
    addresses_.clear();  // looked up anew the next time
    backlog_ = {};
    refusedSince_.reset();
    VORN_LOG(3, "VornDeliveryChannel::send: " << failure_ << "; deliveries lost: " << lost
                                              << ", next try in "
                                              << static_cast<long>(backOff.count()) << " ms");
}

void VornDeliveryChannel::failStalledLocked() {
    failLocked(isOnTrialLocked() ? "it still does not take its bytes"
                                 : "it did not take its bytes within " +
                                       std::to_string(timeOut().count()) + " ms",
               true);
}

// When the client's time ends; while connecting, that of the address that is tried.
VornDeliveryChannel::Clock::time_point VornDeliveryChannel::deadlineLocked() const {
    const milliseconds patience =
        isOnTrialLocked() ? std::min(timeOut(), kTrialPatience) : timeOut();
    const auto whole = refusedSince_.value_or(Clock::now()) + patience;
    if (state_ != State::Connecting || nextAddress_ >= addresses_.size()) return whole;
    return std::min(whole, openedAt_ + timeOut() / static_cast<int>(addresses_.size()));
}

// Sends what can be sent. True when that is enough or the channel has failed;
// else what to wait for and until when.
bool VornDeliveryChannel::progress(std::size_t limit, VornPlatform::SocketWait& wait,
                                   Clock::time_point& deadline) {
    VornMutexLock lock(mutex_);
    sendLocked();
    if (backlog_.unsent() <= limit) return true;
    deadline = deadlineLocked();
    if (Clock::now() >= deadline && state_ == State::Connecting &&
        nextAddress_ < addresses_.size()) {
        socket_.close();
        state_ = State::Closed;
        connectNextLocked();
        if (backlog_.unsent() <= limit) return true;  // failed
        deadline = deadlineLocked();
    }
    if (Clock::now() >= deadline) {
        failStalledLocked();
        return true;
    }
    wait = {.socket = socket_.handle(), .wantWrite = true};
    return false;
}

void VornDeliveryChannel::waitFor(std::vector<Pointer>& channels, std::size_t limit) {
    while (!channels.empty()) sendRound(channels, limit, milliseconds::max());
}

void VornDeliveryChannel::sendRound(std::vector<Pointer>& channels, std::size_t limit,
                                    milliseconds longest) {
    std::vector<VornPlatform::SocketWait> waits;
    // While a name is looked up there is no socket to wait on.
    Clock::time_point wakeUp = Clock::time_point::max();
    std::erase_if(channels, [&](const Pointer& channel) {
        VornPlatform::SocketWait wait;
        Clock::time_point deadline;
        if (channel->progress(limit, wait, deadline)) return true;
        if (wait.socket == VornPlatform::kNoSocket) {
            deadline = std::min(deadline, Clock::now() + milliseconds(10));
        }
        wakeUp = std::min(wakeUp, deadline);
        waits.push_back(wait);
        return false;
    });
    if (channels.empty() || longest <= milliseconds(0)) return;
    const auto left = std::chrono::ceil<milliseconds>(wakeUp - Clock::now());
    const auto wait = std::clamp(left, milliseconds(0), longest);
    VornPlatform::waitReady(waits, static_cast<int>(wait.count()));
}

}  // namespace VornNet
