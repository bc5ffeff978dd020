#pragma once

#include <optional>
#include <string>

namespace TestSupport {

// The process is in another time zone while this lives. The C library is told.
class TimeZoneScope {
public:
    explicit TimeZoneScope(const std::string& zone);
    ~TimeZoneScope();
    TimeZoneScope(const TimeZoneScope&) = delete;
    TimeZoneScope& operator=(const TimeZoneScope&) = delete;

private:
    std::optional<std::string> before_;
};

}  // namespace TestSupport
