#include "service/RuvoServiceThread.h"

#include "runtime/support/VornLogging.h"
#include "service/RuvoService.h"

#include <exception>

namespace RuvoService {

RuvoServiceThread::RuvoServiceThread(RuvoService& service)
    : VornThread("RuvoServiceThread"), service_(&service) {}

RuvoServiceThread::~RuvoServiceThread() = default;

int RuvoServiceThread::run() {
    VORN_LOG(5, "RuvoServiceThread::run: Entering.");
    bool good = false;
    try {
        good = service_->go();
    } catch (const std::exception& e) {
        // Without the event below the host would wait for ever.
        VORN_LOG(2, "RuvoServiceThread::run: exception: " << e.what());
    }
    service_->getEventObject().set();
    VORN_LOG(5, "RuvoServiceThread::run: Exiting.");
    return good ? 0 : 1;
}

}  // namespace RuvoService
