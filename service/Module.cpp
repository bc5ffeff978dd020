#include "service/Module.h"

#include "arbiter/RuvoRAEngine.h"
#include "engines/RuvoTCPServer.h"
#include "engines/RuvoUDPServer.h"
#include "jobstatus/RuvoJSEngine.h"
#include "notifier/RuvoNNEngine.h"
#include "runtime/platform/Export.h"
#include "runtime/support/VornLogging.h"
#include "scheduler/RuvoTSEngine.h"

namespace RuvoService {

Module::Module() : ModuleData(true) {}

Module::~Module() {
    if (attached_) detach();
}

Module& Module::getInstance() {
    static Module instance;
    return instance;
}

void Module::attach() {
    if (attached_) return;
    try {
        tcpServer_ = std::make_unique<RuvoTCPServer>();
        udpServer_ = std::make_unique<RuvoUDPServer>();
        notifierEngine_ = std::make_unique<RuvoNNEngine>();
        notifier_ = notifierEngine_.get();
        arbiterEngine_ = std::make_unique<RuvoRAEngine>(notifier_);
        schedulerEngine_ = std::make_unique<RuvoTSEngine>(notifier_);
        jobStatusEngine_ = std::make_unique<RuvoJSEngine>(notifier_);
    } catch (...) {
        destroyMonitors();
        throw;
    }
    attached_ = true;
}

void Module::detach() {
    VORN_LOG(9, "ruvos::Module::detach: entering");
    destroyMonitors();
    attached_ = false;
    VORN_LOG(9, "ruvos::Module::detach: exiting");
}

// Who uses another goes first.
void Module::destroyMonitors() {
    jobStatusEngine_.reset();
    schedulerEngine_.reset();
    arbiterEngine_.reset();
    notifier_ = nullptr;
    notifierEngine_.reset();
    udpServer_.reset();
    tcpServer_.reset();
}

std::vector<std::string> Module::listenerAddresses() const {
    std::vector<std::string> addresses;
    const auto add = [&addresses](const RuvoNetworkService* listener) {
        if (listener == nullptr) return;
        std::string address = listener->getAddress();
        if (!address.empty()) addresses.push_back(std::move(address));
    };
    add(tcpServer_.get());
    add(udpServer_.get());
    return addresses;
}

}  // namespace RuvoService

extern "C" VORN_EXPORT VornSupport::ModuleData* vornModuleData() {
    return &RuvoService::Module::getInstance();
}
