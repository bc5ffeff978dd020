// Any text as a time that a person gives to ruvoctl.

#include "client/ruvoctl/Session.h"
#include "client/ruvoctl/TaskTimes.h"
#include "tests/fuzz/Check.h"
#include "tests/fuzz/Replay.h"
#include "tests/scheduler/TimeZoneScope.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

using FuzzTests::check;

namespace {

constexpr std::int64_t kNow = 1'718'452'800;  // 2024-06-15T12:00:00Z
constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kDay = 24 * kHour;
constexpr std::int64_t kYear = 366 * kDay;

// A zone with summer time, in the form that every C library knows.
constexpr const char* kZone = "CET-1CEST";

std::optional<std::int64_t> momentOf(const std::string& text) {
    try {
        return Ruvoctl::momentOf(text, kNow);
    } catch (const Ruvoctl::UsageError&) {
        return std::nullopt;
    }
}

// A whole date, a time of day, or a distance, as its beginning tells.
void checkMoment(const std::string& text, std::int64_t moment) {
    if (text.front() == '+') {
        check(moment >= kNow && moment <= kNow + 100 * kYear, "a distance leads into the future");
    } else if (text.find(':') == 2) {
        check(moment > kNow && moment <= kNow + kDay + 2 * kHour,
              "a time of day is the next one of that kind");
    } else {
        // The years 0 to 9999, and what a zone makes of them.
        check(moment >= -1971 * kYear && moment <= 8031 * kYear, "a date is of its year");
    }
    const bool inUtc = text.back() == 'Z' || text.back() == 'z';
    if (!inUtc || text.size() < 16) return;
    std::string written = Ruvoctl::utcText(moment);
    check(momentOf(written) == moment, "a moment that is written is read again");
    // Both without the seconds, which may be left out.
    std::string begin = text.substr(0, 16);
    std::replace(begin.begin(), begin.end(), ' ', 'T');
    std::replace(begin.begin(), begin.end(), 't', 'T');
    check(written.starts_with(begin), "a moment of UTC is written as it was given");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const TestSupport::TimeZoneScope zone(kZone);
    const std::string input(reinterpret_cast<const char*>(data), size);
    if (const auto moment = momentOf(input)) checkMoment(input, *moment);
    // The first eight bytes as a moment.
    std::uint64_t bits = 0;
    for (const char c : input.substr(0, 8)) bits = bits * 256 + static_cast<unsigned char>(c);
    // The years -6030 to 9970, about.
    const std::int64_t moment = static_cast<std::int64_t>(bits) % (8000 * kYear);
    check(Ruvoctl::momentOf(Ruvoctl::utcOf(moment)) == moment,
          "a moment is taken apart and put together again");
    return 0;
}
