#pragma once

#include "runtime/net/VornConnection.h"
#include "runtime/platform/Export.h"
#include "runtime/support/VornSmartPointer.h"

namespace RuvoService {

// To whom listeners hand the clients they accept. The service core implements
// it; listeners do not know the service.
class VORN_EXPORT RuvoClientAcceptor {
public:
    virtual ~RuvoClientAcceptor();

    // Serves the client on a thread of its own and owns the connection from
    // here on. Called on any listener's thread; returns at once. Never throws:
    // a client that cannot be served is closed and logged.
    virtual void acceptClient(
        VornSupport::VornSmartPointer<VornNet::VornConnection> connection) = 0;

    // The one that is used; null before the service has set it and after it has
    // gone. On return no listener is inside an earlier one. Any thread, but not
    // from inside acceptClient.
    static void set(RuvoClientAcceptor* acceptor);
    // Hands the client to the acceptor in force, or closes it when there is none.
    static void dispatch(VornSupport::VornSmartPointer<VornNet::VornConnection> connection);
};

}  // namespace RuvoService
