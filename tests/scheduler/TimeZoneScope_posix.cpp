#include "tests/scheduler/TimeZoneScope.h"

#include "runtime/platform/Environment.h"

#include <time.h>

namespace TestSupport {

TimeZoneScope::TimeZoneScope(const std::string& zone) : before_(VornPlatform::getEnv("TZ")) {
    VornPlatform::setEnv("TZ", zone);
    ::tzset();
}

TimeZoneScope::~TimeZoneScope() {
    VornPlatform::setEnv("TZ", before_);
    ::tzset();
}

}  // namespace TestSupport
