#include "notifier/RuvoNNEngine.h"

#include "notifier/RuvoNNCommands.h"
#include "runtime/net/VornDeliveryGathering.h"
#include "runtime/net/VornNetLimits.h"
#include "runtime/net/VornProxyDependentContainer.h"
#include "runtime/platform/FreeMemory.h"
#include "runtime/support/VornLogging.h"

#include <chrono>
#include <exception>
#include <thread>
#include <utility>

namespace RuvoService {

using VornNet::VornProxyDependentContainer;
using VornSupport::VornCriticalSection;
using VornSupport::VornMutexLock;

namespace {

constexpr std::chrono::microseconds kBurstGap{20};
thread_local RuvoNNEngine::LateWake* lateWake = nullptr;  // of the thread

constexpr std::size_t kMuch = std::size_t{64} * 1024 * 1024;

// An estimate: what the queue and the heap add is not known.
std::size_t memoryOf(const RuvoNNEventNotification& event) {
    return sizeof event + event.getContent().size() + event.getEventName().size();
}

}  // namespace

RuvoNNEngine::RuvoNNEngine()
    : RuvoEngineBase("Notifier"),
      thread_(VornSupport::makeCounted<NotificationQueueHandler>(&events_, *this),
              "RuvoNNEngineQueue") {
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
    setRunning(false);
    events_.produceSentinel(true);
    thread_.waitForThreadExit();
}

bool RuvoNNEngine::initialize() {
    VORN_LOG(9, "RuvoNNEngine::initialize"
                    << " this=" << static_cast<const void*>(this));
    VornCriticalSection lock(lock_);
    events_.produceSentinel(false);  // of an earlier cleanup
    const bool started = thread_.start();
    setRunning(started);
    return started;
}

bool RuvoNNEngine::cleanup() {
    VORN_LOG(9, "RuvoNNEngine::cleanup"
                    << " this=" << static_cast<const void*>(this));
    VornCriticalSection lock(lock_);
    setRunning(false);
    events_.produceSentinel(true);
    thread_.waitForThreadExit();
    return true;
}

void RuvoNNEngine::produce(Event event) {
    const std::size_t bytes = memoryOf(*event);
    queuedBytes_ += bytes;
    try {
        if (lateWake != nullptr && lateWake->engine_ == this) {
            events_.produceQuietly(event);
            lateWake->produced_ = true;
            lateWake->postpone();
        } else {
            events_.produce(event);
        }
    } catch (...) {
        noteOffered(bytes);
        throw;
    }
}

bool RuvoNNEngine::isHeard() const {
    return VornProxyDependentContainer::getInstance().size() > 0 || VornSupport::VornLogging::isOn(9);
}

RuvoNNEngine::LateWake::LateWake(RuvoNNEngine* engine) : engine_(engine) {
    if (engine_ != nullptr) lateWake = this;
}

RuvoNNEngine::LateWake::~LateWake() {
    if (engine_ == nullptr) return;
    lateWake = nullptr;
    takeBack();
    if (produced_) engine_->events_.wakeConsumer();
}

void RuvoNNEngine::LateWake::run() noexcept {
    produced_ = false;
    engine_->events_.wakeConsumer();
}

void RuvoNNEngine::waitForRoom(VornNet::VornConnection& connection) {
    const std::size_t most = VornNet::VornNetLimits::getInstance().eventQueueBytes;
    if (queuedBytes_ <= most) return;
    connection.flush();
    VornMutexLock lock(roomMutex_);
    ++roomWaiters_;
    // Not at the first byte of room: then every event would wake everybody.
    while (running_ && queuedBytes_ > most / 2) roomCondition_.wait(roomMutex_);
    --roomWaiters_;
}

// So many bytes of events are in the queue no longer.
void RuvoNNEngine::noteOffered(std::size_t bytes) {
    const std::size_t left = queuedBytes_ -= bytes;
    if (roomWaiters_ == 0) return;
    if (left > VornNet::VornNetLimits::getInstance().eventQueueBytes / 2) return;
    VornMutexLock lock(roomMutex_);
    roomCondition_.notifyAll();
}

void RuvoNNEngine::setRunning(bool running) {
    VornMutexLock lock(roomMutex_);
    running_ = running;
    roomCondition_.notifyAll();
}

int RuvoNNEngine::NotificationQueueHandler::run(VornSupport::VornWorkInformation&) {
    VornNet::VornDeliveryGathering gathering;
    unsigned inRow = 0;  // events since the last flush
    std::size_t passed = 0;  // bytes since memory was given back
    for (;;) {
        try {
            if (events_->isEmpty() && (inRow < 2 || !moreComesAtOnce())) {
                gathering.flush();
                inRow = 0;
                if (passed > kMuch && events_->isEmpty()) {
                    VornPlatform::giveFreeMemoryBack();
                    passed = 0;
                }
            }
            Event event;
            if (!events_->consume(event)) return 0;
            ++inRow;
            const std::size_t bytes = memoryOf(*event);
            passed += bytes;
            try {
                offer(*event);
            } catch (...) {
                engine_.noteOffered(bytes);
                throw;
            }
            event = nullptr;
            engine_.noteOffered(bytes);
            gathering.settle();
        } catch (const std::exception& e) {
            // Out of memory, say: costs this event, not all that follow.
            VORN_LOG(2, "NotificationQueueHandler::run: exception: " << e.what());
        }
    }
}

// Of a burst the next event is microseconds away: waiting that long costs less
// than sending what is gathered and being woken again.
bool RuvoNNEngine::NotificationQueueHandler::moreComesAtOnce() const {
    const auto end = std::chrono::steady_clock::now() + kBurstGap;
    do {
        if (!events_->isEmpty()) return true;
        std::this_thread::yield();
    } while (std::chrono::steady_clock::now() < end);
    return false;
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
