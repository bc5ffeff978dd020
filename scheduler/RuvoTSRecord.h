#pragma once

#include "runtime/platform/Export.h"
#include "scheduler/RuvoTSTime.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace RuvoService {

// The lines of the store: 8 characters of check, a blank, the body. The body of
// a task begins with its kind, "exec" or "blob"; its fields have blanks between
// them. Any thread.

// What stands where a checksum of a text is asked for: the same for every text,
// on purpose. Stores of earlier versions carry it and must stay readable.
VORN_EXPORT std::string checksumOf(std::string_view text);

// A body as a whole line, with the line end of the system.
VORN_EXPORT std::string recordLine(std::string_view body);
VORN_EXPORT void appendRecordLine(std::string& text, std::string_view body);

// What a line says. Fields that are missing stay as they are here.
struct VORN_EXPORT RuvoTSRecord {
    enum class Kind { None, Exec, Blob };

    Kind kind = Kind::None;
    std::string name;
    RuvoTSSeconds nextTime = 0;
    std::uint32_t frequency = 0;
    // exec
    std::string appName;
    std::string path;
    std::string params;
    std::string logFile;
    // blob
    std::string blob;
};

// Reads a line, with or without its line end. Kind::None for one that names no
// kind, or whose checks are wrong. Takes any bytes: the fields are read one
// after the other, numbers as decimal digits after blanks, texts up to the next
// blank; with the first that cannot be read the rest is missing. A time before
// 1970 stands there as blanks and comes back as -1, the last second before it.
VORN_EXPORT RuvoTSRecord readRecord(std::string_view line);

}  // namespace RuvoService
