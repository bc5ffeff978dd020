#pragma once

#include "engines/RuvoNetworkService.h"
#include "runtime/platform/Export.h"

namespace RuvoService {

// The listener "UDPServer": UDP on the port of "ruvod.udp-server.port", on all
// local addresses, with datagrams of up to 512 bytes.
class VORN_EXPORT RuvoUDPServer : public RuvoNetworkService {
public:
    RuvoUDPServer();
    ~RuvoUDPServer() override;

protected:
    bool initialize() override;
};

}  // namespace RuvoService
