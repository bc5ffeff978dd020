#include "client/ruvoctl/TaskTimes.h"

#include "client/ruvoctl/Session.h"
#include "runtime/platform/LocalTime.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <optional>
#include <string_view>

namespace Ruvoctl {
namespace {

using Ruvo::RuvoTaskTime;

constexpr std::int64_t kDay = 86400;

[[noreturn]] void refuse(const std::string& text) {
    throw UsageError("\"" + text + "\" is no time; write 2026-11-22T02:30, 02:30 or +15m, with a Z "
                     "behind it for UTC");
}

// Takes a time apart; nothing is left of `rest_` when all of it was understood.
class TimeReader {
public:
    explicit TimeReader(std::string_view text) : rest_(text) {}

    bool isAtEnd() const { return rest_.empty(); }
    bool take(std::string_view any) {
        if (rest_.empty() || any.find(rest_.front()) == any.npos) return false;
        rest_.remove_prefix(1);
        return true;
    }
    std::optional<std::int32_t> number(std::size_t digits) {
        if (rest_.size() < digits) return std::nullopt;
        std::int32_t value = 0;
        const char* const end = rest_.data() + digits;
        if (rest_.front() == '-' || std::from_chars(rest_.data(), end, value).ptr != end) {
            return std::nullopt;
        }
        rest_.remove_prefix(digits);
        return value;
    }
    // "YYYY-MM-DD".
    bool date(RuvoTaskTime& time) {
        const auto year = number(4);
        if (!year || !take("-")) return false;
        const auto month = number(2);
        if (!month || !take("-")) return false;
        const auto day = number(2);
        time.year = *year;
        time.month = *month;
        time.day = day.value_or(0);
        return day.has_value();
    }
    // "HH:MM" or "HH:MM:SS".
    bool clock(RuvoTaskTime& time) {
        const auto hour = number(2);
        if (!hour || !take(":")) return false;
        const auto minute = number(2);
        if (!minute) return false;
        std::optional<std::int32_t> second = 0;
        if (take(":")) second = number(2);
        time.hour = *hour;
        time.minute = *minute;
        time.second = second.value_or(60);
        return time.hour < 24 && time.minute < 60 && time.second < 60;
    }
    // "Z", "+01:00", "+0100", "+01": seconds ahead of UTC.
    std::optional<std::int64_t> zone() {
        if (take("Zz")) return 0;
        const bool west = !rest_.empty() && rest_.front() == '-';
        if (!take("+-")) return std::nullopt;
        const auto hours = number(2);
        std::optional<std::int32_t> minutes = 0;
        if (!isAtEnd()) {
            take(":");
            minutes = number(2);
        }
        if (!hours || !minutes || *hours > 18 || *minutes > 59) return std::nullopt;
        const std::int64_t seconds = (*hours * 60 + *minutes) * 60;
        return west ? -seconds : seconds;
    }

private:
    std::string_view rest_;
};

bool isInCalendar(const RuvoTaskTime& time) {
    using namespace std::chrono;
    return year_month_day(year(time.year), month(static_cast<unsigned>(time.month)),
                          day(static_cast<unsigned>(time.day)))
        .ok();
}

// The conversion with summer time (1) or without (0); -1 leaves it to the system,
// whose choice where both are possible depends on what it was asked before.
std::time_t converted(const RuvoTaskTime& time, int summerTime) {
    std::tm fields{};
    fields.tm_year = time.year - 1900;
    fields.tm_mon = time.month - 1;
    fields.tm_mday = time.day;
    fields.tm_hour = time.hour;
    fields.tm_min = time.minute;
    fields.tm_sec = time.second;
    fields.tm_isdst = summerTime;
    return std::mktime(&fields);
}

// Whether the clocks show that time of day then. The day may be out of range.
bool showsClock(std::time_t moment, const RuvoTaskTime& time) {
    const auto at = VornPlatform::toLocalTime(std::int64_t{moment});
    return at.hour == time.hour && at.minute == time.minute && at.second == time.second;
}

// As the clocks of this machine's zone show it, summer time or not. Of a time that
// they show twice, the first; one that they leap over is as much later as they leap.
std::int64_t localMoment(const RuvoTaskTime& time, const std::string& text) {
    constexpr std::time_t kNone{-1};
    const std::time_t any = converted(time, -1);
    if (any == kNone) refuse(text);
    const std::time_t both[] = {converted(time, 0), converted(time, 1)};
    std::optional<std::time_t> first;
    std::time_t last = any;
    for (const std::time_t moment : both) {
        if (moment == kNone) continue;
        last = std::max(last, moment);
        if (showsClock(moment, time)) first = std::min(first.value_or(moment), moment);
    }
    if (!first && showsClock(any, time)) first = any;
    return static_cast<std::int64_t>(first.value_or(last));
}

std::optional<std::int64_t> fromNow(const std::string& text, std::int64_t now) {
    if (text.size() < 3 || text.front() != '+' || text.find(':') != std::string::npos) {
        return std::nullopt;
    }
    std::int64_t count = 0;
    const char* const unit = text.data() + text.size() - 1;
    const auto [stop, error] = std::from_chars(text.data() + 1, unit, count);
    const std::int64_t seconds = *unit == 's'   ? 1
                                 : *unit == 'm' ? 60
                                 : *unit == 'h' ? 3600
                                 : *unit == 'd' ? kDay
                                                : 0;
    constexpr std::int64_t kMost = 100 * 366 * kDay;
    if (error != std::errc{} || stop != unit || seconds == 0 || count < 0 ||
        count > kMost / seconds) {
        refuse(text);
    }
    return now + count * seconds;
}

// The next moment at which the clock shows what is in `time`.
std::int64_t nextMoment(RuvoTaskTime time, bool inUtc, const std::string& text,
                        std::int64_t now) {
    const VornPlatform::LocalTime here = VornPlatform::toLocalTime(now);
    const RuvoTaskTime there = utcOf(now);
    time.year = inUtc ? there.year : here.year;
    time.month = inUtc ? there.month : here.month;
    time.day = inUtc ? there.day : here.day;
    for (int days = 0;; ++days) {
        const std::int64_t moment = inUtc ? momentOf(time) : localMoment(time, text);
        if (moment > now || days == 2) return moment;
        ++time.day;  // both conversions carry it into the next month
    }
}

std::string isoText(const RuvoTaskTime& at) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02dT%02d:%02d:%02d", at.year, at.month, at.day,
                  at.hour, at.minute, at.second);
    return buffer;
}

}  // namespace

