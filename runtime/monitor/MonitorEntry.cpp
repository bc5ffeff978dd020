#include "runtime/monitor/MonitorEntry.h"

#include "runtime/support/VornLogging.h"

namespace VornMonitor {

using VornSupport::VornMutexLock;

MonitorEntry::Visit::Visit(MonitorEntry& entry, VornNet::VornConnection& connection)
    : entry_(entry), connection_(connection), inside_(entry.enter(*this)) {}

MonitorEntry::Visit::~Visit() {
    if (inside_) entry_.leave(*this);
}

bool MonitorEntry::enter(Visit& visit) {
    VornMutexLock lock(mutex_);
    if (!open_) return false;
    visit.next_ = visits_;
    if (visits_ != nullptr) visits_->previous_ = &visit;
    visits_ = &visit;
    return true;
}

void MonitorEntry::leave(Visit& visit) {
    VornMutexLock lock(mutex_);
    if (visit.next_ != nullptr) visit.next_->previous_ = visit.previous_;
    (visit.previous_ != nullptr ? visit.previous_->next_ : visits_) = visit.next_;
    if (visits_ == nullptr) empty_.notifyAll();
}

void MonitorEntry::open() {
    VornMutexLock lock(mutex_);
    open_ = true;
}

bool MonitorEntry::isOpen() const {
    VornMutexLock lock(mutex_);
    return open_;
}

void MonitorEntry::close(std::chrono::milliseconds grace) {
    const auto deadline = std::chrono::steady_clock::now() + grace;
    VornMutexLock lock(mutex_);
    open_ = false;
    while (visits_ != nullptr && empty_.waitUntil(mutex_, deadline)) {
    }
    if (visits_ == nullptr) return;
    const int broken = breakOffLocked();
    lock.unlock();
    VORN_LOG(3, "VornEventMonitorManager::deactivate: breaking off "
                    << broken << " clients of " << monitor_.getMonitorName());
    lock.lock();
    // However long it takes: a client that is inside runs the monitor's code.
    while (visits_ != nullptr) empty_.wait(mutex_);
}

// With the lock held a visitor cannot leave, so its connection is still there.
int MonitorEntry::breakOffLocked() {
    int count = 0;
    for (Visit* visit = visits_; visit != nullptr; visit = visit->next_) {
        visit->connection_.abort();
        ++count;
    }
    return count;
}

}  // namespace VornMonitor
