#include "scheduler/RuvoTSNotifier.h"

#include "notifier/RuvoNNEngine.h"
#include "notifier/RuvoNNEventNotification.h"

#include <string>

namespace RuvoService {

RuvoTSNotifier& RuvoTSNotifier::getInstance() {
    static RuvoTSNotifier* const instance = new RuvoTSNotifier;
    return *instance;
}

void RuvoTSNotifier::connect(RuvoNNEngine* engine) {
    VornSupport::VornWriteLock lock(mutex_);
    engine_ = engine;
}

void RuvoTSNotifier::raise(std::int32_t handle, std::int32_t state) {
    VornSupport::VornReadLock lock(mutex_);
    if (engine_ == nullptr || !engine_->isHeard()) return;
    const std::string number = std::to_string(handle);
    engine_->produce(VornSupport::makeCounted<RuvoNNEventNotification>(
        "udp:127.0.0.1", "VornTSEvent:" + number, number, static_cast<std::int32_t>(sizeof state),
        reinterpret_cast<const char*>(&state)));
}

}  // namespace RuvoService
