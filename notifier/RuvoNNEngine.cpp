#include "notifier/RuvoNNEngine.h"

#include "notifier/RuvoNNCommands.h"
#include "runtime/net/VornDeliveryGathering.h"
#include "runtime/net/VornProxyDependentContainer.h"
#include "runtime/support/VornLogging.h"

#include <exception>
#include <utility>

namespace RuvoService {

using VornNet::VornProxyDependentContainer;
using VornSupport::VornCriticalSection;

RuvoNNEngine::RuvoNNEngine()
    : RuvoEngineBase("Notifier"),
      thread_(VornSupport::makeCounted<NotificationQueueHandler>(&events_), "RuvoNNEngineQueue") {
    VORN_LOG(9, "RuvoNNEngine::constructor"
                    << " this=" << static_cast<const void*>(this));
    addCommand<RUVO_NN_NOTIFY>("RUVO_NN_NOTIFY");
    addCommand<RUVO_NN_REGISTER>("RUVO_NN_REGISTER");
    addCommand<RUVO_NN_UNREGISTER>("RUVO_NN_UNREGISTER");
}

RuvoNNEngine::~RuvoNNEngine() {
    // The consumer's name here is meant: those who read logs know this line.
    VORN_LOG(9, "RuvoNNConsumer::destructor "
                    << " this=" << static_cast<const void*>(this));
    retire();
    events_.produceSentinel(true);
    thread_.waitForThreadExit();
}

bool RuvoNNEngine::initialize() {
    VORN_LOG(9, "RuvoNNEngine::initialize"
                    << " this=" << static_cast<const void*>(this));
    VornCriticalSection lock(lock_);
    events_.produceSentinel(false);  // of an earlier cleanup
    return thread_.start();
}

bool RuvoNNEngine::cleanup() {
    VORN_LOG(9, "RuvoNNEngine::cleanup"
                    << " this=" << static_cast<const void*>(this));
    VornCriticalSection lock(lock_);
    events_.produceSentinel(true);
    thread_.waitForThreadExit();
    return true;
}

void RuvoNNEngine::produce(Event event) { events_.produce(event); }

int RuvoNNEngine::NotificationQueueHandler::run(VornSupport::VornWorkInformation&) {
    VornNet::VornDeliveryGathering gathering;
    for (;;) {
        try {
            if (events_->isEmpty()) gathering.flush();
            Event event;
            if (!events_->consume(event)) return 0;
            offer(*event);
            event = nullptr;
            gathering.settle();
        } catch (const std::exception& e) {
            // Out of memory, say: costs this event, not all that follow.
            VORN_LOG(2, "NotificationQueueHandler::run: exception: " << e.what());
        }
    }
}

void RuvoNNEngine::NotificationQueueHandler::offer(const RuvoNNEventNotification& event) {
    VORN_LOG(9, "NotificationQueueHandler::run: Processing notification="
                    << static_cast<const void*>(&event) << " (event="
                    << "|" << event.getEventName() << "|)");
    VornProxyDependentContainer& container = VornProxyDependentContainer::getInstance();
    VornCriticalSection lock(container.getlock());
    VORN_LOG(9, "NotificationQueueHandler::run: container locked, size=" << container.size());
    for (int index = 0; index < container.size(); ++index) {
        VORN_LOG(9, "NotificationQueueHandler::run: index=" << index);
        try {
            container[index]->checkEvent(event);
        } catch (...) {
            // One consumer's refused pattern or lost client is not the others' loss.
        }
    }
    lock.unlock();
    VORN_LOG(9, "NotificationQueueHandler::run: container unlocked");
}

}  // namespace RuvoService
