// The part of VornEventMonitorManager that makes monitors on demand and lets
// them go again.

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

VornEventMonitorManager::Impl::LoadScope::LoadScope(Impl& impl, MonitorLibrary* library)
    : impl_(impl) {
    VornWriteLock lock(impl_.mutex);
    outerThread_ = std::exchange(impl_.loadingThread, std::this_thread::get_id());
    outerLibrary_ = std::exchange(impl_.loadingLibrary, library);
}

VornEventMonitorManager::Impl::LoadScope::~LoadScope() {
    VornWriteLock lock(impl_.mutex);
    impl_.loadingThread = outerThread_;
    impl_.loadingLibrary = outerLibrary_;
}

// ---- announcements ---------------------------------------------------------------

void VornEventMonitorManager::announce(const std::string& name, Creator creator) {
    Impl::Announcement fresh{std::move(creator), nullptr};
    VornWriteLock lock(impl_->mutex);
    if (impl_->loadingThread == std::this_thread::get_id()) {
        fresh.library = impl_->loadingLibrary;
    }
    std::swap(impl_->announced[name], fresh);  // an earlier one goes after the lock
}

void VornEventMonitorManager::withdraw(const std::string& name) {
    const EntryPtr entry = impl_->find(name);
    if (entry && entry->owned) impl_->unload(entry);
    Impl::Announcement gone;  // goes after the lock: its end is the module's code
    VornWriteLock lock(impl_->mutex);
    const auto found = impl_->announced.find(name);
    if (found == impl_->announced.end()) return;
    gone = std::move(found->second);
    impl_->announced.erase(found);
}

bool VornEventMonitorManager::Impl::isAnnounced(const std::string& name) const {
    VornReadLock lock(mutex);
    return announced.contains(name);
}

void VornEventMonitorManager::Impl::withdrawAllOf(const MonitorLibrary& library) {
    std::vector<Announcement> gone;
    VornWriteLock lock(mutex);
    for (auto it = announced.begin(); it != announced.end();) {
        if (it->second.library == &library) {
            gone.push_back(std::move(it->second));
            it = announced.erase(it);
        } else {
            ++it;
        }
    }
}

// ---- loading ---------------------------------------------------------------------

void VornEventMonitorManager::setModuleFolder(const std::string& folder) {
    VornWriteLock lock(impl_->mutex);
    impl_->moduleFolder = folder;
}

void VornEventMonitorManager::loadMonitor(const std::string& name,
                                          const PropertiesPointer& properties) {
    if (impl_->find(name)) return;
    if (impl_->isAnnounced(name)) {
        impl_->make(name);
    } else {
        impl_->loadLibrary(name);
    }
    impl_->open(properties);
    VORN_LOG(4, "VornEventMonitorManager::loadMonitor: loaded " << name);
}

// Makes the announced monitor `name`.
void VornEventMonitorManager::Impl::make(const std::string& name) {
    Announcement from;
    {
        VornReadLock lock(mutex);
        from = announced.at(name);
    }
    const LoadScope scope(*this, from.library);
    std::unique_ptr<VornEventMonitor> monitor = withOwnExceptions([&] { return from.creator(); });
    const EntryPtr entry = find(name);
    if (!monitor || !entry || &entry->monitor() != monitor.get()) {
        throw VornException("VornEventMonitorManager::loadMonitor: no monitor " + name +
                            " was made");
    }
    entry->owned = std::move(monitor);
}

void VornEventMonitorManager::Impl::loadLibrary(const std::string& name) {
    std::string folder;
    {
        VornReadLock lock(mutex);
        folder = moduleFolder;
    }
    libraries.reserve(libraries.size() + 1);
    auto library = std::make_unique<MonitorLibrary>(folder, name);
    try {
        {
            const LoadScope scope(*this, library.get());
            library->attach();
        }
        if (!find(name)) {
            if (!isAnnounced(name)) {
                throw VornException("VornEventMonitorManager::loadMonitor: the library " + name +
                                    " has no monitor of that name");
            }
            make(name);
        }
    } catch (...) {
        // All exceptions on the way here are of our own making.
        dropLibrary(std::move(library));
        throw;
    }
    libraries.push_back(std::move(library));
}

// Lets clients into what has been loaded.
void VornEventMonitorManager::Impl::open(const PropertiesPointer& properties) {
    for (const EntryPtr& entry : all()) {
        if (entry->isOpen()) continue;
        if (properties) entry->monitor().setProperties(properties);
        entry->open();
    }
}

// ---- unloading -------------------------------------------------------------------

void VornEventMonitorManager::unloadMonitor(const std::string& name) {
    const EntryPtr entry = impl_->find(name);
    if (!entry || (!entry->owned && entry->library() == nullptr)) {
        VORN_LOG(3, "VornEventMonitorManager::unloadMonitor: " << name << " was not loaded");
        return;
    }
    impl_->unload(entry);
    VORN_LOG(4, "VornEventMonitorManager::unloadMonitor: unloaded " << name);
}

void VornEventMonitorManager::Impl::unload(const EntryPtr& entry) {
    MonitorLibrary* const library = entry->library();
    const bool owned = entry->owned != nullptr;
    if (owned) end(*entry);
    if (library == nullptr || (owned && !entriesOf(*library).empty())) return;
    const auto found =
        std::find_if(libraries.begin(), libraries.end(),
                     [&](const auto& candidate) { return candidate.get() == library; });
    if (found == libraries.end()) return;
    std::unique_ptr<MonitorLibrary> last = std::move(*found);
    libraries.erase(found);
    dropLibrary(std::move(last));
}

// Stops a monitor, sees its clients out and destroys it when it is ours.
void VornEventMonitorManager::Impl::end(MonitorEntry& entry) {
    stop(entry.monitor());
    entry.close(grace());
    entry.owned.reset();  // makes itself unknown
}

std::vector<EntryPtr> VornEventMonitorManager::Impl::entriesOf(
    const MonitorLibrary& library) const {
    std::vector<EntryPtr> entries = all();
    std::erase_if(entries, [&](const EntryPtr& entry) { return entry->library() != &library; });
    return entries;
}

void VornEventMonitorManager::Impl::dropLibrary(std::unique_ptr<MonitorLibrary> library) {
    withdrawAllOf(*library);
    for (const EntryPtr& entry : entriesOf(*library)) end(*entry);
    library->detach();
    withdrawAllOf(*library);
    const std::vector<EntryPtr> left = entriesOf(*library);
    if (left.empty()) return;
    // Its code may still run: the library stays, but nobody finds the monitors.
    for (const EntryPtr& entry : left) remove(entry->monitor());
    VORN_LOG(2, "VornEventMonitorManager::unloadMonitor: the library "
                    << library->getName() << " left " << left.size()
                    << " monitors behind and stays loaded");
    library->keepLoaded();
}

}  // namespace VornMonitor
