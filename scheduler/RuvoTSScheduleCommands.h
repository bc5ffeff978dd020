#pragma once

#include "engines/RuvoEngineFunctionHandler.h"

namespace RuvoService {

// The commands of RuvoTSEngine that make and remove tasks. -9: there is no such
// task; -11: there is a task of that name already. Dates and times are UTC and,
// like frequencies, taken whatever they are.

// Reads name, program, working directory and arguments (string); frequency,
// month, day, year, hour, minute and second (int); the log file (string).
// Answers the handle or -11.
class RUVO_TS_SCHEDULE final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads the name (string), the length (int) and the bytes; frequency, month,
// day, year, hour, minute and second (unsigned). Answers the handle or -11. A
// length below 0 or above "ruvod.limits.block-bytes" is refused with
// VornException before any byte is read.
class RUVO_TS_SCHEDULE_BLOB final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads a handle (unsigned); answers it or -9. A command that runs is not
// stopped.
class RUVO_TS_CANCEL final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

}  // namespace RuvoService
