#pragma once

#include "runtime/net/VornConnection.h"
#include "runtime/platform/Export.h"
#include "runtime/support/VornProperties.h"
#include "runtime/support/VornSmartPointer.h"

#include <atomic>
#include <string>

namespace VornMonitor {

// Something that happened on the host, offered to every monitor.
struct VORN_EXPORT VornEventData {
    std::string source;
    std::string text;
};

// A service of the daemon that clients and the configuration know by its name:
// a listener or an engine. Creating one makes it known to
// VornEventMonitorManager, which starts, stops and configures it from one
// thread at a time and hands clients to it from any number of threads.
class VORN_EXPORT VornEventMonitor {
public:
    using Properties = VornSupport::VornProperties<std::string>;

    explicit VornEventMonitor(const std::string& name);
    // The manager forgets it. A derived class has been stopped before, and one
    // that serves clients has called retire() first of all.
    virtual ~VornEventMonitor();
    VornEventMonitor(const VornEventMonitor&) = delete;
    VornEventMonitor& operator=(const VornEventMonitor&) = delete;

    // The properties may have changed. Does nothing unless overridden.
    virtual void configure();
    // Initialises the monitor unless it is started; true when it is then.
    virtual bool start();
    // Cleans up a started monitor; true unless that failed.
    virtual bool stop();
    // Is offered an event. Does nothing unless overridden.
    virtual void add(VornEventData& event);
    // A request in the form of a text. Does nothing unless overridden.
    virtual void handleClient(std::string& request);

    const std::string& getMonitorName() const { return monitorName_; }
    bool isStarted() const { return started_.load(std::memory_order_acquire); }
    // Before start().
    void setProperties(VornSupport::VornSmartPointer<Properties> properties);

protected:
    friend class VornEventMonitorManager;

    // Serves one request of a client. Called on the client's thread, any number
    // at once, started or not. The base refuses with VornException: a monitor
    // that serves no clients does not override it.
    virtual void handleClient(VornNet::VornConnection& connection);
    virtual bool initialize() = 0;
    virtual bool cleanup() = 0;

    // For the destructor of a derived class, before its members go: on return
    // no client is inside the monitor and none will be handed to it. Repeated
    // calls do nothing.
    void retire();
    // The value of a required key; throws VornPropertyNotFound.
    std::string requireProperty(const std::string& key) const;
    const VornSupport::VornSmartPointer<Properties>& getProperties() const { return properties_; }

private:
    const std::string monitorName_;
    VornSupport::VornSmartPointer<Properties> properties_;
    std::atomic<bool> started_{false};
};

}  // namespace VornMonitor
