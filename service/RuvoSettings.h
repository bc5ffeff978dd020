#pragma once

#include "runtime/support/VornProperties.h"
#include "service/RuvoConfigurationKeys.h"

#include <cstdint>
#include <string>

namespace RuvoService {

// What the properties file says about the libraries below the service, carried
// over to them. Values that cannot be used leave the default in force and cost
// one line in the log each (logBadValues). One thread at a time.
using RuvoProperties = VornSupport::VornProperties<std::string>;

// The number that `text` begins with; 0 when it begins with none. Anything
// below 0 or beyond the range comes out as UINT64_MAX.
std::uint64_t leadingNumber(const std::string& text);

// "logging.level": ignored unless it is 0 to 9. "logging.target". Neither
// changes anything while logging is not allowed.
void applyLogLevel(const std::string& value);
void applyLogTarget(const std::string& value);

// "logging.file", "logging.max-bytes", "logging.files".
void applyLogFile(const RuvoProperties& properties, const RuvoDirectories& directories);

// "ruvod.limits.*" and "ruvod.local-access*". A missing key is set back to its
// default.
void applyNetSettings(const RuvoProperties& properties);

// One level-2 line for each known key whose value cannot be used.
void logBadValues(const RuvoProperties& properties, const RuvoDirectories& directories);

}  // namespace RuvoService
