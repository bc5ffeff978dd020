#include "runtime/support/VornLogRecord.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace VornSupport {
namespace {

constexpr std::size_t kMicroseconds = 20;  // where they stand in the time
constexpr std::size_t kKeptCapacity = 4096;

bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

void putDigits(char* at, int count, std::int64_t value) {
    for (; count > 0; --count, value /= 10) at[count - 1] = static_cast<char>('0' + value % 10);
}

}  // namespace

void VornLogRecord::begin(int level, bool off, std::string_view thread) {
    level_ = level;
    off_ = off;
    textBytes_ = 0;
    cutBytes_ = 0;
    line_.clear();
    if (off_) return;
    line_.append(VornLogClock::kLength, ' ');
    line_ += " [";
    appendEscaped(thread);
    line_ += "] ";
    line_ += std::to_string(level);
    line_ += ' ';
}

void VornLogRecord::append(std::string_view text) {
    if (off_) return;
    const std::size_t taken = std::min(text.size(), kMostText - textBytes_);
    textBytes_ += taken;
    cutBytes_ += text.size() - taken;
    appendEscaped(text.substr(0, taken));
}

void VornLogRecord::appendEscaped(std::string_view text) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    while (!text.empty()) {
        const auto run = static_cast<std::size_t>(
            std::find_if(text.begin(), text.end(), isControl) - text.begin());
        line_ += text.substr(0, run);
        if (run == text.size()) return;
        const auto c = static_cast<unsigned char>(text[run]);
        line_ += '\\';
        switch (c) {
            case '\n': line_ += 'n'; break;
            case '\r': line_ += 'r'; break;
            case '\t': line_ += 't'; break;
            default: line_ += {'x', kDigits[c >> 4], kDigits[c & 0x0F]}; break;
        }
        text.remove_prefix(run + 1);
    }
}

void VornLogRecord::end() {
    if (cutBytes_ > 0) line_ += "... (" + std::to_string(cutBytes_) + " bytes more)";
    line_ += '\n';
}

std::string_view VornLogRecord::line(std::string_view time) {
    line_.replace(0, VornLogClock::kLength, time);
    return line_;
}

std::string VornLogRecord::body() const {
    const std::size_t begin = VornLogClock::kLength + 1;
    return line_.substr(begin, line_.size() - begin - 1);
}

void VornLogRecord::trim() {
    if (line_.capacity() > kKeptCapacity) std::string().swap(line_);
}

std::string_view VornLogClock::format(std::chrono::system_clock::time_point moment) {
    using namespace std::chrono;
    const auto second = floor<seconds>(moment);
    if (second != second_ || text_.empty()) {
        text_ = text(VornPlatform::toLocalTime(moment));
        second_ = second;
    }
    putDigits(text_.data() + kMicroseconds, 6,
              duration_cast<microseconds>(moment - second).count());
    return text_;
}

std::string VornLogClock::text(const VornPlatform::LocalTime& time) {
    char text[96];
    const int offset = std::abs(time.offsetMinutes);
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06d%c%02d:%02d", time.year,
                  time.month, time.day, time.hour, time.minute, time.second, time.microsecond,
                  time.offsetMinutes < 0 ? '-' : '+', offset / 60, offset % 60);
    return text;
}

}  // namespace VornSupport
