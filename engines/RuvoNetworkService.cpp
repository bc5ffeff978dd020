#include "engines/RuvoNetworkService.h"

#include "engines/RuvoClientAcceptor.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <utility>

namespace RuvoService {

using VornSupport::VornException;
using VornSupport::VornMutexLock;

namespace {

constexpr int kPauseAfterFailureMs = 100;

}  // namespace

RuvoNetworkService::RuvoNetworkService(const std::string& name)
    : VornEventMonitor(name), VornThread(name) {}

RuvoNetworkService::~RuvoNetworkService() {
    VORN_LOG(9, "RuvoNetworkService::~RuvoNetworkService: exiting for " << getMonitorName());
    RuvoNetworkService::cleanup();
}

RuvoNetworkService::Endpoint RuvoNetworkService::getServer() const {
    VornMutexLock lock(serverMutex_);
    return server_;
}

void RuvoNetworkService::setServer(Endpoint server) {
    VornMutexLock lock(serverMutex_);
    std::swap(server_, server);
}

std::string RuvoNetworkService::getAddress() const {
    const Endpoint server = getServer();
    return server ? server->getAddress() : std::string();
}

bool RuvoNetworkService::initialize() {
    closing_.reset();
    return VornThread::start();
}

bool RuvoNetworkService::cleanup() {
    const Endpoint server = getServer();
    if (!server) return true;
    closing_.set();
    server->close();
    waitForThreadExit();
    setServer(nullptr);
    return true;
}

bool RuvoNetworkService::listen(const char* className,
                                const std::function<Endpoint()>& makeEndpoint) {
    // First of all, so that the same address can be had again.
    RuvoNetworkService::cleanup();
    try {
        setServer(makeEndpoint());
        VORN_LOG(4, className << "::initialize: listening on " << getAddress());
        if (RuvoNetworkService::initialize()) return true;
    } catch (const VornSupport::VornPropertyNotFound& e) {
        VORN_LOG(9, className << "::initialize: exception setting server - " << e.getMessage()
                              << " (" << e.getCode() << ")");
    } catch (const VornException& e) {
        VORN_LOG(2, getMonitorName() << " cannot listen: " << e.getMessage());
        VORN_LOG(9, className << "::initialize: exception setting server - " << e.getMessage()
                              << " (" << e.getCode() << ")");
    }
    setServer(nullptr);
    return false;
}

short RuvoNetworkService::requirePort(const std::string& key) const {
    const long long value = std::strtoll(requireProperty(key).c_str(), nullptr, 10);
    return static_cast<std::int16_t>(value & 0xffff);
}

int RuvoNetworkService::run() {
    const Endpoint server = getServer();
    if (!server) return 0;
    for (;;) {
        try {
            auto connection = server->waitForClient(true);
            if (!connection) return 0;
            VORN_LOG(9, "RuvoNetworkService::run: servicing request for |" << getMonitorName()
                                                                            << "|");
            RuvoClientAcceptor::dispatch(std::move(connection));
        } catch (const std::exception& e) {
            // Out of memory, say. The listener outlives it, but must not spin.
            VORN_LOG(2, "RuvoNetworkService::run: " << getMonitorName() << ": " << e.what());
            closing_.wait(kPauseAfterFailureMs);
        }
    }
}

}  // namespace RuvoService
