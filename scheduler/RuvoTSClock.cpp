#include "scheduler/RuvoTSClock.h"

#include <atomic>
#include <chrono>

namespace RuvoService {
namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;

class MachineClock final : public RuvoTSClock {
public:
    std::int64_t wallMs() const override {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        return std::chrono::floor<milliseconds>(now).count();
    }
    std::int64_t elapsedMs() const override {
        return duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count();
    }
};

std::atomic<RuvoTSClock*> inUse{nullptr};

}  // namespace

RuvoTSClock::~RuvoTSClock() = default;

RuvoTSClock& RuvoTSClock::current() {
    static MachineClock* const machine = new MachineClock;
    RuvoTSClock* const other = inUse.load(std::memory_order_acquire);
    return other != nullptr ? *other : *machine;
}

void RuvoTSClock::setCurrentForTest(RuvoTSClock* clock) {
    inUse.store(clock, std::memory_order_release);
}

}  // namespace RuvoService
