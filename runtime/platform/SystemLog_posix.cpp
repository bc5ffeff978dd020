#include "runtime/platform/SystemLog.h"

#include <syslog.h>

namespace VornPlatform {
namespace {

// The system keeps the address of the name, so it is never destroyed.
std::string& systemLogName() {
    static std::string* const name = new std::string("ruvo");
    return *name;
}

}  // namespace

void setSystemLogName(const std::string& name) {
    ::closelog();
    systemLogName() = name;
    ::openlog(systemLogName().c_str(), LOG_PID | LOG_NDELAY, LOG_DAEMON);
}

void writeSystemLog(SystemLogSeverity severity, const std::string& text) {
    static const bool opened = (setSystemLogName(systemLogName()), true);
    static_cast<void>(opened);
    static constexpr int kPriorities[] = {LOG_ERR, LOG_WARNING, LOG_NOTICE, LOG_INFO, LOG_DEBUG};
    ::syslog(kPriorities[static_cast<int>(severity)], "%s", text.c_str());
}

}  // namespace VornPlatform
