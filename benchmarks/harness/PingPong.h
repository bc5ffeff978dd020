#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace RuvoBench {

// Clients that send the same bytes over and over and wait for an answer of a
// fixed size each time. What they talk to makes no difference to them.

// Round trips for the time of `slice` by the calling thread: their p50 in
// microseconds.
double latencyP50(int socket, std::string_view request, std::size_t answer,
                  std::chrono::milliseconds slice);

// Round trips a second of all clients together, a thread each; the threads run
// where the calling one does.
double roundTripRate(const std::vector<int>& sockets, std::string_view request,
                     std::size_t answer, std::chrono::milliseconds slice);

// The p50 of the times in nanoseconds, in microseconds. Reorders them.
double p50Microseconds(std::vector<std::int64_t>& nanoseconds);

}  // namespace RuvoBench
