#pragma once

#include "runtime/monitor/VornEventMonitor.h"
#include "runtime/net/VornIPCServer.h"
#include "runtime/platform/Export.h"
#include "runtime/support/VornEvent.h"
#include "runtime/support/VornMutex.h"
#include "runtime/support/VornSmartPointer.h"
#include "runtime/support/VornThread.h"

#include <functional>
#include <string>

namespace RuvoService {

// A listener: a monitor with an endpoint and a thread, both of the listener's
// name, that hands every client that comes to RuvoClientAcceptor. Derived
// classes build the endpoint in initialize() and call cleanup() in their
// destructor, so that the thread does not meet a half-destroyed object. Both
// bases have a start() and a stop(): the monitor's are for the manager, the
// thread's for this class. getAddress() may be called from any thread.
class VORN_EXPORT RuvoNetworkService : public VornMonitor::VornEventMonitor,
                                       public VornSupport::VornThread {
public:
    using Endpoint = VornSupport::VornSmartPointer<VornNet::VornIPCServer>;

    explicit RuvoNetworkService(const std::string& name);
    ~RuvoNetworkService() override;

    // Where the endpoint really listens ("tcp:0.0.0.0:4711"); empty while there
    // is none.
    std::string getAddress() const VORN_EXCLUDES(serverMutex_);

protected:
    // Starts the listener's thread; true when it runs.
    bool initialize() override;
    // Closes the endpoint, waits for the thread to end and lets the endpoint go.
    // Returns true.
    bool cleanup() override;

    // What initialize() of a derived class does: makes an endpoint in place of
    // an earlier one, which is closed first, and starts the thread. A
    // VornException is logged under the class's name, and the listener is left
    // without endpoint and thread: false.
    bool listen(const char* className, const std::function<Endpoint()>& makeEndpoint);
    // The value of a required key as a port: a decimal number of which the low
    // 16 bits count, as a signed number. 40000 gives -25536; no number gives 0.
    short requirePort(const std::string& key) const;

    // The thread's body: waits for clients until the endpoint is closed.
    int run() override;

private:
    Endpoint getServer() const VORN_EXCLUDES(serverMutex_);
    void setServer(Endpoint server) VORN_EXCLUDES(serverMutex_);

    mutable VornSupport::VornMutex serverMutex_;
    Endpoint server_ VORN_GUARDED_BY(serverMutex_);
    VornSupport::VornEvent closing_{true};
};

}  // namespace RuvoService
