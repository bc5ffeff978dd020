#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/LocalTime.h"

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace VornSupport {

// One record of the log in the making: a line that begins with room for the
// time, which is known only when it is written. Belongs to one thread.
class VORN_EXPORT VornLogRecord {
public:
    // Text beyond this is not kept; the line says how much that was.
    static constexpr std::size_t kMostText = 64 * 1024;

    // Begins a record anew. One that is `off` takes no text.
    void begin(int level, bool off, std::string_view thread);
    // Control characters become \n, \r, \t or \xNN.
    void append(std::string_view text);
    void end();

    int level() const { return level_; }
    bool isOff() const { return off_; }
    // After end(): the line, its line end included, with `time` (of
    // VornLogClock) put in.
    std::string_view line(std::string_view time);
    // After end(): thread, level and text alone.
    std::string body() const;
    // Gives back the memory of a long record.
    void trim();

private:
    void appendEscaped(std::string_view text);

    int level_ = 0;
    bool off_ = true;
    std::string line_;
    std::size_t textBytes_ = 0;
    std::size_t cutBytes_ = 0;
};

// The time as records show it: 2026-03-01T12:30:15.123456+01:00. One thread at
// a time.
class VORN_EXPORT VornLogClock {
public:
    static constexpr std::size_t kLength = 32;

    // Valid until the next call.
    std::string_view format(std::chrono::system_clock::time_point moment);
    // What format() shows of a converted time.
    static std::string text(const VornPlatform::LocalTime& time);

private:
    std::chrono::sys_seconds second_;  // that text_ was made for
    std::string text_;
};

}  // namespace VornSupport
