#pragma once

#include "runtime/platform/Signals.h"

#include <atomic>
#include <cstdint>
#include <optional>

namespace Ruvoctl {

// Requests to end, from the thread that is told of them to the one that heeds
// them. Of equal ones that come before the first is taken one is kept.
class EndRequests {
public:
    void add(const VornPlatform::EndRequest& request) noexcept {
        if (request.graceMs >= 0) graceMs_.store(request.graceMs);
        waiting_.fetch_or(bitOf(request.signal, request.reachedOthers));
        any_.store(true);
    }
    bool any() const noexcept { return any_.load(); }

    std::optional<VornPlatform::EndRequest> next() noexcept {
        const std::uint64_t waiting = waiting_.load();
        for (int signal = 0; signal < kSignals; ++signal) {
            for (const bool reachedOthers : {false, true}) {
                const std::uint64_t bit = bitOf(signal, reachedOthers);
                if ((waiting & bit) == 0) continue;
                waiting_.fetch_and(~bit);
                return VornPlatform::EndRequest{signal, reachedOthers, graceMs_.load()};
            }
        }
        return std::nullopt;
    }

private:
    static constexpr int kSignals = 32;

    static std::uint64_t bitOf(int signal, bool reachedOthers) {
        const int place = (signal & (kSignals - 1)) + (reachedOthers ? kSignals : 0);
        return std::uint64_t{1} << place;
    }

    std::atomic<std::uint64_t> waiting_{0};
    std::atomic<int> graceMs_{-1};
    std::atomic<bool> any_{false};
};

}  // namespace Ruvoctl
