#pragma once

// For VornEventMonitorManager only.

#include "runtime/monitor/VornEventMonitor.h"
#include "runtime/support/VornMutex.h"

#include <chrono>
#include <memory>

namespace VornMonitor {

class MonitorLibrary;

// One known monitor and the clients that are inside it at this moment. visit
// and close may be called from any thread; the fields belong to the thread that
// loads and unloads.
class MonitorEntry {
public:
    // A client inside the monitor, on the stack of its thread.
    class Visit {
    public:
        Visit(MonitorEntry& entry, VornNet::VornConnection& connection);
        ~Visit();
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;

        // False: the monitor does not take clients, or no longer.
        explicit operator bool() const { return inside_; }

    private:
        friend class MonitorEntry;
        MonitorEntry& entry_;
        VornNet::VornConnection& connection_;
        Visit* previous_ = nullptr;
        Visit* next_ = nullptr;
        const bool inside_;
    };

    // `library` is the one whose code the monitor runs, null for those that a
    // module of the program made; `loaded` says that loadMonitor() made it. A
    // loaded one takes no clients before open().
    MonitorEntry(VornEventMonitor& monitor, MonitorLibrary* library, bool loaded)
        : monitor_(monitor), library_(library), loaded_(loaded), open_(!loaded) {}

    VornEventMonitor& monitor() const { return monitor_; }
    MonitorLibrary* library() const { return library_; }
    bool isLoaded() const { return loaded_; }

    // Lets clients in, once the monitor is fully made.
    void open() VORN_EXCLUDES(mutex_);
    bool isOpen() const VORN_EXCLUDES(mutex_);
    // Lets nobody in from now on and waits until nobody is inside. Those that
    // still are when `grace` has passed are broken off.
    void close(std::chrono::milliseconds grace) VORN_EXCLUDES(mutex_);

    // Set when the manager owns the monitor.
    std::unique_ptr<VornEventMonitor> owned;

private:
    bool enter(Visit& visit) VORN_EXCLUDES(mutex_);
    void leave(Visit& visit) VORN_EXCLUDES(mutex_);
    int breakOffLocked() VORN_REQUIRES(mutex_);

    VornEventMonitor& monitor_;
    MonitorLibrary* const library_;
    const bool loaded_;

    mutable VornSupport::VornMutex mutex_;  // held for a few instructions only
    VornSupport::VornCondition empty_;
    Visit* visits_ VORN_GUARDED_BY(mutex_) = nullptr;
    bool open_ VORN_GUARDED_BY(mutex_);
};

}  // namespace VornMonitor
