#include "runtime/net/VornIPCServer.h"

#include <unordered_set>

namespace VornNet {

using VornSupport::VornMutexLock;

struct VornAcceptedConnections::Impl {
    mutable VornSupport::VornMutex mutex;
    std::unordered_set<VornConnection*> connections VORN_GUARDED_BY(mutex);
};

VornAcceptedConnections::VornAcceptedConnections() : impl_(new Impl) {}

VornAcceptedConnections& VornAcceptedConnections::getInstance() {
    static VornAcceptedConnections* const instance = new VornAcceptedConnections;
    return *instance;
}

void VornAcceptedConnections::add(VornConnection& connection) {
    VornMutexLock lock(impl_->mutex);
    impl_->connections.insert(&connection);
}

void VornAcceptedConnections::remove(VornConnection& connection) {
    VornMutexLock lock(impl_->mutex);
    impl_->connections.erase(&connection);
}

int VornAcceptedConnections::size() const {
    VornMutexLock lock(impl_->mutex);
    return static_cast<int>(impl_->connections.size());
}

// Under the lock, so that none of them can be destroyed meanwhile; abort() waits
// for nobody.
int VornAcceptedConnections::abortAll() {
    VornMutexLock lock(impl_->mutex);
    for (VornConnection* connection : impl_->connections) connection->abort();
    return static_cast<int>(impl_->connections.size());
}

}  // namespace VornNet
