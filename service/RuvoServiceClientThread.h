#pragma once

#include "runtime/net/VornConnection.h"
#include "runtime/support/VornSmartPointer.h"
#include "runtime/support/VornThread.h"

namespace RuvoService {

// Serves one client from its first byte to the end of its connection. Marked
// for death: it frees itself after its run.
class RuvoServiceClientThread : public VornSupport::VornThread {
public:
    using Connection = VornSupport::VornSmartPointer<VornNet::VornConnection>;

    // Gives the client a thread. False when the system has none to give: the
    // connection is then still the caller's. The start is kept out of the
    // constructor: a thread that ends at once would take the object with it
    // while it is still being made.
    static bool serve(const Connection& connection);
    // Makes a thread known to the service's pool and starts it. One that cannot
    // be started leaves no trace there: false.
    static bool startInPool(VornSupport::VornThread& thread);

    ~RuvoServiceClientThread() override;

protected:
    explicit RuvoServiceClientThread(const Connection& connection);
    // 0 when the client was served, else 1. The connection is closed in either
    // case.
    int run() override;

private:
    bool handleClient();

    const Connection connection_;
};

}  // namespace RuvoService
