#include "runtime/platform/SystemLog.h"

#include "runtime/platform/WideText_windows.h"

#include <windows.h>

namespace VornPlatform {
namespace {

// What the viewer shows at most of one string of an entry.
constexpr std::size_t kLongestText = 31'839;

HANDLE source = nullptr;

WORD typeOf(SystemLogSeverity severity) {
    switch (severity) {
        case SystemLogSeverity::Error: return EVENTLOG_ERROR_TYPE;
        case SystemLogSeverity::Warning: return EVENTLOG_WARNING_TYPE;
        default: return EVENTLOG_INFORMATION_TYPE;
    }
}

}  // namespace

void setSystemLogName(const std::string& name) {
    if (source != nullptr) ::DeregisterEventSource(source);
    source = ::RegisterEventSourceW(nullptr, toWide(name).c_str());
}

void writeSystemLog(SystemLogSeverity severity, const std::string& text) {
    if (source == nullptr) setSystemLogName("ruvo");
    if (source == nullptr) return;
    const std::wstring wide = toWide(text).substr(0, kLongestText);
    const wchar_t* strings[] = {wide.c_str()};
    ::ReportEventW(source, typeOf(severity), 0, 1, nullptr, 1, 0, strings, nullptr);
}

}  // namespace VornPlatform
