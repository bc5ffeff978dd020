#pragma once

#include "engines/RuvoNetworkService.h"
#include "runtime/platform/Export.h"

namespace RuvoService {

// The listener "TCPServer": TCP on the port of "ruvod.tcp-server.port", on all
// local addresses.
class VORN_EXPORT RuvoTCPServer : public RuvoNetworkService {
public:
    RuvoTCPServer();
    ~RuvoTCPServer() override;

protected:
    bool initialize() override;
};

}  // namespace RuvoService
