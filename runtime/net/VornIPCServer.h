#pragma once

#include "runtime/net/VornConnection.h"
#include "runtime/platform/Export.h"
#include "runtime/support/VornMutex.h"
#include "runtime/support/VornSmartPointer.h"

#include <string>

namespace VornNet {

// A listening endpoint. waitForClient belongs to one thread; close() may be
// called from any. Endpoints are open when their constructor returns; it throws
// VornException when the address cannot be had.
class VORN_EXPORT VornIPCServer : public virtual VornSupport::VornObjectBase {
public:
    ~VornIPCServer() override;

    // Waits for the next client (with `wait` false: looks once). Null when the
    // endpoint has been closed, or, without waiting, when nobody is there.
    // Passing failures of the system (out of descriptors, a client that gave up
    // at once) are logged and waited out, never returned.
    virtual VornSupport::VornSmartPointer<VornConnection> waitForClient(bool wait) = 0;
    // Ends a pending waitForClient and returns when the address is free again.
    // Connections already accepted go on; those of a UDP endpoint, which have no
    // socket of their own, end.
    virtual void close() = 0;
    // "tcp:0.0.0.0:4711", with the port that was really bound.
    virtual std::string getAddress() const = 0;
};

// Every connection that any endpoint of the process accepted and that still
// lives, so that a stopping service can break them all. Any thread.
class VORN_EXPORT VornAcceptedConnections {
public:
    static VornAcceptedConnections& getInstance();

    void add(VornConnection& connection);     // by the endpoint
    void remove(VornConnection& connection);  // by the connection's destructor
    int size() const;
    // Breaks all of them (VornConnection::abort); each one's own thread closes
    // it then. Returns how many there were.
    int abortAll();

private:
    VornAcceptedConnections();
    struct Impl;
    Impl* impl_;  // lives as long as the process
};

}  // namespace VornNet
