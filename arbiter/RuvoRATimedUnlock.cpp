#include "arbiter/RuvoRATimedUnlock.h"

#include "runtime/net/VornConnection.h"
#include "runtime/support/VornLogging.h"

#include <algorithm>
#include <chrono>
#include <new>

namespace RuvoService {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// How often a waiting client is looked for. What a client that has gone leaves
// behind, a thread and a connection, does not stay longer than this, whatever
// its wait.
constexpr milliseconds kLookForClient{1000};

}  // namespace

void RuvoRAWakeUps::add(const EventPointer& event) noexcept {
    try {
        events_.push_back(event);
    } catch (const std::bad_alloc&) {
        event->set();
    }
}

void RuvoRAWakeUps::wakeAll() {
    for (const EventPointer& event : events_) event->set();
    events_.clear();
}

RuvoRATimedUnlock::RuvoRATimedUnlock(RuvoRAEngine::RANode& node, VornNet::VornConnection* client)
    : node_(node), client_(client) {
    node_.addDependent(*this);
    // Last: nothing takes it back when a constructor fails.
    if (client_ != nullptr) client_->setAbortEvent(eventUnlock_.get());
}

RuvoRATimedUnlock::~RuvoRATimedUnlock() {
    node_.removeDependent(*this);
    if (client_ != nullptr) client_->setAbortEvent(nullptr);
}

bool RuvoRATimedUnlock::wait(int waitMs) {
    const bool limited = waitMs >= 0;
    const auto end = Clock::now() + milliseconds(std::max(waitMs, 0));
    // The node may have been unlocked since the caller saw it locked and before we
    // were registered. From here on no unlock is missed, unless there was no memory
    // to tell us: hence the look each time.
    const std::uint16_t unlocksBefore = node_.look().unlocks;
    while (!unlocked_) {
        const auto found = node_.look();
        if (!found.locked) {
            const bool forgotten =
                found.unlocks != unlocksBefore && found.toldUnlocks == found.unlocks && !unlocked_;
            if (forgotten) VORN_LOG(2, "RuvoRATimedUnlock::wait: unlocked, and we were not told");
            break;
        }
        if (client_ != nullptr && client_->isPeerGone()) {
            VORN_LOG(9, "RuvoRATimedUnlock::wait: the client has gone");
            return false;
        }
        milliseconds slice = client_ != nullptr ? kLookForClient : milliseconds::max();
        if (limited) {
            const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
            if (left <= milliseconds::zero()) return false;
            slice = std::min(slice, left);
        }
        eventUnlock_->wait(slice == milliseconds::max() ? VornSupport::VornEvent::kForever
                                                        : static_cast<int>(slice.count()));
    }
    VORN_LOG(9, "RuvoRATimedUnlock::wait: node unlocked before timer expired");
    return true;
}

void RuvoRATimedUnlock::handleNotification(VornSupport::VornCollaborator&,
                                           const VornSupport::VornNotification& notification) {
    VORN_LOG(9, "RuvoRATimedUnlock::handleNotification: enter");
    VORN_LOG(9, "RuvoRATimedUnlock::handleNotification: setting eventUnlock");
    if (!unlocked_.exchange(true)) {
        const auto* const ofNode =
            dynamic_cast<const RuvoRAEngine::RANodeNotification*>(&notification);
        RuvoRAWakeUps* const wakeUps = ofNode != nullptr ? ofNode->wakeUps() : nullptr;
        if (wakeUps != nullptr) {
            wakeUps->add(eventUnlock_);
        } else {
            eventUnlock_->set();
        }
    }
    VORN_LOG(9, "RuvoRATimedUnlock::handleNotification: exit");
}

}  // namespace RuvoService
