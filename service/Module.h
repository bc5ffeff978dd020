#pragma once

#include "runtime/support/ModuleData.h"

#include <memory>
#include <string>
#include <vector>

namespace RuvoService {

class RuvoJSEngine;
class RuvoNNEngine;
class RuvoRAEngine;
class RuvoTCPServer;
class RuvoTSEngine;
class RuvoUDPServer;

// The core module: owns the monitors of the daemon, which are known from attach
// to detach.
class Module : public VornSupport::ModuleData {
public:
    Module();
    ~Module() override;

    // Makes the monitors, in their fixed order. Throws VornException, and makes
    // none, when a monitor of one of their names exists already. Does nothing
    // when it is attached.
    void attach() override;
    // The service that used the monitors has been stopped.
    void detach() override;

    // "tcp:0.0.0.0:4711" of every listener that is open. After the start of the
    // monitors and before detach.
    std::vector<std::string> listenerAddresses() const;

    static Module& getInstance();

private:
    void destroyMonitors();

    bool attached_ = false;
    std::unique_ptr<RuvoTCPServer> tcpServer_;
    std::unique_ptr<RuvoUDPServer> udpServer_;
    std::unique_ptr<RuvoNNEngine> notifierEngine_;
    std::unique_ptr<RuvoRAEngine> arbiterEngine_;
    std::unique_ptr<RuvoTSEngine> schedulerEngine_;
    std::unique_ptr<RuvoJSEngine> jobStatusEngine_;
    RuvoNNEngine* notifier_ = nullptr;  // given to the engines that raise events
};

}  // namespace RuvoService
