#pragma once

#include "engines/RuvoEngineFunctionHandler.h"

namespace RuvoService {

// The commands of RuvoJSEngine. "Answers the id" means the job's id, or -1 when
// there is no such job.

// Reads description and name (string); answers the new id, -1 when the name is
// taken, 0 when no id is free. A job stays although its answer was lost.
class RUVO_JS_CREATE final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads an id, a count and that many numbers (int), which replace the job's
// list; answers the id. A count of 0 or less empties the list. A list of more
// bytes than a byte block may have ("ruvod.limits.block-bytes") is refused with
// VornException before any of it is read.
class RUVO_JS_MAP_JOB final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads a name (string); answers the id.
class RUVO_JS_LOOKUP final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads an id (int); answers the id. The job is complete and gone.
class RUVO_JS_DELETE final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads an id and a progress (int); answers the id.
class RUVO_JS_SET_PROGRESS final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads an id (int); answers the progress, and 0, not -1, for an unknown job.
class RUVO_JS_GET_PROGRESS final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads nothing and answers nothing at all; clients rely on that.
class RUVO_JS_GET_ALL_PROGRESS final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads an id (int); answers the id. The job stays.
class RUVO_JS_CANCEL final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

}  // namespace RuvoService
