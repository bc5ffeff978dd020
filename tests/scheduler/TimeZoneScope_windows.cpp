#include "tests/scheduler/TimeZoneScope.h"

#include <stdlib.h>
#include <time.h>

namespace TestSupport {

// The C library keeps a copy of the environment of its own.
TimeZoneScope::TimeZoneScope(const std::string& zone) {
    if (const char* const before = std::getenv("TZ")) before_ = before;
    ::_putenv_s("TZ", zone.c_str());
    ::_tzset();
}

TimeZoneScope::~TimeZoneScope() {
    ::_putenv_s("TZ", before_.value_or("").c_str());
    ::_tzset();
}

}  // namespace TestSupport
