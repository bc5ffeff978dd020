#include "service/RuvoServiceClientThread.h"

#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"
#include "service/RuvoService.h"

#include <exception>

namespace RuvoService {

RuvoServiceClientThread::RuvoServiceClientThread(const Connection& connection)
    : VornThread("RuvoServiceClientThread"), connection_(connection) {
    setMarkForDeath();
    setStackSize(kClientStack);
}

RuvoServiceClientThread::~RuvoServiceClientThread() = default;

bool RuvoServiceClientThread::serve(const Connection& connection) {
    const VornSupport::VornSmartPointer<RuvoServiceClientThread> thread(
        new RuvoServiceClientThread(connection));
    return startInPool(*thread);
}

bool RuvoServiceClientThread::startInPool(VornThread& thread) {
    auto& service = RuvoService::getInstance();
    service.addThreadToPool(thread);
    if (thread.start()) return true;
    service.removeThreadFromPool(thread);
    return false;
}

int RuvoServiceClientThread::run() {
    VORN_LOG(5, "RuvoServiceClientThread::run: Entering. ");
    const bool good = handleClient();
    connection_->close();
    VORN_LOG(5, "RuvoServiceClientThread::run: Exiting. ");
    return good ? 0 : 1;
}

// A client that goes away before its conversation has begun ends up here, and
// so does what an engine could not foresee: it costs this client alone.
bool RuvoServiceClientThread::handleClient() {
    try {
        return RuvoService::getInstance().handleClient(*connection_);
    } catch (const VornSupport::VornException& e) {
        VORN_LOG(3, "RuvoServiceClientThread::run: exception: " << e.getMessage()
                                                                << ". Error code (" << e.getCode()
                                                                << ")");
    } catch (const std::exception& e) {
        VORN_LOG(2, "RuvoServiceClientThread::run: exception: " << e.what());
    }
    return false;
}

}  // namespace RuvoService
