#include "engines/RuvoEngineBase.h"

#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"
#include "runtime/support/VornSmartPointer.h"

namespace RuvoService {

RuvoEngineBase::RuvoEngineBase(const std::string& name) : VornEventMonitor(name) {}

RuvoEngineBase::~RuvoEngineBase() { retire(); }

RuvoEngineFunctionHandler::~RuvoEngineFunctionHandler() = default;

void RuvoEngineFunctionHandler::refuseEngine() {
    throw VornSupport::VornException("a command was given to an engine of another kind");
}

void RuvoEngineBase::handleClient(VornNet::VornConnection& connection) {
    VORN_LOG(9, "RuvoEngineBase::handleClient: entering");
    std::string command;
    connection.readString(command);
    VORN_LOG(9, "RuvoEngineBase::handleClient: command " << command);
    const auto object = factory_.construct(command);
    if (!object) {
        VORN_LOG(2, "RuvoEngineBase::handleClient: unknown command from client - " << command);
        connection.writeInt(kUnknownCommand);
        return;
    }
    // Only addCommand() fills the factory, and only with handlers.
    static_cast<RuvoEngineFunctionHandler&>(*object).handleClient(connection, *this);
}

}  // namespace RuvoService
