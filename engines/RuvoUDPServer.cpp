#include "engines/RuvoUDPServer.h"

#include "runtime/net/VornUDPServerSocket.h"

namespace RuvoService {

RuvoUDPServer::RuvoUDPServer() : RuvoNetworkService("UDPServer") {}
RuvoUDPServer::~RuvoUDPServer() { cleanup(); }

bool RuvoUDPServer::initialize() {
    return listen("RuvoUDPServer", [this] {
        const short port = requirePort("ruvod.udp-server.port");
        return Endpoint(new VornNet::VornUDPServerSocket(port, "*", 512));
    });
}

}  // namespace RuvoService
