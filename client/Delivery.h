#pragma once

#include "client/RuvoListener.h"

#include <cstddef>
#include <string_view>

namespace Ruvo {

enum class DecodeOutcome {
    Complete,  // a delivery, of `consumed` bytes
    NeedMore,  // the beginning of one
    Invalid    // none, whatever comes: a size is over its limit
};

// Takes one delivery from the beginning of `bytes`. Only the sizes in it are
// looked at until it is complete, so it may be called again as bytes arrive.
// With limits.taskChanges it is what a followed task sends: the handle, 12345,
// the state, the task. A pure function; any thread.
DecodeOutcome decodeDelivery(std::string_view bytes, const RuvoListenerOptions& limits,
                             RuvoDelivery& delivery, std::size_t& consumed);

}  // namespace Ruvo
