#pragma once

#include "client/RuvoTasks.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Ruvoctl {

// Moments are seconds since 1970-01-01 00:00 UTC.

// What a person means by a time, `now` being the current moment:
//   2026-11-22T02:30, with or without seconds, a blank for the T; of this
//   machine's zone, or with Z, +01:00, -0530 or +01 behind it
//   02:30, with or without seconds or Z: the next time the clock shows that
//   +90s, +15m, +2h, +3d: so long from now
// Throws UsageError for anything else, and for dates that no calendar has.
std::int64_t momentOf(const std::string& text, std::int64_t now);

std::int64_t momentOf(const Ruvo::RuvoTaskTime& utc);
Ruvo::RuvoTaskTime utcOf(std::int64_t moment);

// What a daemon can keep as the time of a task, the first and the last moment.
inline constexpr std::int64_t kFirstMoment = 0;
inline constexpr std::int64_t kLastMoment = 2147483647;
// Empty for a time before the first one: the daemon does not tell it.
std::optional<std::int64_t> keptMoment(const Ruvo::RuvoTaskTime& utc);

// "2026-11-22T01:30:00Z" and "2026-11-22T02:30:00+01:00".
std::string utcText(std::int64_t moment);
std::string localText(std::int64_t moment);
// "2026-11-22T02:30:00+01:00 (2026-11-22T01:30:00Z)".
std::string bothTexts(std::int64_t moment);

}  // namespace Ruvoctl
