#include "runtime/monitor/VornEventMonitorManager.h"

#include "runtime/monitor/EventSpool.h"
#include "runtime/monitor/ForeignExceptions.h"
#include "runtime/monitor/ManagerImpl.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"

#include <algorithm>
#include <utility>

namespace VornMonitor {

using VornSupport::VornException;
using VornSupport::VornReadLock;
using VornSupport::VornWriteLock;

namespace {

[[noreturn]] void throwUnknown(const std::string& name) {
    constexpr std::size_t kShown = 200;  // a client may send a megabyte
    throw VornException("VornEventMonitorManager::handleClient: unknown monitor " +
                        (name.size() > kShown ? name.substr(0, kShown) + "..." : name));
}

}  // namespace

VornEventMonitorManager::TimerNotification::~TimerNotification() = default;

VornEventMonitorManager::Impl::Impl(VornEventMonitorManager& manager)
    : events([&manager] { manager.notify(TimerNotification()); }) {}

VornEventMonitorManager::VornEventMonitorManager() : impl_(std::make_unique<Impl>(*this)) {}
VornEventMonitorManager::~VornEventMonitorManager() = default;

VornEventMonitorManager& VornEventMonitorManager::getInstance() {
    static VornEventMonitorManager* const instance = new VornEventMonitorManager;
    return *instance;
}

// ---- the tables ----------------------------------------------------------------

EntryPtr VornEventMonitorManager::Impl::find(const std::string& name) const {
    VornReadLock lock(mutex);
    const auto found = byName.find(name);
    return found == byName.end() ? nullptr : found->second;
}

std::vector<EntryPtr> VornEventMonitorManager::Impl::all() const {
    VornReadLock lock(mutex);
    return order;
}

void VornEventMonitorManager::Impl::add(VornEventMonitor& monitor) {
    const std::string& name = monitor.getMonitorName();
    VornWriteLock lock(mutex);
    const bool loaded = loadingThread == std::this_thread::get_id();
    auto entry =
        std::make_shared<MonitorEntry>(monitor, loaded ? loadingLibrary : nullptr, loaded);
    order.reserve(order.size() + 1);  // so that nothing can fail after the next line
    if (!byName.emplace(name, entry).second) {
        throw VornException("VornEventMonitorManager::activate: there is a monitor " + name +
                            " already");
    }
    order.push_back(std::move(entry));
}

EntryPtr VornEventMonitorManager::Impl::remove(VornEventMonitor& monitor) {
    VornWriteLock lock(mutex);
    const auto found = byName.find(monitor.getMonitorName());
    if (found == byName.end() || &found->second->monitor() != &monitor) return nullptr;
    EntryPtr entry = std::move(found->second);
    byName.erase(found);
    order.erase(std::find(order.begin(), order.end(), entry));
    return entry;
}

void VornEventMonitorManager::activate(VornEventMonitor& monitor) { impl_->add(monitor); }

void VornEventMonitorManager::deactivate(VornEventMonitor& monitor) {
    if (const EntryPtr entry = impl_->remove(monitor)) entry->close(impl_->grace());
}

bool VornEventMonitorManager::isKnown(const std::string& name) const {
    const EntryPtr entry = impl_->find(name);
    return entry && entry->isOpen();
}

void VornEventMonitorManager::setGraceForTest(std::chrono::milliseconds grace) {
    impl_->graceMs = grace.count();
}

// ---- starting and stopping -------------------------------------------------------

bool VornEventMonitorManager::startMonitors(const PropertiesPointer& properties) {
    bool allRun = true;
    for (const EntryPtr& entry : impl_->all()) {
        VornEventMonitor& monitor = entry->monitor();
        if (monitor.isStarted()) continue;
        std::string reason;
        withoutExceptions(
            [&] {
                if (properties) monitor.setProperties(properties);
                monitor.start();
            },
            [&](const char* text) { reason = std::string(": ") + text; });
        if (monitor.isStarted()) continue;
        allRun = false;
        VORN_LOG(2, "VornEventMonitorManager::startMonitors: could not start "
                        << monitor.getMonitorName() << reason);
    }
    return allRun;
}

void VornEventMonitorManager::stopMonitors() {
    for (const EntryPtr& entry : impl_->all()) impl_->stop(entry->monitor());
}

void VornEventMonitorManager::Impl::stop(VornEventMonitor& monitor) {
    bool stopped = false;
    std::string reason;
    withoutExceptions([&] { stopped = monitor.stop(); },
                      [&](const char* text) { reason = std::string(": ") + text; });
    if (stopped) return;
    VORN_LOG(2, "VornEventMonitorManager::stopMonitors: could not stop "
                    << monitor.getMonitorName() << reason);
}

void VornEventMonitorManager::configureMonitors() {
    for (const EntryPtr& entry : impl_->all()) {
        VornEventMonitor& monitor = entry->monitor();
        withoutExceptions([&] { monitor.configure(); },
                          [&](const char* text) {
                              VORN_LOG(2, "VornEventMonitorManager::configureMonitors: "
                                              << monitor.getMonitorName() << ": " << text);
                          });
    }
}

// ---- events and clients ----------------------------------------------------------

void VornEventMonitorManager::postEvent(const VornEventData& event) { impl_->events.post(event); }

void VornEventMonitorManager::processEvents(const std::string& fileName) {
    const std::vector<EntryPtr> entries = impl_->all();
    const auto offer = [&](const VornEventData& event) {
        for (const EntryPtr& entry : entries) {
            VornEventMonitor& monitor = entry->monitor();
            if (!monitor.isStarted()) continue;
            withoutExceptions(
                [&] {
                    VornEventData own = event;  // it may change what it is given
                    monitor.add(own);
                },
                [&](const char* text) {
                    VORN_LOG(2, "VornEventMonitorManager::processEvents: "
                                    << monitor.getMonitorName() << ": " << text);
                });
        }
    };
    for (const VornEventData& event : impl_->events.take()) offer(event);
    EventSpool::process(fileName, offer);
}

void VornEventMonitorManager::handleClient(const std::string& name,
                                           VornNet::VornConnection& connection) {
    const EntryPtr entry = impl_->find(name);
    if (!entry) throwUnknown(name);
    const MonitorEntry::Visit visit(*entry, connection);
    if (!visit) throwUnknown(name);
    VornEventMonitor& monitor = entry->monitor();
    if (!entry->isLoaded()) {
        monitor.handleClient(connection);
        return;
    }
    // The visit ends after the exception of the monitor's making has.
    withOwnExceptions([&] { monitor.handleClient(connection); });
}

}  // namespace VornMonitor
