#pragma once

#include "runtime/platform/Export.h"

#include <cstdint>
#include <string_view>

namespace VornSupport {

// The key of a hash. Who does not know it cannot choose texts whose hashes meet.
struct VornHashKey {
    std::uint64_t first;
    std::uint64_t second;

    // Drawn at random at the first call; the same for the life of the process.
    VORN_EXPORT static const VornHashKey& ofProcess();
};

// A hash of the text for tables whose texts come from clients: SipHash-2-4. Any
// thread.
VORN_EXPORT std::uint64_t keyedHash(std::string_view text, const VornHashKey& key);

}  // namespace VornSupport
