#include "service/RuvoService.h"

#include "runtime/monitor/VornEventMonitorManager.h"
#include "runtime/net/VornIPCServer.h"
#include "runtime/platform/PathText.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornExpandString.h"
#include "runtime/support/VornLogging.h"
#include "runtime/support/VornMessageSet.h"
#include "runtime/support/VornTokenizer.h"
#include "service/RuvoSettings.h"

#include <exception>
#include <filesystem>
#include <system_error>
#include <vector>

namespace RuvoService {

using VornMonitor::VornEventMonitorManager;
using VornSupport::VornEvent;
using VornSupport::VornException;
using VornSupport::VornLogging;
using VornSupport::VornPropertyNotFound;

RuvoService* RuvoService::m_pThis = nullptr;

namespace {

// The service changes its directory and reads the file again later.
std::string absolutePath(const std::string& path) {
    std::error_code failed;
    const auto full = std::filesystem::absolute(VornPlatform::pathFromUtf8(path), failed);
    return failed ? path : VornPlatform::utf8FromPath(full);
}

std::vector<std::string> namesIn(const std::string& list) {
    std::vector<std::string> names;
    VornSupport::VornTokenizer(list, ";", names);
    std::erase(names, "");
    return names;
}

}  // namespace

// ---- construction and configuration ------------------------------------------

RuvoService::RuvoService(const std::string& propertiesPath, const std::string& hostArgument)
    : VornService(true, hostArgument),
      propertiesPath_(absolutePath(propertiesPath)),
      properties(VornSupport::makeCounted<Properties>(true)),
      clientThreadPool(std::make_unique<RuvoServiceClientThreadPool>()) {
    properties->loadProperties(propertiesPath_, "=");
    m_pThis = this;
    acceptor_ = std::make_unique<RuvoServiceClientAcceptor>();
    directories_ = RuvoDirectories::of(properties->getPropertyOr("ruvod.operating-directory", ""));
    try {
        readSettings();
    } catch (const VornException& e) {
        VORN_LOG(3, "RuvoService::RuvoService: " << e.getMessage());
    }
}

RuvoService::~RuvoService() {
    stop();
    VORN_LOG(9, "RuvoService::~RuvoService: done");
    acceptor_.reset();
    VornNet::VornAcceptedConnections::getInstance().abortAll();
    clientThreadPool.reset();
    m_pThis = nullptr;
}

RuvoService& RuvoService::getInstance() { return *m_pThis; }

void RuvoService::readSettings() {
    // The file before the target: nothing is to go to a place that is not meant.
    applyLogFile(*properties, directories_);
    applyLogLevel(properties->getPropertyOr("logging.level", "1"));
    applyLogTarget(properties->getPropertyOr("logging.target", "2"));
    VornSupport::VornLogging::getInstance().openFile();
    applyNetSettings(*properties);
    logBadValues(*properties, directories_);
    readNames();
    readDescription();
    readWebSettings();
}

void RuvoService::readNames() {
    setApplicationName(properties->getPropertyOr("ruvod.application-name", "VRUVO"));
    setServiceName(properties->getPropertyOr("ruvod.service-name", getApplicationName()));
    setServiceDisplayName(
        properties->getPropertyOr("ruvod.service-display-name", getServiceName()));
    VornLogging::getInstance().setSystemName(getServiceName());
}

// The message set lies beside the properties file and has its name.
void RuvoService::readDescription() {
    try {
        const std::string name = propertiesPath_.substr(0, propertiesPath_.rfind(".pro"));
        const VornSupport::VornMessageSet messages(
            name, VornSupport::VornLocaleFactory::getDefaultLocale(true));
        setServiceDescription(messages.getString("ruvod.service-description"));
    } catch (const VornException& e) {
        VORN_LOG(4, "RuvoService::RuvoService: no description: " << e.getMessage());
    }
}

void RuvoService::readWebSettings() {
    gatewayServices = properties->getPropertyOr(gatewayServicesKey, "services");
    webServerName = properties->getPropertyOr("ruvod.web.server-name", "Vorn Tessera Web Services");
    try {
        gatewayEnabled = properties->getProperty("ruvod.gateway") == "on";
    } catch (const VornPropertyNotFound&) {
        gatewayEnabled = false;
    }
    httpProxyTargetConfigured = properties->contains(gatewayServicesKey + ".http-proxy-target");
}

// ---- start and stop, on the host's thread ------------------------------------

bool RuvoService::startIt(const std::string&) {
    // Only looked at for being there: the directory was made absolute earlier.
    const std::string directory = properties->getProperty("ruvod.operating-directory");
    std::error_code failed;
    std::filesystem::current_path(VornPlatform::pathFromUtf8(directories_.operating), failed);
    if (failed) {
        VORN_LOG(0, "RuvoService::startIt: the operating directory \""
                        << directory << "\" cannot be changed to: " << failed.message());
    }
    loadMonitors();
    serviceThread = VornSupport::makeCounted<RuvoServiceThread>(*this);
    return serviceThread->start();
}

bool RuvoService::stopIt() {
    events[kStop].set();
    if (serviceThread) {
        VORN_LOG(9, "RuvoService::stopIt: waiting for service thread to exit.");
        serviceThread->waitForThreadExit();
    }
    VORN_LOG(9, "RuvoService::stopIt: done stopping service.");
    return true;
}

void RuvoService::requestReload() {
    reloadRequested_ = true;
    events[kProcessEvents].set();
}

void RuvoService::addThreadToPool(VornSupport::VornThread& thread) { clientThreadPool->add(thread); }

void RuvoService::removeThreadFromPool(VornSupport::VornThread& thread) {
    clientThreadPool->remove(thread);
}

// ---- the main loop, on the service thread ------------------------------------

bool RuvoService::go() {
    VORN_LOG(9, "RuvoService::go: entering");
    initialize();
    acceptor_->setRefusing(false);
    auto& manager = VornEventMonitorManager::getInstance();
    manager.addDependent(*this);
    bool good = true;
    try {
        manager.startMonitors(properties);
        if (started_) started_();
        waitForWork();
    } catch (const std::exception& e) {
        VORN_LOG(2, "RuvoService::go: exception: " << e.what());
        good = false;
    }
    // Nobody is served any more: clients that wait in a read end here and now, and
    // none can go on to give the engines work that they must finish first.
    acceptor_->setRefusing(true);
    VornNet::VornAcceptedConnections::getInstance().abortAll();
    manager.stopMonitors();
    manager.removeDependent(*this);
    properties->removeDependent(*this);
    return good;
}

void RuvoService::waitForWork() {
    for (;;) {
        const int fired = VornEvent::wait(2, events, false, VornEvent::kForever);
        if (fired == kStop || fired == VornEvent::kWaitFailed) return;
        if (fired != kProcessEvents) continue;
        if (reloadRequested_.exchange(false)) reloadProperties();
        processEvents();
    }
}

void RuvoService::initialize() {
    resetValues(true);
    properties->addDependent(*this);
}

void RuvoService::resetValues(bool initial) {
    try {
        applyLogLevel(properties->getProperty("logging.level"));
    } catch (const VornPropertyNotFound& e) {
        VORN_LOG(4, "RuvoService::resetValues: " << e.getMessage());
    }
    try {
        applyLogTarget(properties->getProperty("logging.target"));
    } catch (const VornPropertyNotFound& e) {
        VORN_LOG(4, "RuvoService::resetValues: " << e.getMessage());
    }
    try {
        resetWebVirtualPath();
    } catch (const VornPropertyNotFound& e) {
        VORN_LOG(4, "RuvoService::resetValues: " << e.getMessage());
    }
    auto& manager = VornEventMonitorManager::getInstance();
    if (!initial) {
        loadMonitors();
        manager.startMonitors(properties);
        unloadMonitors();
    }
    manager.configureMonitors();
}

void RuvoService::resetWebVirtualPath() {
    const std::string path = properties->getProperty("ruvod.web.virtual-path");
    std::string expanded = VornSupport::VornExpandString(path, *properties);
    if (!expanded.ends_with('/') && !expanded.ends_with('\\')) expanded += '/';
    VornSupport::VornMutexLock lock(webLock_);
    webVirtualPath = expanded;
}

std::string RuvoService::getWebVirtualPath() const {
    VornSupport::VornMutexLock lock(webLock_);
    return webVirtualPath;
}

// The table that everybody reads changes in one step, or not at all.
void RuvoService::reloadProperties() {
    try {
        Properties fresh;
        fresh.loadProperties(propertiesPath_, "=");
        properties->swap(fresh);
    } catch (const VornException& e) {
        VORN_LOG(2, "RuvoService::reloadProperties: the old values stay: " << e.getMessage());
        return;
    }
    VORN_LOG(3, "RuvoService::reloadProperties: " << propertiesPath_ << " was read again");
    applyLogFile(*properties, directories_);
    applyNetSettings(*properties);
    logBadValues(*properties, directories_);
    resetValues(false);
    VornSupport::VornLogging::getInstance().openFile();
}

void RuvoService::processEvents() {
    VORN_LOG(9, "RuvoService::processEvents: entering.");
    VornEventMonitorManager::getInstance().processEvents("trapinfo.txt");
    VORN_LOG(9, "RuvoService::processEvents: exiting.");
}

void RuvoService::handleNotification(VornSupport::VornCollaborator&,
                                     const VornSupport::VornNotification& notification) {
    const auto* const timer =
        dynamic_cast<const VornEventMonitorManager::TimerNotification*>(&notification);
    if (timer != nullptr) events[kProcessEvents].set();
}

void RuvoService::loadMonitors() {
    try {
        for (const auto& name : namesIn(properties->getProperty("ruvod.load-monitors"))) {
            VornEventMonitorManager::getInstance().loadMonitor(name, properties);
        }
    } catch (const VornPropertyNotFound&) {
        // Nothing to load.
    } catch (const VornException& e) {
        VORN_LOG(2, "RuvoService::loadMonitors: " << e.getMessage());
    }
}

void RuvoService::unloadMonitors() {
    try {
        const std::string list = properties->getProperty("ruvod.unload-monitors");
        if (list.empty()) return;
        for (const auto& name : namesIn(list)) {
            VornEventMonitorManager::getInstance().unloadMonitor(name);
        }
        properties->setProperty("ruvod.unload-monitors", "");
    } catch (const VornPropertyNotFound&) {
        // Nothing to unload.
    } catch (const VornException& e) {
        VORN_LOG(2, "RuvoService::unloadMonitors: " << e.getMessage());
    }
}

}  // namespace RuvoService
