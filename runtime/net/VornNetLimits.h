#pragma once

#include "runtime/platform/Export.h"

#include <atomic>
#include <cstdint>

namespace VornNet {

// The bounds of the networking library, from the configuration keys
// "ruvod.limits.*". Any thread; a change holds from the next use on.
struct VORN_EXPORT VornNetLimits {
    static VornNetLimits& getInstance();

    std::atomic<std::uint32_t> stringBytes{1048576};   // a string that a peer sends
    std::atomic<std::uint32_t> blockBytes{67108864};   // a byte block that a peer sends
    std::atomic<int> deliveryMs{2000};                 // for a listener to take its bytes
    std::atomic<int> openingMs{30000};                 // for a client's first line
    std::atomic<int> clients{4096};                    // connections served at once
    std::atomic<std::uint32_t> eventQueueBytes{67108864};  // events not yet offered to all
};

}  // namespace VornNet
