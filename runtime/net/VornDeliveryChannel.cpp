#include "runtime/net/VornDeliveryChannel.h"

#include "runtime/net/VornContentConnection.h"
#include "runtime/net/VornDeliveryGathering.h"
#include "runtime/net/VornNetLimits.h"
#include "runtime/net/WireCodec.h"
#include "runtime/platform/NativeThread.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"
#include "runtime/support/VornThread.h"

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
// A client for which this much is held is waited for on the spot.
constexpr std::size_t kMostHeld = 1024 * 1024;
constexpr std::size_t kKeptCapacity = 64 * 1024;  // of a buffer that has run empty
constexpr milliseconds kFirstBackOff{100};
constexpr milliseconds kLongestBackOff{30000};
// A client that once stopped reading is trusted again after this time without
// a failure: that it connects says little, its system does that for it.
constexpr auto kTrust = std::chrono::seconds(30);

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

    // Written without the lock: addContent is the proxy's own code.
    auto* const gathering = VornDeliveryGathering::current();
    std::string own;
    std::string& delivery = gathering != nullptr ? gathering->scratch_ : own;
    delivery.clear();
    appendInt(delivery, proxy.getHandle());
    const bool datagram = remote_->kind == VornRemoteName::Kind::Udp;
    VornContentConnection content(delivery, datagram ? kMostDatagram : kMostStream);
    proxy.addContent(content, notification);
    if (content.hasFailed()) {
        throw VornException("delivery to " + name_ + " could not be written or is too large");
    }

    append(delivery, gathering);
    if (delivery.capacity() > kKeptCapacity) std::string().swap(delivery);
}

void VornDeliveryChannel::append(std::string_view delivery, VornDeliveryGathering* gathering) {
    VornMutexLock lock(mutex_);
    refuseWhileBackingOffLocked();
    pending_.append(delivery);
    ends_.push_back(pending_.size());
    const unsigned failuresBefore = failureCount_;
    const std::size_t unsent = unsentLocked();
    const std::size_t held = gathering != nullptr ? kGather : 0;
    if (unsent > held) {
        if (state_ == State::Closed) openLocked();
        sendLocked();
    }
    if (gathering != nullptr && failureCount_ == failuresBefore) {
        if (gatheredBy_ != gathering) {
            gatheredBy_ = gathering;
            gathering->held_.push_back(shared_from_this());
        }
        if (unsentLocked() > kGather) gathering->addStalled(shared_from_this());
    }
    if (unsentLocked() > (gathering != nullptr ? kMostHeld : 0)) {
        lock.unlock();
        std::vector<Pointer> self{shared_from_this()};
        waitFor(self, held);
        lock.lock();
    }
    if (failureCount_ != failuresBefore) throw VornException(failure_);
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
    auto self = std::make_unique<Pointer>(shared_from_this());
    const auto error = VornPlatform::startThread(
        {.name = "VornResolve", .stackBytes = VornSupport::VornThread::kClientStack},
        &resolveInBackground, self.get());
    if (error) {
        failLocked("no thread to look up the host: " + error.text(), false);
    } else {
        self.release();  // the thread's from here on
    }
}

void VornDeliveryChannel::resolveInBackground(void* raw) {
    const std::unique_ptr<Pointer> self(static_cast<Pointer*>(raw));
    VornDeliveryChannel& channel = **self;
    auto resolved = VornPlatform::resolve(channel.remote_->host, channel.remote_->port);
    VornMutexLock lock(channel.mutex_);
    if (channel.state_ != State::Resolving) return;  // given up meanwhile
    channel.state_ = State::Closed;
    channel.addresses_ = std::move(resolved.addresses);
    if (channel.addresses_.empty()) {
        channel.failLocked(resolved.problem, false);
    } else {
        channel.connectNextLocked();
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
    rewindToDeliveryLocked();
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
    if (unsentLocked() == 0) return;
    if (state_ == State::Closed) openLocked();
    if (state_ == State::Open) reopenIfPeerLeftLocked();
    if (state_ == State::Connecting) finishConnectLocked();
    while (state_ == State::Open && unsentLocked() > 0) {
        const std::string_view piece = nextPieceLocked();
        const auto result = VornPlatform::send(socket_.handle(), piece.data(), piece.size());
        if (!result.error) {
            sent_ += result.count;
            dropSentLocked();
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

// What one send may hold: of a stream everything, of datagrams one delivery.
std::string_view VornDeliveryChannel::nextPieceLocked() const {
    const std::string_view all(pending_);
    if (remote_->kind == VornRemoteName::Kind::Tcp) return all.substr(sent_);
    return all.substr(sent_, ends_[endsPassed_] - sent_);
}

void VornDeliveryChannel::dropSentLocked() {
    while (endsPassed_ < ends_.size() && ends_[endsPassed_] <= sent_) ++endsPassed_;
    if (unsentLocked() <= kGather) refusedSince_.reset();
    if (unsentLocked() > 0) return;
    pending_.clear();
    ends_.clear();
    sent_ = endsPassed_ = 0;
    if (pending_.capacity() > kKeptCapacity) std::string().swap(pending_);
    if (!lastFailureStalled_ || Clock::now() - openedAt_ > kTrust) failures_ = 0;
}

// A new connection begins with a whole delivery: one that the old connection
// took in part is sent again from its beginning.
void VornDeliveryChannel::rewindToDeliveryLocked() {
    sent_ = endsPassed_ > 0 ? ends_[endsPassed_ - 1] : 0;
}

void VornDeliveryChannel::failLocked(const std::string& reason, bool stalled) {
    const auto lost = ends_.size() - endsPassed_;
    const auto doubled = kFirstBackOff * (1 << std::min(failures_, 9));
    const auto backOff = std::min<milliseconds>(doubled, kLongestBackOff);
    ++failures_;
    ++failureCount_;
    lastFailureStalled_ = stalled;
    failure_ = "delivery to " + name_ + " failed: " + reason;
    nextTry_ = Clock::now() + backOff;
    socket_.close();
    state_ = State::Closed;
    addresses_.clear();  // looked up anew the next time
    std::string().swap(pending_);
    ends_.clear();
    sent_ = endsPassed_ = 0;
    refusedSince_.reset();
    VORN_LOG(3, "VornDeliveryChannel::send: " << failure_ << "; deliveries lost: " << lost
                                              << ", next try in "
                                              << static_cast<long>(backOff.count()) << " ms");
}

// Sends what can be sent. True when that is enough or the channel has failed;
// else what to wait for and until when.
bool VornDeliveryChannel::progress(std::size_t limit, VornPlatform::SocketWait& wait,
                                   Clock::time_point& deadline) {
    VornMutexLock lock(mutex_);
    sendLocked();
    if (unsentLocked() <= limit) return true;
    deadline = refusedSince_.value_or(Clock::now()) + timeOut();
    if (Clock::now() >= deadline) {
        failLocked("it did not take its bytes within " + std::to_string(timeOut().count()) + " ms",
                   true);
        return true;
    }
    wait = {.socket = socket_.handle(), .wantWrite = true};
    return false;
}

void VornDeliveryChannel::waitFor(std::vector<Pointer>& channels, std::size_t limit) {
    std::vector<VornPlatform::SocketWait> waits;
    for (;;) {
        waits.clear();
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
        if (channels.empty()) return;
        const auto left = std::chrono::ceil<milliseconds>(wakeUp - Clock::now()).count();
        VornPlatform::waitReady(waits, static_cast<int>(std::max<long long>(left, 0)));
    }
}

}  // namespace VornNet
