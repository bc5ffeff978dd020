#include "engines/RuvoTCPServer.h"

#include "runtime/net/VornServerSocket.h"

namespace RuvoService {

RuvoTCPServer::RuvoTCPServer() : RuvoNetworkService("TCPServer") {}
RuvoTCPServer::~RuvoTCPServer() { cleanup(); }

bool RuvoTCPServer::initialize() {
    return listen("RuvoTCPServer", [this] {
        const short port = requirePort("ruvod.tcp-server.port");
        return Endpoint(new VornNet::VornServerSocket(port, 5, "*"));
    });
}

}  // namespace RuvoService
