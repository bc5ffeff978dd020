#include "arbiter/RuvoRACommands.h"

#include "arbiter/RuvoRAEngine.h"
#include "notifier/RuvoNNEngine.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"

#include <cstdint>
#include <string>

namespace RuvoService {
namespace {

using VornNet::VornConnection;

constexpr int kDone = 0;

// On return the system has taken the handle and the client was there to read
// it. Sending alone does not tell: what is sent to a connection that the client
// has closed is taken all the same. A client that has only ended its own side
// counts as gone too, and must not read a handle that is given back.
void tellHandle(VornConnection& connection, std::int32_t handle) {
    if (handle != 0 && connection.isPeerGone()) {
        throw VornSupport::VornException("RUVO_RA_LOCK::handleClient: the client has gone");
    }
    connection.writeInt(handle);
    if (handle != 0) connection.flush();
}

}  // namespace

void RUVO_RA_LOCK::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    auto& arbiter = as<RuvoRAEngine>(engine);
    arbiter.waitForRoom(connection);
    VORN_LOG(9, "RUVO_RA_LOCK::handleClient: enter");
    std::string path;
    connection.readString(path);
    const int wait = connection.readInt();
    VORN_LOG(9, "RUVO_RA_LOCK::handleClient: lock " << path << " wait " << wait
                                                    << "ms for the lock");
    const RuvoNNEngine::LateWake afterTheAnswer(arbiter.notifier());
    const std::int32_t handle = arbiter.lock(path, wait, &connection);
    try {
        tellHandle(connection, handle);
        arbiter.printTree();
        VORN_LOG(9, "RUVO_RA_LOCK::handleClient: exit");
    } catch (const VornSupport::VornException&) {
        VORN_LOG(9, "RUVO_RA_LOCK::handleClient: client communication error.  "
                    "Unlocking the acquired resource.");
        arbiter.unlock(handle);
        arbiter.printTree();
    }
}

void RUVO_RA_UNLOCK::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    auto& arbiter = as<RuvoRAEngine>(engine);
    arbiter.waitForRoom(connection);
    const std::int32_t handle = connection.readInt();
    VORN_LOG(9, "RUVO_RA_UNLOCK::handleClient: unlock " << handle);
    const RuvoNNEngine::LateWake afterTheAnswer(arbiter.notifier());
    arbiter.unlock(handle);
    arbiter.printTree();
    connection.writeInt(kDone);
    if (!connection.hasBufferedInput()) connection.flush();
}

}  // namespace RuvoService
