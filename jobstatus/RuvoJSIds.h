#pragma once

#include "runtime/platform/Export.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace RuvoService {

// Which job ids are taken, so that the lowest free one is found without a walk
// through the jobs. Not for several threads at once.
class VORN_EXPORT RuvoJSIds {
public:
    static constexpr std::int32_t kLast = 10000;       // given out even when it is taken
    static constexpr std::size_t kMostJobs = 10000;    // with more than these, no id is given
    static constexpr std::int32_t kNone = 0;

    // The id for one more job beside `jobs` others: the lowest free one of 1 to
    // 9999, else 10000, taken or not; kNone when there are too many jobs.
    // Nothing is marked.
    std::int32_t next(std::size_t jobs) const;
    // Marks an id as taken or free. Ids outside 1 to 9999 are never looked for
    // and are ignored.
    void take(std::int32_t id);
    void release(std::int32_t id);

private:
    static constexpr std::size_t kBits = 64;

    static bool isLookedFor(std::int32_t id) { return id >= 1 && id < kLast; }

    // Bit id - 1 is set when the id is taken; the bits past 9999 stay clear.
    std::array<std::uint64_t, kLast / kBits + 1> taken_{};
};

}  // namespace RuvoService
