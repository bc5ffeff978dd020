#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornEvent.h"

#include <string>

namespace VornSupport {

// The frame of a service program: keeps the names under which the service
// manager knows it, and runs it from start to stop. startIt and stopIt are
// called on the thread that calls run(); stop() may be called from any thread
// and only asks.
class VORN_EXPORT VornService {
public:
    // `stoppable` says whether the service manager may stop it; `argument` is
    // the host's own and is handed to startIt.
    VornService(bool stoppable, const std::string& argument);
    virtual ~VornService();
    VornService(const VornService&) = delete;
    VornService& operator=(const VornService&) = delete;

    // Starts the service (startIt), waits until stop() is called or the event
    // object is set, stops it (stopIt). True when both went well. Exceptions of
    // startIt pass through.
    bool run();
    // Asks run() to end. Repeated calls do nothing.
    void stop();
    bool isStopping();
    bool isStoppable() const { return stoppable_; }

    virtual bool startIt(const std::string& argument) = 0;
    virtual bool stopIt() = 0;

    // Set by the service when its work is over.
    VornEvent& getEventObject() { return finished_; }

    const std::string& getApplicationName() const { return applicationName_; }
    const std::string& getServiceName() const { return serviceName_; }
    const std::string& getServiceDisplayName() const { return serviceDisplayName_; }
    const std::wstring& getServiceDescription() const { return serviceDescription_; }

protected:
    void setApplicationName(const std::string& name) { applicationName_ = name; }
    void setServiceName(const std::string& name) { serviceName_ = name; }
    void setServiceDisplayName(const std::string& name) { serviceDisplayName_ = name; }
    void setServiceDescription(const std::wstring& text) { serviceDescription_ = text; }

private:
    const bool stoppable_;
    const std::string argument_;
    std::string applicationName_;
    std::string serviceName_;
    std::string serviceDisplayName_;
    std::wstring serviceDescription_;
    VornEvent stopRequested_{true};
    VornEvent finished_{true};
};

}  // namespace VornSupport
