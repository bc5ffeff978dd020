#pragma once

#include <algorithm>
#include <chrono>
#include <limits>

namespace Ruvo {

// A moment after which an operation gives up, or none.
class Deadline {
public:
    // `limit` from now; zero or less: never.
    explicit Deadline(std::chrono::milliseconds limit) : limited_(limit.count() > 0) {
        // Longer limits would overflow the clock.
        constexpr std::chrono::hours kLongest(24 * 365);
        if (limited_) end_ = Clock::now() + std::min<Clock::duration>(limit, kLongest);
    }

    bool isOver() const { return limited_ && Clock::now() >= end_; }

    // For a wait of the system: -1 without a limit, else what is left, rounded up.
    int millisecondsLeft() const {
        if (!limited_) return -1;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now());
        constexpr long long kMost = std::numeric_limits<int>::max();
        return static_cast<int>(std::clamp<long long>(left.count(), 0, kMost));
    }

private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point end_{};
    bool limited_;
};

}  // namespace Ruvo
