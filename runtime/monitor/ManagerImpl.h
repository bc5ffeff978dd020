#pragma once

// For VornEventMonitorManager only.

#include "runtime/monitor/EventQueue.h"
#include "runtime/monitor/MonitorEntry.h"
#include "runtime/monitor/MonitorLibrary.h"
#include "runtime/monitor/VornEventMonitorManager.h"
#include "runtime/support/VornMutex.h"

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace VornMonitor {

using EntryPtr = std::shared_ptr<MonitorEntry>;

struct VornEventMonitorManager::Impl {
    struct Announcement {
        Creator creator;
        MonitorLibrary* library = nullptr;  // whose code the creator is; may be null
    };
    // While it lives, monitors that this thread makes belong to `library` and
    // take no clients yet.
    class LoadScope {
    public:
        LoadScope(Impl& impl, MonitorLibrary* library);
        ~LoadScope();
        LoadScope(const LoadScope&) = delete;
        LoadScope& operator=(const LoadScope&) = delete;

    private:
        Impl& impl_;
        MonitorLibrary* outerLibrary_;
        std::thread::id outerThread_;
    };

    explicit Impl(VornEventMonitorManager& manager);

    // Any thread.
    EntryPtr find(const std::string& name) const VORN_EXCLUDES(mutex);
    std::vector<EntryPtr> all() const VORN_EXCLUDES(mutex);
    void add(VornEventMonitor& monitor) VORN_EXCLUDES(mutex);
    EntryPtr remove(VornEventMonitor& monitor) VORN_EXCLUDES(mutex);

    // The one thread that loads and unloads.
    bool isAnnounced(const std::string& name) const VORN_EXCLUDES(mutex);
    void make(const std::string& name);
    void loadLibrary(const std::string& name);
    void open(const PropertiesPointer& properties);
    void unload(const EntryPtr& entry);
    void end(MonitorEntry& entry);
    void stop(VornEventMonitor& monitor);
    void dropLibrary(std::unique_ptr<MonitorLibrary> library);
    void withdrawAllOf(const MonitorLibrary& library) VORN_EXCLUDES(mutex);
    std::vector<EntryPtr> entriesOf(const MonitorLibrary& library) const VORN_EXCLUDES(mutex);
    std::chrono::milliseconds grace() const { return std::chrono::milliseconds(graceMs.load()); }

    mutable VornSupport::VornSharedMutex mutex;  // of the tables; nothing is called under it
    std::unordered_map<std::string, EntryPtr> byName VORN_GUARDED_BY(mutex);
    std::vector<EntryPtr> order VORN_GUARDED_BY(mutex);  // in which they became known
    std::unordered_map<std::string, Announcement> announced VORN_GUARDED_BY(mutex);
    std::thread::id loadingThread VORN_GUARDED_BY(mutex);  // inside a LoadScope
    MonitorLibrary* loadingLibrary VORN_GUARDED_BY(mutex) = nullptr;
    std::string moduleFolder VORN_GUARDED_BY(mutex);  // empty: not set

    std::vector<std::unique_ptr<MonitorLibrary>> libraries;  // of the loading thread
    std::atomic<std::chrono::milliseconds::rep> graceMs{2000};
    EventQueue events;
};

}  // namespace VornMonitor
