#include "scheduler/RuvoTSTime.h"

#include "runtime/platform/LocalTime.h"
#include "scheduler/RuvoTSClock.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <limits>

namespace RuvoService {
namespace {

using VornPlatform::CalendarTime;

constexpr std::int32_t kDisplaySize = 24;  // with the terminator
constexpr std::int32_t kRecordSize = 20;
constexpr int kDaysAMonth = 28;

std::atomic<int> utcOffset{0};

std::int64_t fullSeconds(std::int64_t ms) { return (ms - (ms % 1000 + 1000) % 1000) / 1000; }

std::int64_t nowSeconds() { return fullSeconds(RuvoTSClock::current().wallMs()); }

int addWithin(int a, int b) {
    return static_cast<int>(std::clamp<std::int64_t>(static_cast<std::int64_t>(a) + b,
                                                     std::numeric_limits<int>::min(),
                                                     std::numeric_limits<int>::max()));
}

// Adds minutes, and carries into hours, days and years what is more than an hour: no
// minute of the largest is lost on the way to a zone.
void addMinutes(CalendarTime& time, int minutes) {
    constexpr int kYears = 400;
    constexpr int kDaysOfThem = 146'097;
    const std::int64_t minute = std::int64_t{time.minute} + minutes;
    const std::int64_t hour = time.hour + minute / 60;
    std::int64_t day = time.day + hour / 24;
    if (day > std::numeric_limits<int>::max()) {
        day -= kDaysOfThem;
        time.year = addWithin(time.year, kYears);
    } else if (day < std::numeric_limits<int>::min()) {
        day += kDaysOfThem;
        time.year = addWithin(time.year, -kYears);
    }
    time.minute = static_cast<int>(minute % 60);
    time.hour = static_cast<int>(hour % 24);
    time.day = static_cast<int>(day);
}

RuvoTSSeconds convert(CalendarTime utc) {
    addMinutes(utc, utcOffset);
    return static_cast<RuvoTSSeconds>(VornPlatform::fromLocalStandardTime(utc));
}

std::size_t format(const char* pattern, RuvoTSSeconds time, std::string& text, std::int32_t& size,
                   std::int32_t needed) {
    if (time < 0) {
        text.assign(static_cast<std::size_t>(needed - 1), ' ');
        return static_cast<std::size_t>(needed);
    }
    text.clear();
    if (size < needed) {
        size = needed;
        return 0;
    }
    const CalendarTime at = VornPlatform::toUtc(time);
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, pattern, at.year, at.month, at.day, at.hour, at.minute,
                  at.second);
    text = buffer;
    return text.size();
}

}  // namespace

RuvoTSSeconds currentTime() { return static_cast<RuvoTSSeconds>(nowSeconds()); }

int utcOffsetMinutes() {
    const std::int64_t now = nowSeconds();
    const std::int64_t converted = VornPlatform::fromLocalStandardTime(VornPlatform::toUtc(now));
    return static_cast<int>(static_cast<double>(converted - now) / -60.0);
}

void setUtcOffset(int minutes) { utcOffset = minutes; }
int utcOffsetForTest() { return utcOffset; }

RuvoTSSeconds makeTime(int year, int month, int day, int hour, int minute, int second) {
    return convert({.year = year, .month = month, .day = day, .hour = hour, .minute = minute,
                    .second = second});
}

RuvoTSSeconds addDays(RuvoTSSeconds time, int n) {
    CalendarTime utc = VornPlatform::toUtc(time);
    utc.day = addWithin(utc.day, n);
    return convert(utc);
}

RuvoTSSeconds addMonths(RuvoTSSeconds time, int n) {
    return addDays(time, static_cast<int>(std::clamp<std::int64_t>(
                             static_cast<std::int64_t>(n) * kDaysAMonth,
                             std::numeric_limits<int>::min(), std::numeric_limits<int>::max())));
}

std::int32_t secondsUntil(RuvoTSSeconds time) {
    return secondsUntil(time, RuvoTSClock::current().wallMs());
}

std::int32_t secondsUntil(RuvoTSSeconds time, std::int64_t wallMs) {
    // Both within 32 bits, their difference not: a time long past stays past.
    const auto now = static_cast<RuvoTSSeconds>(fullSeconds(wallMs));
    const std::int64_t difference = static_cast<std::int64_t>(time) - now;
    return static_cast<std::int32_t>(
        std::clamp<std::int64_t>(difference, std::numeric_limits<std::int32_t>::min(),
                                 std::numeric_limits<std::int32_t>::max()));
}

std::size_t formatDisplayTime(RuvoTSSeconds time, std::string& text, std::int32_t& size) {
    return format("%04d-%02d-%02d %02d:%02d:%02d UTC", time, text, size, kDisplaySize);
}

std::size_t formatRecordTime(RuvoTSSeconds time, std::string& text, std::int32_t& size) {
    return format("%04d %02d %02d %02d %02d %02d", time, text, size, kRecordSize);
}

std::string displayTime(RuvoTSSeconds time) {
    std::string text;
    std::int32_t size = kDisplaySize;
    formatDisplayTime(time, text, size);
    return text;
}

std::string recordTime(RuvoTSSeconds time) {
    std::string text;
    std::int32_t size = kRecordSize;
    formatRecordTime(time, text, size);
    return text;
}

}  // namespace RuvoService
