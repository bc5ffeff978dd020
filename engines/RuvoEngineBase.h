#pragma once

#include "engines/RuvoEngineFunctionHandler.h"
#include "runtime/monitor/VornEventMonitor.h"
#include "runtime/platform/Export.h"
#include "runtime/support/VornObjectFactory.h"

#include <string>
#include <type_traits>

namespace RuvoService {

// A monitor that clients send commands to. A derived engine registers its
// commands in its constructor; each request gets a handler object of its own.
// Requests come on any number of client threads at once; what an engine shares
// among them it guards itself. The destructor of a derived engine calls
// retire() before its members go.
class VORN_EXPORT RuvoEngineBase : public VornMonitor::VornEventMonitor {
public:
    static constexpr int kUnknownCommand = -999;

    explicit RuvoEngineBase(const std::string& name);
    ~RuvoEngineBase() override;

protected:
    using VornEventMonitor::handleClient;

    // Reads the command name and lets the handler of exactly that name run the
    // rest of the exchange; an unknown one is answered with kUnknownCommand.
    // What the connection or the handler throws passes through.
    void handleClient(VornNet::VornConnection& connection) override;

    // Registers Command under `name`. In the constructor only.
    template <class Command>
    void addCommand(const std::string& name) {
        static_assert(std::is_base_of_v<RuvoEngineFunctionHandler, Command>);
        factory_.add(name, &VornSupport::createObject<Command>);
    }

private:
    VornSupport::VornObjectFactory factory_;  // only read after construction
};

}  // namespace RuvoService
