#pragma once

#include "runtime/net/VornProxyDependent.h"
#include "runtime/net/VornRemoteName.h"
#include "runtime/platform/Export.h"
#include "runtime/platform/Socket.h"
#include "runtime/support/VornMutex.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace VornNet {

class VornDeliveryGathering;

// The one connection over which all registrations of a remote name are told.
// Opened at the first delivery, kept, and closed with the last registration.
// Deliveries go out whole, in the order of deliver(). A client that cannot be
// reached, or does not take its bytes within "ruvod.limits.delivery-ms", loses
// what is held for it, and is not tried again before a back-off has passed that
// doubles from 100 ms to 30 s. Any thread; only waitFor() waits for the client.
class VORN_EXPORT VornDeliveryChannel
    : public std::enable_shared_from_this<VornDeliveryChannel> {
public:
    using Clock = std::chrono::steady_clock;
    using Pointer = std::shared_ptr<VornDeliveryChannel>;

    static constexpr std::size_t kGather = 16 * 1024;    // bytes held before they are sent
    static constexpr std::size_t kMostDatagram = 60000;  // a delivery over UDP

    // The channel of a remote name: made when nobody has it yet.
    static Pointer forName(const std::string& remoteName);
    ~VornDeliveryChannel();
    VornDeliveryChannel(const VornDeliveryChannel&) = delete;
    VornDeliveryChannel& operator=(const VornDeliveryChannel&) = delete;

    // See VornProxyDependent::remoteNotify.
    void deliver(VornProxyDependent& proxy, const VornSupport::VornNotification& notification);

    // Sends until at most `limit` bytes of each channel are unsent or the
    // channel has failed. All of them share the waiting.
    static void waitFor(std::vector<Pointer>& channels, std::size_t limit);

private:
    friend class VornDeliveryGathering;
    enum class State { Closed, Resolving, Connecting, Open };

    explicit VornDeliveryChannel(const std::string& remoteName);

    void append(std::string_view delivery, VornDeliveryGathering* gathering) VORN_EXCLUDES(mutex_);
    bool progress(std::size_t limit, VornPlatform::SocketWait& wait, Clock::time_point& deadline)
        VORN_EXCLUDES(mutex_);

    void refuseWhileBackingOffLocked() VORN_REQUIRES(mutex_);
    void openLocked() VORN_REQUIRES(mutex_);
    void connectNextLocked() VORN_REQUIRES(mutex_);
    void finishConnectLocked() VORN_REQUIRES(mutex_);
    void reopenIfPeerLeftLocked() VORN_REQUIRES(mutex_);
    void sendLocked() VORN_REQUIRES(mutex_);
    std::string_view nextPieceLocked() const VORN_REQUIRES(mutex_);
    void dropSentLocked() VORN_REQUIRES(mutex_);
    void rewindToDeliveryLocked() VORN_REQUIRES(mutex_);
    void failLocked(const std::string& reason, bool stalled) VORN_REQUIRES(mutex_);
    std::size_t unsentLocked() const VORN_REQUIRES(mutex_) { return pending_.size() - sent_; }
    static void resolveInBackground(void* raw);

    const std::string name_;
    const std::optional<VornRemoteName> remote_;

    VornSupport::VornMutex mutex_;
    State state_ VORN_GUARDED_BY(mutex_) = State::Closed;
    VornPlatform::Socket socket_ VORN_GUARDED_BY(mutex_);
    std::vector<VornPlatform::SocketAddress> addresses_ VORN_GUARDED_BY(mutex_);
    std::size_t nextAddress_ VORN_GUARDED_BY(mutex_) = 0;

    std::string pending_ VORN_GUARDED_BY(mutex_);           // deliveries, one behind the other
    std::vector<std::size_t> ends_ VORN_GUARDED_BY(mutex_); // where each of them ends
    std::size_t sent_ VORN_GUARDED_BY(mutex_) = 0;          // bytes of pending_ that have gone out
    std::size_t endsPassed_ VORN_GUARDED_BY(mutex_) = 0;    // entries of ends_ up to sent_
    // Since when the client has not taken what was there for it.
    std::optional<Clock::time_point> refusedSince_ VORN_GUARDED_BY(mutex_);

    int failures_ VORN_GUARDED_BY(mutex_) = 0;  // in a row; sets the back-off
    bool lastFailureStalled_ VORN_GUARDED_BY(mutex_) = false;
    unsigned failureCount_ VORN_GUARDED_BY(mutex_) = 0;  // ever
    std::string failure_ VORN_GUARDED_BY(mutex_);        // the last one's reason
    Clock::time_point nextTry_ VORN_GUARDED_BY(mutex_){};
    Clock::time_point openedAt_ VORN_GUARDED_BY(mutex_){};
    const VornDeliveryGathering* gatheredBy_ VORN_GUARDED_BY(mutex_) = nullptr;
};

}  // namespace VornNet
