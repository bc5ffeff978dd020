#include "scheduler/RuvoTSTimer.h"

#include "runtime/support/VornLogging.h"
#include "scheduler/RuvoTSClock.h"
#include "scheduler/RuvoTSNotifications.h"
#include "scheduler/RuvoTSRuns.h"

#include <exception>

namespace RuvoService {
namespace {

constexpr std::int64_t kMsASecond = 1000;
constexpr std::int32_t kRetrySeconds = 1;  // while the system has no means to give

}  // namespace

// Nobody holds the owner, so the timer waits for nothing; a receiver that came
// too late for its owner may still be leaving.
RuvoTSTimer::~RuvoTSTimer() { stop(); }

void RuvoTSTimer::startToTime(std::int32_t seconds, std::int64_t wallMs) {
    const std::int64_t fullSecond = wallMs - (wallMs % kMsASecond + kMsASecond) % kMsASecond;
    RuvoTSTimeKeeper::getInstance().arm(*this, &owner_, true, fullSecond + seconds * kMsASecond);
}

void RuvoTSTimer::startToWait(std::int32_t seconds) {
    const std::int64_t now = RuvoTSClock::current().elapsedMs();
    RuvoTSTimeKeeper::getInstance().arm(*this, &owner_, false, now + seconds * kMsASecond);
}

void RuvoTSTimer::startToRetry() noexcept {
    do {
        try {
            return startToWait(kRetrySeconds);
        } catch (const std::exception&) {
        }
    } while (RuvoTSRuns::getInstance().pauseForShortage());
}

bool RuvoTSTimer::hasten() noexcept { return RuvoTSTimeKeeper::getInstance().hasten(*this); }

void RuvoTSTimer::disarm() { RuvoTSTimeKeeper::getInstance().disarm(*this); }

void RuvoTSTimer::timerFired() {
    // Goes last of all here: it may take this timer with it.
    const auto owner = RuvoTSTimeKeeper::getInstance().claim(*this);
    if (!owner) return;
    const RuvoTSTimerNotification notification;
    VORN_LOG(9, "RuvoTSTimer::set enter NOTIF=" << static_cast<const void*>(&notification));
    try {
        notify(notification);
    } catch (const std::exception& e) {
        // No memory to tell anybody.
        VORN_LOG(2, "RuvoTSTimer::set: exception: " << e.what());
        startToRetry();
    }
    getEvent().set();
    VORN_LOG(9, "RuvoTSTimer::set exit");
}

}  // namespace RuvoService
