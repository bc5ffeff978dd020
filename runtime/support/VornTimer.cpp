#include "runtime/support/VornTimer.h"

#include "runtime/support/VornTimerService.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <vector>

namespace VornSupport {
namespace {

using Millis = std::chrono::duration<std::int64_t, std::milli>;

// The clock holds 292 years, counted in nanoseconds.
constexpr Millis kLongest = std::chrono::hours(24) * 365 * 50;

// `count` units, within what the clock can hold.
template <class Unit>
Millis within(long count) {
    const std::int64_t most = std::chrono::duration_cast<Unit>(kLongest).count();
    return Unit(std::clamp<std::int64_t>(count, -most, most));
}

}  // namespace

VornTimer::VornTimer() : state_(std::make_shared<State>(*this)) {}

VornTimer::~VornTimer() { VornTimerService::getInstance().stop(state_); }

void VornTimer::start(long milliseconds, bool oneShot) { start(0, milliseconds, oneShot); }

void VornTimer::start(long seconds, long milliseconds, bool oneShot) {
    const Millis given =
        within<std::chrono::seconds>(seconds) + within<std::chrono::milliseconds>(milliseconds);
    VornTimerService::getInstance().arm(state_, std::max(given, Millis(0)),
                                        std::max(given, Millis(1)), oneShot);
}

void VornTimer::stop() { VornTimerService::getInstance().stop(state_); }
void VornTimer::reset() { VornTimerService::getInstance().rearm(state_); }
bool VornTimer::isOneShot() const { return VornTimerService::getInstance().isOneShot(*state_); }
bool VornTimer::isArmed() const { return VornTimerService::getInstance().isArmed(*state_); }
std::uint64_t VornTimer::additionsForTest() { return VornTimerService::getInstance().additions(); }
int VornTimer::armedCount() { return VornTimerService::getInstance().armedCount(); }

void VornTimer::timerFired() { event_.set(); }

VornEventTimerThread::VornEventTimerThread(const std::string& name, VornTimer& timer)
    : VornThread(name), timer_(timer) {}

VornEventTimerThread::~VornEventTimerThread() = default;

void VornEventTimerThread::stop() {
    VornThread::stop();
    stopEvent_.set();
}

// The event only wakes; the flag, which start() clears, decides. So a stop()
// that came after the end of one run does not end the next.
int VornEventTimerThread::run() {
    std::vector<VornEvent*> events{&stopEvent_, &timer_.getEvent()};
    while (!isStopRequested()) {
        if (VornEvent::wait(events, false, VornEvent::kForever) == 1 && !tick()) break;
    }
    return 0;
}

bool VornEventTimerThread::tick() { return true; }

}  // namespace VornSupport
