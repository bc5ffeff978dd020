#pragma once

#include "runtime/net/VornDeliveryBacklog.h"
#include "runtime/net/VornProxyDependent.h"
#include "runtime/net/VornRemoteName.h"
#include "runtime/platform/Export.h"
#include "runtime/platform/Socket.h"
#include "runtime/platform/SocketAddress.h"
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
    static constexpr std::size_t kShare = 4 * 1024;      // shared content that is not copied
    static constexpr std::size_t kMostDatagram = 60000;  // a delivery over UDP

    // How long a client is left alone after so many failures in a row before
    // this one (0 or more): from 100 ms, doubled up to 30 s.
    static std::chrono::milliseconds backOffAfter(int failures);

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
    // One step of that: takes out the channels that are done, and then waits,
    // `longest` at most, until one of the others can be sent to or is to be
    // given up.
    static void sendRound(std::vector<Pointer>& channels, std::size_t limit,
                          std::chrono::milliseconds longest);

private:
    friend class VornDeliveryGathering;
    enum class State { Closed, Resolving, Connecting, Open };

    explicit VornDeliveryChannel(const std::string& remoteName);

    void append(std::string_view head, const VornDeliveryBacklog::Owner& owner,
                std::string_view rest, VornDeliveryGathering* gathering) VORN_EXCLUDES(mutex_);
    bool progress(std::size_t limit, VornPlatform::SocketWait& wait, Clock::time_point& deadline)
        VORN_EXCLUDES(mutex_);

    void refuseWhileBackingOffLocked() VORN_REQUIRES(mutex_);
    void openLocked() VORN_REQUIRES(mutex_);
    void resolved(VornPlatform::Resolved found) VORN_EXCLUDES(mutex_);
    void connectNextLocked() VORN_REQUIRES(mutex_);
    void finishConnectLocked() VORN_REQUIRES(mutex_);
    void reopenIfPeerLeftLocked() VORN_REQUIRES(mutex_);
    void sendLocked() VORN_REQUIRES(mutex_);
    VornPlatform::IoResult sendNextLocked() VORN_REQUIRES(mutex_);
    void noteSentLocked(std::size_t bytes) VORN_REQUIRES(mutex_);
    Clock::time_point deadlineLocked() const VORN_REQUIRES(mutex_);
    void noteStallLocked(VornDeliveryGathering& gathering) VORN_REQUIRES(mutex_);
    void failStalledLocked() VORN_REQUIRES(mutex_);
    void failLocked(const std::string& reason, bool stalled) VORN_REQUIRES(mutex_);
    // It stalled not long ago: that it connects again says little.
    bool isOnTrialLocked() const VORN_REQUIRES(mutex_) {
        return lastFailureStalled_ && failures_ > 0;
    }

    const std::string name_;
    const std::optional<VornRemoteName> remote_;

    VornSupport::VornMutex mutex_;
    State state_ VORN_GUARDED_BY(mutex_) = State::Closed;
    VornPlatform::Socket socket_ VORN_GUARDED_BY(mutex_);
    std::vector<VornPlatform::SocketAddress> addresses_ VORN_GUARDED_BY(mutex_);
    std::size_t nextAddress_ VORN_GUARDED_BY(mutex_) = 0;

    VornDeliveryBacklog backlog_ VORN_GUARDED_BY(mutex_);
    // Since when the client has not taken what was there for it.
    std::optional<Clock::time_point> refusedSince_ VORN_GUARDED_BY(mutex_);

    int failures_ VORN_GUARDED_BY(mutex_) = 0;  // in a row; sets the back-off
    bool lastFailureStalled_ VORN_GUARDED_BY(mutex_) = false;
    unsigned failureCount_ VORN_GUARDED_BY(mutex_) = 0;  // ever
    std::string failure_ VORN_GUARDED_BY(mutex_);        // the last one's reason
    Clock::time_point nextTry_ VORN_GUARDED_BY(mutex_){};
    Clock::time_point openedAt_ VORN_GUARDED_BY(mutex_){};
    // In whose lists it stands.
    const VornDeliveryGathering* gatheredBy_ VORN_GUARDED_BY(mutex_) = nullptr;
    const VornDeliveryGathering* stalledIn_ VORN_GUARDED_BY(mutex_) = nullptr;
};

}  // namespace VornNet
