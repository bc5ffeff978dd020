#pragma once

#include "runtime/monitor/VornEventMonitor.h"
#include "runtime/platform/Export.h"
#include "runtime/support/VornCollaborator.h"
#include "runtime/support/VornMutex.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace VornMonitor {

// Knows every monitor of the process by name and does to them what the service
// asks. Monitors are started, configured and stopped in the order in which
// they became known. handleClient and postEvent may be called from any thread;
// everything else from one thread at a time. No lock is held while a monitor
// is called.
class VORN_EXPORT VornEventMonitorManager : public VornSupport::VornCollaborator {
public:
    using Properties = VornEventMonitor::Properties;
    using PropertiesPointer = VornSupport::VornSmartPointer<Properties>;
    using Creator = std::function<std::unique_ptr<VornEventMonitor>()>;

    // Tells the dependents that events are waiting for processEvents().
    class VORN_EXPORT TimerNotification : public VornSupport::VornNotification {
    public:
        ~TimerNotification() override;
    };

    static VornEventMonitorManager& getInstance();

    // By the monitor's constructor and destructor. A second monitor of a name
    // is refused with VornException. deactivate() returns when no client is
    // inside the monitor any more; those that wait for their peer are broken
    // off after a grace of two seconds.
    void activate(VornEventMonitor& monitor);
    void deactivate(VornEventMonitor& monitor);

    // By modules: a monitor that can be made on demand under this name. A
    // module withdraws it before its code goes; a monitor that was made of it
    // is unloaded then.
    void announce(const std::string& name, Creator creator);
    void withdraw(const std::string& name);

    // Makes the monitor known: nothing to do when it is, else one that was
    // announced, else the shared library of that name in the module folder is
    // loaded and its ModuleData attached. It takes clients from here on and is
    // started by the next startMonitors(). Throws VornException when there is
    // no such monitor or it cannot be made; then nothing is left of it.
    void loadMonitor(const std::string& name, const PropertiesPointer& properties);
    // Stops and destroys a monitor that loadMonitor() made, and lets go of its
    // library when none of the library's monitors is left; monitors that the
    // library made when it was attached all go with the first of them. Unknown
    // names and monitors that their module owns are logged at level 3 and left
    // alone.
    void unloadMonitor(const std::string& name);
    // Where libraries of monitors are looked for; the folder of the core module
    // unless set.
    void setModuleFolder(const std::string& folder);

    // Starts every monitor that is not started. One that fails is logged at
    // level 2 and left; the others go on. True when all of them run.
    bool startMonitors(const PropertiesPointer& properties);
    void stopMonitors();
    void configureMonitors();

    // Queues an event for the monitors and arms the manager's timer, which
    // tells the dependents (TimerNotification) on a timer thread.
    void postEvent(const VornEventData& event);
    // Offers to every started monitor what postEvent() queued and the lines of
    // the spool file `fileName` (taken over under another name first, deleted
    // afterwards; a missing file is none).
    void processEvents(const std::string& fileName);

    // Hands a client to the monitor of that name, on the calling thread. Throws
    // VornException naming an unknown monitor; what the monitor throws passes
    // through, copied into a VornException of ours when the monitor's code may
    // be unloaded before the exception has been dealt with.
    void handleClient(const std::string& name, VornNet::VornConnection& connection);
    bool isKnown(const std::string& name) const;

    // How long deactivate() lets clients finish; two seconds unless set.
    void setGraceForTest(std::chrono::milliseconds grace);

private:
    VornEventMonitorManager();
    ~VornEventMonitorManager() override;  // never called

    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace VornMonitor