std::int64_t momentOf(const std::string& text, std::int64_t now) {
    if (const auto moment = fromNow(text, now)) return *moment;
    TimeReader reader(text);
    RuvoTaskTime time;
    if (text.find_first_of(":-") == 2) {
        const bool isClock = reader.clock(time);
        const bool inUtc = isClock && reader.take("Zz");
        if (!isClock || !reader.isAtEnd()) refuse(text);
        return nextMoment(time, inUtc, text, now);
    }
    if (!reader.date(time) || !reader.take("Tt ") || !reader.clock(time) || !isInCalendar(time)) {
        refuse(text);
    }
    if (reader.isAtEnd()) return localMoment(time, text);
    const auto ahead = reader.zone();
    if (!ahead || !reader.isAtEnd()) refuse(text);
    return momentOf(time) - *ahead;
}

std::int64_t momentOf(const RuvoTaskTime& utc) {
    using namespace std::chrono;
    // The first of the month, and the days from there: the day may be out of range.
    const sys_days month(year(utc.year) / std::chrono::month(static_cast<unsigned>(utc.month)) / 1);
    const std::int64_t days = month.time_since_epoch().count() + utc.day - 1;
    return days * kDay + utc.hour * 3600 + utc.minute * 60 + utc.second;
}

std::optional<std::int64_t> keptMoment(const RuvoTaskTime& utc) {
    if (utc == RuvoTaskTime{}) return std::nullopt;
    return momentOf(utc);
}

RuvoTaskTime utcOf(std::int64_t moment) {
    using namespace std::chrono;
    const sys_seconds at{seconds(moment)};
    const auto midnight = floor<days>(at);
    const year_month_day date(midnight);
    const hh_mm_ss clock(at - midnight);
    return {.year = static_cast<int>(date.year()),
            .month = static_cast<int>(static_cast<unsigned>(date.month())),
            .day = static_cast<int>(static_cast<unsigned>(date.day())),
            .hour = static_cast<int>(clock.hours().count()),
            .minute = static_cast<int>(clock.minutes().count()),
            .second = static_cast<int>(clock.seconds().count())};
}

std::string utcText(std::int64_t moment) { return isoText(utcOf(moment)) + 'Z'; }

std::string localText(std::int64_t moment) {
    const VornPlatform::LocalTime at = VornPlatform::toLocalTime(moment);
    const int minutes = at.offsetMinutes < 0 ? -at.offsetMinutes : at.offsetMinutes;
    char offset[32];
    std::snprintf(offset, sizeof offset, "%c%02d:%02d", at.offsetMinutes < 0 ? '-' : '+',
                  minutes / 60, minutes % 60);
    return isoText({.year = at.year, .month = at.month, .day = at.day, .hour = at.hour,
                    .minute = at.minute, .second = at.second}) +
           offset;
}

std::string bothTexts(std::int64_t moment) {
    return localText(moment) + " (" + utcText(moment) + ')';
}

}  // namespace Ruvoctl
