#pragma once

#include "engines/RuvoEngineFunctionHandler.h"

namespace RuvoService {

// The commands of RuvoNNEngine. Integers and strings as on the wire
// (runtime/net/WireCodec.h).

// Reads the pattern, the client's remote name (string) and its handle (int);
// writes 0, or -2 for an empty pattern. A client that registers twice is told
// twice. A pattern that is refused counts as registered and selects nothing.
class RUVO_NN_REGISTER final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads the remote name (string) and the handle (int); writes 0, after which
// that registration is told nothing more, or -3 when there is none.
class RUVO_NN_UNREGISTER final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

// Reads sender, event name and message (string), the size of the data (int)
// and the data; writes 0 when the event has been queued, -2 when its name is
// empty.
class RUVO_NN_NOTIFY final : public RuvoEngineFunctionHandler {
public:
    void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) override;
};

}  // namespace RuvoService
