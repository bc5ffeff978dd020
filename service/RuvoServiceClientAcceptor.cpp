#include "service/RuvoServiceClientAcceptor.h"

#include "runtime/net/VornNetLimits.h"
#include "runtime/support/VornLogging.h"
#include "service/RuvoServiceClientThread.h"
#include "service/RuvoServiceClientThreadPool.h"

#include <exception>

namespace RuvoService {

using VornNet::VornConnection;
using VornSupport::VornSmartPointer;

RuvoServiceClientAcceptor::RuvoServiceClientAcceptor(const RuvoServiceClientThreadPool& pool)
    : pool_(pool) {
    set(this);
}

RuvoServiceClientAcceptor::~RuvoServiceClientAcceptor() { set(nullptr); }

void RuvoServiceClientAcceptor::acceptClient(VornSmartPointer<VornConnection> connection) {
    try {
        if (serve(connection)) return;
    } catch (const std::exception& e) {
        VORN_LOG(2, "RuvoServiceClientAcceptor::acceptClient: " << e.what());
    }
    connection->close();
}

// False when the client is to be closed.
bool RuvoServiceClientAcceptor::serve(const VornSmartPointer<VornConnection>& connection) {
    const int limit = VornNet::VornNetLimits::getInstance().clients;
    {
        VornSupport::VornMutexLock lock(oneAtATime_);
        if (pool_.size() < static_cast<std::size_t>(limit)) {
            return RuvoServiceClientThread::serve(connection);
        }
    }
    VORN_LOG(3, "RuvoServiceClientAcceptor::acceptClient: "
                    << connection->getPeerName() << " closed, as \"ruvod.limits.clients\" ("
                    << limit << ") are connected");
    return false;
}

}  // namespace RuvoService
