#pragma once

#include "runtime/net/VornConnection.h"
#include "runtime/support/VornCollaborator.h"
#include "runtime/support/VornEvent.h"
#include "runtime/support/VornMutex.h"
#include "runtime/support/VornProperties.h"
#include "runtime/support/VornService.h"
#include "runtime/support/VornSmartPointer.h"
#include "service/RuvoConfigurationKeys.h"
#include "service/RuvoServiceClientAcceptor.h"
#include "service/RuvoServiceClientThreadPool.h"
#include "service/RuvoServiceThread.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>

namespace RuvoService {

// The one object that is the daemon: its configuration, its main loop, its
// clients. The constructor, startIt, stopIt and the destructor belong to the
// host's thread; the service thread runs go(); client threads enter
// handleClient() all at once.
class RuvoService : public VornSupport::VornService, public VornSupport::VornDependent {
public:
    using Properties = VornSupport::VornProperties<std::string>;

    // Reads the configuration and applies its logging and limits. Throws
    // VornException when the file cannot be read; missing keys and bad values
    // leave their defaults. `hostArgument` comes back in startIt.
    RuvoService(const std::string& propertiesPath, const std::string& hostArgument);
    // After stopIt. Breaks what connections are left and waits for their threads.
    ~RuvoService() override;

    // The service that was made last. There must be one.
    static RuvoService& getInstance();

    // Begins the work. Throws VornPropertyNotFound when there is no
    // "ruvod.operating-directory"; false when there is no thread for the work.
    bool startIt(const std::string& argument) override;
    // Ends the work and waits for that.
    bool stopIt() override;

    // Called on the service thread once all monitors have been started that can
    // be. Before startIt.
    void setStartedHandler(std::function<void()> handler) { started_ = std::move(handler); }
    // Has the service thread read the properties file anew. Any thread.
    void requestReload();

    // By client threads. Any thread.
    void addThreadToPool(VornSupport::VornThread& thread);
    void removeThreadFromPool(VornSupport::VornThread& thread);

protected:
    friend class RuvoServiceThread;
    friend class RuvoServiceClientThread;

    static constexpr int kProcessEvents = 0;  // indices in `events`
    static constexpr int kStop = 1;

    const VornSupport::VornSmartPointer<Properties>& getProperties() const { return properties; }

    // ---- the main loop, on the service thread
    bool go();
    void initialize();
    void resetValues(bool initial);
    void processEvents();
    void reloadProperties();
    void handleNotification(VornSupport::VornCollaborator& source,
                            const VornSupport::VornNotification& notification) override;
    void loadMonitors();
    void unloadMonitors();

    // ---- one client, on its thread (RuvoServiceClients.cpp)

    // Finds out what the client is and serves it to its end. False when nothing
    // could be made of it. What the client's connection throws before the
    // engine conversation passes through.
    bool handleClient(VornNet::VornConnection& connection);

    // ---- gateway and web (RuvoServiceWeb.cpp)

    // Takes the client over for a gateway service. False when the service is
    // unknown and the caller must serve the client itself.
    bool gateway(VornNet::VornConnection& connection, const std::string& serviceName, bool isHTTP,
                 const std::string& requestLine);
    // Writes the line that tells a client whether its service exists.
    void signalService(VornNet::VornConnection& connection, bool found, std::string text);
    // Answers the request that begins with `requestLine`. False, and nothing
    // written, when there is no request in it.
    bool serveWebRequest(VornNet::VornConnection& connection, const std::string& requestLine);

    std::string getWebVirtualPath() const VORN_EXCLUDES(webLock_);

private:
    // What a client's first line asks for.
    struct Opening {
        std::string serviceName;
        std::string requestLine;  // empty: the line is no HTTP request
        bool isHTTP = false;
        bool tryGateway = true;
    };

    void readSettings();
    void waitForWork();
    void readNames();
    void readDescription();
    void readWebSettings();
    void resetWebVirtualPath();

    enum class FirstBytes { Text, Binary, None };
    FirstBytes sniff(VornNet::VornConnection& connection);
    bool isProxyRequest(VornNet::VornConnection& connection);
    Opening readOpening(VornNet::VornConnection& connection);
    Opening openHTTP(const std::string& line) const;
    bool serveWeb(VornNet::VornConnection& connection, const Opening& opening);
    bool serveEngineClient(VornNet::VornConnection& connection);
    void converse(VornNet::VornConnection& connection);
    void handleCommand(VornNet::VornConnection& connection, int code, bool isLast);

    static RuvoService* m_pThis;

    const std::string propertiesPath_;
    RuvoDirectories directories_;
    VornSupport::VornEvent events[2]{VornSupport::VornEvent(false), VornSupport::VornEvent(true)};
    VornSupport::VornSmartPointer<Properties> properties;
    VornSupport::VornSmartPointer<RuvoServiceThread> serviceThread;
    mutable VornSupport::VornMutex webLock_;
    std::string webVirtualPath VORN_GUARDED_BY(webLock_);
    std::string webServerName;
    std::string gatewayServices;
    const std::string gatewayServicesKey = "ruvod.gateway.services";
    const std::string httpsDefaultKey = "ruvod.gateway.services.https-default";
    std::unique_ptr<RuvoServiceClientThreadPool> clientThreadPool;
    bool httpProxyTargetConfigured = false;
    bool gatewayEnabled = false;

    std::unique_ptr<RuvoServiceClientAcceptor> acceptor_;
    std::function<void()> started_;
    std::atomic<bool> reloadRequested_{false};
};

}  // namespace RuvoService
