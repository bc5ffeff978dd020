#pragma once

#include "runtime/platform/Signals.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace Ruvoctl {

// Requests to end, from the thread that is told of them to the one that heeds
// them, in the order in which they came. Of equal ones that come before the first is
// taken one is kept.
class EndRequests {
public:
    void add(const VornPlatform::EndRequest& request) noexcept {
        if (request.graceMs >= 0) graceMs_.store(request.graceMs);
        std::uint64_t none = kNone;
        arrivals_[indexOf(request)].compare_exchange_strong(none, ++count_);
        any_.store(true);
    }
    bool any() const noexcept { return any_.load(); }

    std::optional<VornPlatform::EndRequest> next() noexcept {
        std::size_t first = 0;
        std::uint64_t earliest = kNone;
        for (std::size_t i = 0; i < arrivals_.size(); ++i) {
            const std::uint64_t arrival = arrivals_[i].load();
            if (arrival == kNone || (earliest != kNone && arrival > earliest)) continue;
            first = i;
            earliest = arrival;
        }
        if (earliest == kNone) return std::nullopt;
        arrivals_[first].store(kNone);
        return VornPlatform::EndRequest{static_cast<int>(first / 2) + 1, first % 2 != 0,
                                        graceMs_.load()};
    }

private:
    static constexpr std::size_t kSignals = 64;
    static constexpr std::uint64_t kNone = 0;

    static std::size_t indexOf(const VornPlatform::EndRequest& request) {
        const auto number = static_cast<std::size_t>(request.signal - 1) % kSignals;
        return 2 * number + (request.reachedOthers ? 1 : 0);
    }

    // Of each signal twice: the one that we alone were told of, and the other.
    std::array<std::atomic<std::uint64_t>, 2 * kSignals> arrivals_{};
    std::atomic<std::uint64_t> count_{0};
    std::atomic<int> graceMs_{-1};
    std::atomic<bool> any_{false};
};

}  // namespace Ruvoctl
