// How the service finds out what a client is, and the conversation with those
// that want an engine.

#include "service/RuvoService.h"

#include "runtime/monitor/VornEventMonitorManager.h"
#include "runtime/net/VornNetLimits.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"
#include "runtime/support/VornTimer.h"
#include "runtime/support/VornTokenizer.h"

#include <cctype>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace RuvoService {

using VornNet::VornConnection;
using VornSupport::VornException;

namespace {

constexpr int kLineSize = 512;
constexpr int kSniffedBytes = 5;
constexpr int kSniffAgainMs = 100;
constexpr const char* kEngines = "RUVO";
constexpr const char* kHTTP = "HTTP/";

// Codes of the conversation.
constexpr int kAcknowledgement = 0;
constexpr int kLoggingOff = 4;
constexpr int kEngineRequest = 7777;
constexpr int kStopService = 9999;

bool isText(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return std::isalnum(byte) != 0 || std::isspace(byte) != 0 || std::ispunct(byte) != 0;
}

// Breaks a client off that does not say in time what it is. Whoever can reach the
// port could fill the places of all others with connections else.
class OpeningTimer : public VornSupport::VornTimer {
public:
    explicit OpeningTimer(VornConnection& connection) : connection_(connection) {
        start(VornNet::VornNetLimits::getInstance().openingMs, true);
    }
    ~OpeningTimer() override { stop(); }

private:
    void timerFired() override {
        VORN_LOG(3, "RuvoService::handleClient: no first line within \"ruvod.limits.opening-ms\" "
                    "from " << connection_.getPeerName());
        connection_.abort();
    }

    VornConnection& connection_;
};

// Whether the first line is there already, as that of most clients is. Does not
// wait.
bool hasLine(VornConnection& connection) {
    char bytes[kLineSize];
    int length = kLineSize;
    bool closed = false;
    return connection.peek(bytes, length, closed) &&
           std::memchr(bytes, '\n', static_cast<std::size_t>(length)) != nullptr;
}

}  // namespace

bool RuvoService::handleClient(VornConnection& connection) {
    connection.setRawMode(true);
    if (gatewayEnabled) {
        const FirstBytes first = sniff(connection);
        if (first == FirstBytes::None) return false;
        if (first == FirstBytes::Binary) {
            gateway(connection, "https_default", false, "");
            return true;
        }
    }
    if (httpProxyTargetConfigured && isProxyRequest(connection)) {
        gateway(connection, "http-proxy-target", false, "");
        return true;
    }
    const Opening opening = readOpening(connection);
    return opening.serviceName == kEngines ? serveEngineClient(connection)
                                           : serveWeb(connection, opening);
}

// Looks at a client's first bytes without taking them. There is no time limit:
// a client that sends nothing is waited for until it goes or the service stops.
RuvoService::FirstBytes RuvoService::sniff(VornConnection& connection) {
    char bytes[kSniffedBytes];
    int length = 0;
    for (;;) {
        bool closed = false;
        length = kSniffedBytes;
        if (connection.peek(bytes, length, closed)) {
            if (length != 0) break;
        } else if (closed) {
            return FirstBytes::None;
        }
        if (events[kStop].wait(kSniffAgainMs) != 0) return FirstBytes::None;
    }
    for (int i = 0; i < length; ++i) {
        if (!isText(bytes[i])) return FirstBytes::Binary;
    }
    return FirstBytes::Text;
}

bool RuvoService::isProxyRequest(VornConnection& connection) {
    char line[kLineSize];
    int length = kLineSize;
    bool closed = false;
    if (!connection.peekLine(line, length, closed)) return false;
    return std::string(line).find(kHTTP) != std::string::npos;
}

RuvoService::Opening RuvoService::readOpening(VornConnection& connection) {
    char buffer[kLineSize];
    bool closed = false;
    std::string line;
    {
        std::optional<OpeningTimer> timer;
        if (!hasLine(connection)) timer.emplace(connection);
        line = connection.readLine(buffer, kLineSize, closed);
    }
    if (line.find(kHTTP) != std::string::npos) return openHTTP(line);
    Opening opening;
    opening.serviceName = line;
    return opening;
}

// The first part of the path may name a service, the engines included; the
// gateway is asked for none of them, and "servlet" is a name like any other.
RuvoService::Opening RuvoService::openHTTP(const std::string& line) const {
    Opening opening;
    opening.isHTTP = true;
    std::vector<std::string> words;
    VornSupport::VornTokenizer(line, " ", words);
    std::string path = words.size() > 1 ? words[1] : "";
    if (path.size() >= 2) {
        if (path.front() == '/') path.erase(0, 1);
        opening.serviceName = path.substr(0, path.find('/'));
        opening.requestLine = line;
        opening.tryGateway = false;
    } else {
        opening.requestLine =
            "GET /" + properties->getPropertyOr("ruvod.web.default-doc", "default.html") +
            " HTTP/1.0";
    }
    return opening;
}

bool RuvoService::serveWeb(VornConnection& connection, const Opening& opening) {
    if (opening.tryGateway &&
        gateway(connection, opening.serviceName, opening.isHTTP, opening.requestLine)) {
        return true;
    }
    return serveWebRequest(connection, opening.requestLine);
}

// ---- the engine conversation -------------------------------------------------

bool RuvoService::serveEngineClient(VornConnection& connection) {
    if (!connection.isLocalConnection()) {
        VORN_LOG(3, "RuvoService::handleClient: Remote access attempt not allowed");
        return true;
    }
    signalService(connection, true, "");
    connection.setRawMode(false);
    try {
        converse(connection);
    } catch (const VornException& e) {
        VORN_LOG(3, "RuvoService::handleClient: exception: " << e.getMessage() << ". Error code ("
                                                             << e.getCode() << ")");
        VORN_LOG(3,
                 "RuvoService::handleClient: Access Server communication failed with exception - "
                     << e.getMessage());
    }
    return true;
}

// Nothing but an exception ends it: the client going away, a code that does not
// exist, a failing engine.
void RuvoService::converse(VornConnection& connection) {
    for (;;) {
        const int count = connection.readUnsignedShort();
        VORN_LOG(5, "RuvoService::handleClient: handling " << count << " requests");
        for (int i = 1; i <= count; ++i) {
            const int code = connection.readUnsignedShort();
            VORN_LOG(5, "RuvoService::handleClient: command " << code);
            handleCommand(connection, code, i == count);
        }
    }
}

void RuvoService::handleCommand(VornConnection& connection, int code, bool isLast) {
    switch (code) {
        case kAcknowledgement:
            VORN_LOG(5, "RuvoService::handleClient: Acknowledgement received.");
            break;
        case kLoggingOff:
            VORN_LOG(5, "RuvoService::handleClient: logging off");
            break;
        case kEngineRequest: {
            std::string name;
            connection.readString(name);
            VORN_LOG(5, "RuvoService::handleClient: Monitor Name " << name);
            VornMonitor::VornEventMonitorManager::getInstance().handleClient(name, connection);
            break;
        }
        case kStopService:
            connection.flush();
            stop();
            return;
        default:
            throw VornException("RuvoService::handleClient: Unknown command", code);
    }
    // Answers of one batch go out together while its next request is here
    // already. One that is still on its way holds nothing back.
    if (isLast || !connection.hasBufferedInput()) connection.flush();
}

}  // namespace RuvoService
