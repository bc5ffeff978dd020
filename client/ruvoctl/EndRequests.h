#pragma once

#include "runtime/platform/Signals.h"

#include <array>
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
        waiting_[request.reachedOthers].fetch_or(bitOf(request.signal));
        any_.store(true);
    }
    bool any() const noexcept { return any_.load(); }

    std::optional<VornPlatform::EndRequest> next() noexcept {
        for (int signal = 1; signal <= kSignals; ++signal) {
            for (const bool reachedOthers : {false, true}) {
                const std::uint64_t bit = bitOf(signal);
                if ((waiting_[reachedOthers].load() & bit) == 0) continue;
                waiting_[reachedOthers].fetch_and(~bit);
                return VornPlatform::EndRequest{signal, reachedOthers, graceMs_.load()};
            }
        }
        return std::nullopt;
    }

private:
    static constexpr int kSignals = 64;

    static std::uint64_t bitOf(int signal) {
        return std::uint64_t{1} << ((signal - 1) & (kSignals - 1));
    }

    std::array<std::atomic<std::uint64_t>, 2> waiting_{};  // [1]: which reached others
    std::atomic<int> graceMs_{-1};
    std::atomic<bool> any_{false};
};

}  // namespace Ruvoctl
