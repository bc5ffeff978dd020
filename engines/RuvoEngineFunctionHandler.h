#pragma once

#include "runtime/net/VornConnection.h"
#include "runtime/platform/Export.h"
#include "runtime/support/VornObjectBase.h"

namespace RuvoService {

class RuvoEngineBase;

// Base of the commands. A command is a class named as clients name it, with a
// default constructor and no state: an object serves one request.
class VORN_EXPORT RuvoEngineFunctionHandler : public VornSupport::VornObjectBase {
public:
    ~RuvoEngineFunctionHandler() override;

    // Reads the arguments, does the work and writes the answer, on the client's
    // thread. Leaves the connection open. Failures of the connection pass
    // through unless the command says otherwise.
    virtual void handleClient(VornNet::VornConnection& connection, RuvoEngineBase& engine) = 0;

protected:
    // The engine as the one that the command belongs to.
    template <class Engine>
    static Engine& as(RuvoEngineBase& engine) {
        auto* const own = dynamic_cast<Engine*>(&engine);
        if (own == nullptr) refuseEngine();
        return *own;
    }

private:
    [[noreturn]] static void refuseEngine();
};

}  // namespace RuvoService
