#pragma once

#include "engines/RuvoEngineFunctionHandler.h"

namespace RuvoService {

// The commands of RuvoRAEngine.

// Reads a path (string) and a time to wait in milliseconds (int: 0 tries once, a
// negative number waits without limit); answers the lock's handle, or 0 when it
// was not obtained. A lock whose handle cannot be told any more, because the
// client has closed its connection or broken it, is given back at once.
class RUVO_RA_LOCK final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads a handle (int); always answers 0, whatever the handle.
class RUVO_RA_UNLOCK final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

}  // namespace RuvoService
