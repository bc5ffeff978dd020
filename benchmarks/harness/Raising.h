#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

namespace RuvoBench {

// Raises events in batches on an open conversation from a thread of its own,
// several batches under way at any time, while the calling thread runs
// `meanwhile`. `batch` gives the bytes of a batch by its number; each batch is
// answered with `answerBytes`. Returns the seconds from the first byte sent to
// the end of `meanwhile`.
double raiseWhile(int socket, std::uint64_t batches,
                  const std::function<std::string_view(std::uint64_t)>& batch,
                  std::size_t answerBytes, const std::function<void()>& meanwhile);

// How many units make `measure`, which returns seconds for a number of units,
// take about `target` seconds.
std::uint64_t calibrate(const std::function<double(std::uint64_t)>& measure, double target);

}  // namespace RuvoBench
