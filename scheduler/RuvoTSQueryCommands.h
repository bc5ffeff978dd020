#pragma once

#include "engines/RuvoEngineFunctionHandler.h"

namespace RuvoService {

// The commands of RuvoTSEngine that change nothing. -9: there is no such task,
// or it is of the other kind where only one kind will do.

// Reads a name (string); answers the handle or -9.
class RUVO_TS_SCHEDULED_TASK_LOOKUP final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads a handle (unsigned); answers RuvoTSTask::State or -9.
class RUVO_TS_TASK_STATE final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads the handle (unsigned) of a task with a command; answers the exit status
// of its last run, -999 before the first, or -9.
class RUVO_TS_EXIT_CODE final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads the handle of a task with a command and the room for a text (int);
// answers when its last run ended (string) and the text's length (int); an
// empty text and 24, when the room is too little; an empty text and -9.
class RUVO_TS_EXECUTION_INFO final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads the handle of a task with bytes (int); answers 0, their number (int) and
// the bytes, or -9, 0 and none. The task keeps them.
class RUVO_TS_RETRIEVE_BLOB final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Answers 0 and the names (string) of the tasks with commands: escaped as in the
// store, less the closing "%00", with a blank behind each.
class RUVO_TS_LIST_EXEC final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// The same of the tasks with bytes.
class RUVO_TS_LIST_BLOB final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads a handle (int); answers 0, the next time as "2024 02 29 12 00 00"
// (string) and the frequency (int), or -9, "task_not_scheduled" and 0.
class RUVO_TS_GET_NEXT_TIME final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

}  // namespace RuvoService
