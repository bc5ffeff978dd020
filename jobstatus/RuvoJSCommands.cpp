#include "jobstatus/RuvoJSCommands.h"

#include "jobstatus/RuvoJSEngine.h"
#include "runtime/net/VornNetLimits.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace RuvoService {
namespace {

using VornNet::VornConnection;

// Grows with what arrives, not with what was declared.
std::vector<std::int32_t> readNumbers(VornConnection& connection, std::int32_t count) {
    const std::uint32_t most = VornNet::VornNetLimits::getInstance().blockBytes;
    if (count > 0 && static_cast<std::uint32_t>(count) > most / sizeof(std::int32_t)) {
        throw VornSupport::VornException("RUVO_JS_MAP_JOB::handleClient: a list of " +
                                         std::to_string(count) + " numbers is too long");
    }
    std::vector<std::int32_t> numbers;
    for (std::int32_t i = 0; i < count; ++i) numbers.push_back(connection.readInt());
    return numbers;
}

}  // namespace

void RUVO_JS_CREATE::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    as<RuvoJSEngine>(engine).waitForRoom(connection);
    std::string description;
    std::string name;
    connection.readString(description);
    connection.readString(name);
    VORN_LOG(9, "RUVO_JS_CREATE::handleClient: enter: jobname="
                    << "|" << name << "| description="
                    << "|" << description << "|");
    connection.writeInt(as<RuvoJSEngine>(engine).createJob(description, name));
    VORN_LOG(9, "RUVO_JS_CREATE::handleClient: exit");
}

void RUVO_JS_MAP_JOB::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    const std::int32_t id = connection.readInt();
    VORN_LOG(9, "RUVO_JS_MAP_JOB::handleClient: jobid=" << id);
    const std::int32_t count = connection.readInt();
    VORN_LOG(9, "RUVO_JS_MAP_JOB::handleClient: jobcount=" << count);
    const std::int32_t result =
        as<RuvoJSEngine>(engine).mapJob(id, readNumbers(connection, count));
    connection.writeInt(result);
    VORN_LOG(9, "RUVO_JS_MAP_JOB::handleClient: exit, jobid=" << result);
}

void RUVO_JS_LOOKUP::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    std::string name;
    connection.readString(name);
    VORN_LOG(9, "RUVO_JS_LOOKUP::handleClient: enter: jobname="
                    << "|" << name << "|");
    const std::int32_t result = as<RuvoJSEngine>(engine).lookupJob(name);
    connection.writeInt(result);
    VORN_LOG(9, "RUVO_JS_LOOKUP::handleClient: exit, jobid=" << result);
}

void RUVO_JS_DELETE::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    as<RuvoJSEngine>(engine).waitForRoom(connection);
    VORN_LOG(9, "RUVO_JS_DELETE::handleClient: enter");
    const std::int32_t result = as<RuvoJSEngine>(engine).deleteJob(connection.readInt());
    connection.writeInt(result);
    VORN_LOG(9, "RUVO_JS_DELETE::handleClient: exit, jobid=" << result);
}

void RUVO_JS_SET_PROGRESS::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    as<RuvoJSEngine>(engine).waitForRoom(connection);
    // It enters under this shorter name; those who read logs look for it.
    VORN_LOG(9, "RUVO_JS_PROGRESS::handleClient: enter");
    const std::int32_t id = connection.readInt();
    const std::int32_t progress = connection.readInt();
    const std::int32_t result = as<RuvoJSEngine>(engine).setProgress(id, progress);
    connection.writeInt(result);
    VORN_LOG(9, "RUVO_JS_SET_PROGRESS::handleClient: exit, jobid=" << result);
}

void RUVO_JS_GET_PROGRESS::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    VORN_LOG(9, "RUVO_JS_GET_PROGRESS::handleClient: enter");
    const std::int32_t result = as<RuvoJSEngine>(engine).getProgress(connection.readInt());
    connection.writeInt(result);
    VORN_LOG(9, "RUVO_JS_GET_PROGRESS::handleClient: exit, progress=" << result);
}

void RUVO_JS_GET_ALL_PROGRESS::handleClient(VornConnection&, RuvoEngineBase&) {
    VORN_LOG(9, "RUVO_JS_GET_ALL_PROGRESS::handleClient: enter");
    VORN_LOG(9, "RUVO_JS_GET_ALL_PROGRESS::handleClient: exit");
}

void RUVO_JS_CANCEL::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    as<RuvoJSEngine>(engine).waitForRoom(connection);
    VORN_LOG(9, "RUVO_JS_CANCEL::handleClient: enter");
    const std::int32_t result = as<RuvoJSEngine>(engine).cancelJob(connection.readInt());
    connection.writeInt(result);
    VORN_LOG(9, "RUVO_JS_CANCEL::handleClient: exit, jobid=" << result);
}

}  // namespace RuvoService
