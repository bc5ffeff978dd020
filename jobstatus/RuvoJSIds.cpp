#include "jobstatus/RuvoJSIds.h"

#include <algorithm>
#include <bit>

namespace RuvoService {

std::int32_t RuvoJSIds::next(std::size_t jobs) const {
    if (jobs > kMostJobs) return kNone;
    for (std::size_t word = 0; word < taken_.size(); ++word) {
        const auto bit = static_cast<std::size_t>(std::countr_one(taken_[word]));
        if (bit < kBits) return std::min(static_cast<std::int32_t>(word * kBits + bit + 1), kLast);
    }
    return kLast;
}

void RuvoJSIds::take(std::int32_t id) {
    if (!isLookedFor(id)) return;
    const auto bit = static_cast<std::size_t>(id - 1);
    taken_[bit / kBits] |= std::uint64_t{1} << (bit % kBits);
}

void RuvoJSIds::release(std::int32_t id) {
    if (!isLookedFor(id)) return;
    const auto bit = static_cast<std::size_t>(id - 1);
    taken_[bit / kBits] &= ~(std::uint64_t{1} << (bit % kBits));
}

}  // namespace RuvoService
