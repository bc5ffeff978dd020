#include "runtime/monitor/VornEventMonitor.h"

#include "runtime/monitor/VornEventMonitorManager.h"
#include "runtime/support/VornException.h"

#include <utility>

namespace VornMonitor {

using VornSupport::VornException;
using VornSupport::VornPropertyNotFound;

VornEventMonitor::VornEventMonitor(const std::string& name) : monitorName_(name) {
    VornEventMonitorManager::getInstance().activate(*this);
}

VornEventMonitor::~VornEventMonitor() { retire(); }

void VornEventMonitor::retire() { VornEventMonitorManager::getInstance().deactivate(*this); }

void VornEventMonitor::configure() {}

bool VornEventMonitor::start() {
    if (!isStarted()) started_.store(initialize(), std::memory_order_release);
    return isStarted();
}

bool VornEventMonitor::stop() {
    // What a failed cleanup leaves behind is not cleaned up a second time.
    return !started_.exchange(false, std::memory_order_acq_rel) || cleanup();
}

void VornEventMonitor::add(VornEventData&) {}

void VornEventMonitor::handleClient(std::string&) {}

void VornEventMonitor::handleClient(VornNet::VornConnection&) {
    throw VornException("the monitor " + monitorName_ + " serves no clients");
}

void VornEventMonitor::setProperties(VornSupport::VornSmartPointer<Properties> properties) {
    properties_ = std::move(properties);
}

std::string VornEventMonitor::requireProperty(const std::string& key) const {
    if (!properties_) throw VornPropertyNotFound(key);
    return properties_->getProperty(key);
}

}  // namespace VornMonitor
