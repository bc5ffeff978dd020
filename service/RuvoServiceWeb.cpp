// What the service does for browsers and for clients of the gateway.

#include "service/RuvoService.h"

#include "runtime/support/VornLogging.h"

#include <string>
#include <utility>

namespace RuvoService {

using VornNet::VornConnection;

namespace {

constexpr int kMostDrained = 65536;

void writeRaw(VornConnection& connection, const std::string& text) {
    int count = 0;
    connection.write(text.data(), static_cast<int>(text.size()), count);
}

// Takes what a client has sent beyond its first line, without waiting for more:
// a channel that is closed over unread bytes is reset, and the client would
// lose the answer.
void drain(VornConnection& connection) {
    char bytes[256];
    for (int drained = 0; drained < kMostDrained;) {
        int length = sizeof bytes;
        bool closed = false;
        if (!connection.peek(bytes, length, closed)) return;
        connection.read(bytes, length, length, false);
        drained += length;
    }
}

void answerUnavailable(VornConnection& connection, const std::string& server) {
    static const std::string page =
        "<HTML><HEAD><TITLE>503 Service Unavailable</TITLE></HEAD>"
        "<BODY><H1>503 Service Unavailable</H1>"
        "This service has no documents to serve.</BODY></HTML>\r\n";
    drain(connection);
    writeRaw(connection, "HTTP/1.0 503 Service Unavailable\r\nServer: " + server +
                             "\r\nContent-Type: text/html\r\nContent-Length: " +
                             std::to_string(page.size()) + "\r\nConnection: close\r\n\r\n" + page);
    connection.flush();
}

}  // namespace

bool RuvoService::gateway(VornConnection& connection, const std::string& serviceName, bool isHTTP,
                          const std::string&) {
    std::string target;
    properties->getPropertyValue(gatewayServicesKey + "." + serviceName, target);
    if (target.empty()) {
        if (isHTTP) return false;
        properties->getPropertyValue(httpsDefaultKey, target);
    }
    if (target.empty()) return false;
    VORN_LOG(3, "RuvoService::gateway: no relay to " << target << " for service " << serviceName);
    // A request that is to be relayed as it stands has not been read yet.
    if (isHTTP || serviceName == "http-proxy-target") answerUnavailable(connection, webServerName);
    return true;
}

void RuvoService::signalService(VornConnection& connection, bool found, std::string text) {
    const std::string signal = (found ? "+" : "-") + text;
    VORN_LOG(5, "RuvoService::signalService: service " << (found ? "found" : "not found")
                                                       << " sending " << signal << " signal...");
    writeRaw(connection, signal + "\r\n");
}

bool RuvoService::serveWebRequest(VornConnection& connection, const std::string& requestLine) {
    if (requestLine.empty()) return false;
    answerUnavailable(connection, webServerName);
    return true;
}

}  // namespace RuvoService
