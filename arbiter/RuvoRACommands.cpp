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

// Gives back a lock whose handle could not be told.
void withdraw(VornConnection& connection, RuvoRAEngine& arbiter, std::int32_t handle) {
    VORN_LOG(9, "RUVO_RA_LOCK::handleClient: client communication error.  "
                "Unlocking the acquired resource.");
    arbiter.unlock(handle);
    // When the service stops, hundreds of waits may end so, and it waits for them.
    if (!connection.isAborted()) arbiter.printTree();
}

// True when the system has taken the handle and the client was there to read
// it. Sending alone does not tell: what is sent to a connection that the client
// has closed is taken all the same. A client that has only ended its own side
// counts as gone too; it may go on reading, and what it reads is 0.
bool tellHandle(VornConnection& connection, RuvoRAEngine& arbiter, std::int32_t handle) {
    const bool gone = handle != 0 && connection.isPeerGone();
    if (gone) withdraw(connection, arbiter, handle);
    try {
        connection.writeInt(gone ? 0 : handle);
        if (handle != 0) connection.flush();
    } catch (const VornSupport::VornException&) {
        if (!gone) withdraw(connection, arbiter, handle);
        return false;
    } catch (...) {
        if (!gone) withdraw(connection, arbiter, handle);  // no memory, say
        throw;
    }
    return !gone;
}

}  // namespace

void RUVO_RA_LOCK::handleClient(VornConnection& connection, RuvoEngineBase& engine) {
    auto& arbiter = as<RuvoRAEngine>(engine);
    VORN_LOG(9, "RUVO_RA_LOCK::handleClient: enter");
    arbiter.waitForRoom(connection);
    std::string path;
    connection.readString(path);
    const int wait = connection.readInt();
    VORN_LOG(9,
             "RUVO_RA_LOCK::handleClient: lock " << path << " wait " << wait << "ms for the lock");
    const RuvoNNEngine::LateWake afterTheAnswer(arbiter.notifier());
    const std::int32_t handle = arbiter.lock(path, wait, &connection);
    if (!tellHandle(connection, arbiter, handle)) return;
    arbiter.printTree();
    VORN_LOG(9, "RUVO_RA_LOCK::handleClient: exit");
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
