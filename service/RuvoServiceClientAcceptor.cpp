#include "service/RuvoServiceClientAcceptor.h"

#include "runtime/support/VornLogging.h"
#include "service/RuvoServiceClientThread.h"

#include <exception>

namespace RuvoService {

using VornNet::VornConnection;
using VornSupport::VornSmartPointer;

RuvoServiceClientAcceptor::RuvoServiceClientAcceptor() { set(this); }

RuvoServiceClientAcceptor::~RuvoServiceClientAcceptor() { set(nullptr); }

void RuvoServiceClientAcceptor::acceptClient(VornSmartPointer<VornConnection> connection) {
    try {
        if (!refusing_ && RuvoServiceClientThread::serve(connection)) return;
    } catch (const std::exception& e) {
        VORN_LOG(2, "RuvoServiceClientAcceptor::acceptClient: " << e.what());
    }
    // At once: the client's last bytes are not waited for on a listener's thread.
    connection->abort();
    connection->close();
}

}  // namespace RuvoService
