#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/OsError.h"
#include "runtime/platform/SystemLog.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <string_view>

namespace VornSupport {

// Where records go.
enum class VornLogTarget {
    None = 0,
    StandardError = 1,
    File = 2,
    FileAndStandardError = 3,
    System = 4
};

// Opens a record of a level (0 to 9); streamed into the log first.
struct setloglevel {
    explicit setloglevel(int n) : level(n) {}
    int level;
};
// Ends a record; streamed into the log last.
struct VornEndRecord {};
inline constexpr VornEndRecord endrecord{};

// The process-wide log. A record is built on its own thread from the pieces
// streamed between setloglevel and endrecord and written whole, never mixed
// with another; a record may be opened while another of the same thread is
// unfinished. Use VORN_LOG, which tests first, so that a record that is off
// costs one atomic read and a branch. Any thread; nothing here throws. A record
// is one line:
//   2026-03-01T12:30:15.123456+01:00 [RuvoServiceThread] 5 text
// in which control characters appear as \n, \r, \t or \xNN, so that no client
// can forge a line. What cannot be written (a full disk, a file that is gone)
// is kept up to 1 MiB and written when the file can be again; what was lost
// beyond that is counted in a line of its own. The first time that a file cannot
// be opened or written after setFile, one line on standard error says so.
class VORN_EXPORT VornLogging {
public:
    static VornLogging& getInstance();

    // Whether the log may be used at all.
    static bool isAccessAllowed() { return on_.load(std::memory_order_relaxed) >= 0; }
    static void setAccessAllowed(bool allowed);
    // True when a record of this level is to be written.
    static bool isOn(int level) { return on_.load(std::memory_order_relaxed) >= level; }

    int getLogLevel() const;
    void setLogLevel(int level);  // 0 to 9; others are ignored
    int getTarget() const;
    void setTarget(int target);   // a VornLogTarget; others count as None
    // Where targets 2 and 3 write. A file of `maxBytes` bytes (0: no limit) is
    // renamed to FILE.1, an old FILE.1 to FILE.2 and so on up to FILE.`files`
    // (0: emptied instead). The path is made absolute when it is set. Opened at
    // the first record.
    void setFile(const std::string& path, std::uint64_t maxBytes, int files);
    // Opens the file now if records go there.
    void openFile();
    // The name under which target 4 reports to the system's log.
    void setSystemName(const std::string& name);
    // Called, under the log's lock, in place of the system's log; null: no more.
    using SystemWriter = void (*)(VornPlatform::SystemLogSeverity, const std::string&);
    void setSystemWriterForTest(SystemWriter writer);
    // Writes out what is held back, as far as possible within half a second.
    void flush();

    VornLogging& operator<<(setloglevel level);
    VornLogging& operator<<(VornEndRecord);
    VornLogging& operator<<(const std::string& text);
    VornLogging& operator<<(std::string_view text);
    VornLogging& operator<<(const char* text);  // null writes "(null)"
    VornLogging& operator<<(char c);
    VornLogging& operator<<(bool value);  // "true" or "false"
    VornLogging& operator<<(int value);
    VornLogging& operator<<(unsigned int value);
    VornLogging& operator<<(long value);
    VornLogging& operator<<(unsigned long value);
    VornLogging& operator<<(long long value);
    VornLogging& operator<<(unsigned long long value);
    VornLogging& operator<<(const void* pointer);
    // Its text; "error 12" when there is no memory for that.
    VornLogging& operator<<(VornPlatform::OsError error);

    // Ends the innermost record for want of memory for its next piece: what there is
    // of it is written, and that the rest is missing.
    static void breakOff();

private:
    VornLogging();
    ~VornLogging();  // never called: threads may log while the process ends

    struct Impl;
    std::unique_ptr<Impl> impl_;
    static std::atomic<int> on_;  // the level, or -1 while access is not allowed
};

}  // namespace VornSupport

// VORN_LOG(5, "RuvoService::go: " << name): the pieces are evaluated only when
// the level is on. Memory that is short when a piece is made up leaves the record
// broken off and throws nothing: a line of the log ends no function that must not
// throw, and comes between no two steps that belong together.
#define VORN_LOG(level, pieces)                                                       \
    do {                                                                              \
        if (::VornSupport::VornLogging::isOn(level)) {                                \
            try {                                                                     \
                ::VornSupport::VornLogging::getInstance()                             \
                    << ::VornSupport::setloglevel(level) << pieces                    \
                    << ::VornSupport::endrecord;                                      \
            } catch (const std::bad_alloc&) {                                         \
                ::VornSupport::VornLogging::breakOff();                               \
            }                                                                         \
        }                                                                             \
    } while (false)
