#pragma once

#include "runtime/platform/Export.h"

#include <string>

namespace VornPlatform {

enum class SystemLogSeverity { Error, Warning, Notice, Information, Debug };

// The log of the system: the journal on POSIX (through syslog(3), facility
// "daemon"), the application event log on Windows, where Notice and Debug
// count as information. Both may be called from any thread, but not at once.
// Failures are silent.

// The name under which entries appear; "ruvo" until one is set.
VORN_EXPORT void setSystemLogName(const std::string& name);
// `text` is one line without its end; it ends at a zero byte.
VORN_EXPORT void writeSystemLog(SystemLogSeverity severity, const std::string& text);

}  // namespace VornPlatform
