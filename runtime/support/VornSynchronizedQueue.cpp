#include "runtime/support/VornSynchronizedQueue.h"

#include "runtime/support/VornLogging.h"

namespace VornSupport {

VornBaseSynchronizedQueue::~VornBaseSynchronizedQueue() = default;
VornBaseProducerConsumer::~VornBaseProducerConsumer() = default;

void VornBaseProducerConsumer::produceSentinel(bool sentinel) {
    VornMutexLock lock(sync_);
    sentinel_ = sentinel;
    if (sentinel) syncEvent_.notifyAll();
}

void VornBaseProducerConsumer::wakeConsumer() {
    bool sleeps = false;
    {
        VornMutexLock lock(sync_);
        sleeps = consumersWaiting_ > 0;
    }
    if (sleeps) notifyConsumer();
}

void VornBaseProducerConsumer::traceProduceWaiting() {
    VORN_LOG(9, "VornProducerConsumer::produce: waiting for lock");
}

void VornBaseProducerConsumer::traceProduceAdding() {
    VORN_LOG(9, "VornProducerConsumer::produce: adding element");
}

void VornBaseProducerConsumer::traceConsumeChecking() {
    VORN_LOG(9, "VornProducerConsumer::consume: checking queue");
}

void VornBaseProducerConsumer::traceConsumeCompleted(bool taken) {
    VORN_LOG(9, "VornProducerConsumer::consume: check completed");
    if (taken) {
        VORN_LOG(9, "VornProducerConsumer::consume: popping element");
    } else {
        VORN_LOG(9, "VornProducerConsumer::consume: found sentinel");
    }
}

}  // namespace VornSupport
