#pragma once

#include "engines/RuvoEngineBase.h"
#include "notifier/RuvoNNEventNotification.h"
#include "runtime/platform/Export.h"
#include "runtime/support/VornCriticalSection.h"
#include "runtime/support/VornSmartPointer.h"
#include "runtime/support/VornSynchronizedQueue.h"
#include "runtime/support/VornThread.h"

namespace RuvoService {

// The engine "Notifier": clients register for events by pattern
// (RUVO_NN_REGISTER), withdraw (RUVO_NN_UNREGISTER) and raise events
// (RUVO_NN_NOTIFY). One thread, "RuvoNNEngineQueue", offers the events, in the
// order in which they were produced, to every entry of
// VornProxyDependentContainer. It runs from initialize() to cleanup(), which
// delivers what is still queued; both may be repeated. What is produced in
// between waits in the queue.
class VORN_EXPORT RuvoNNEngine : public RuvoEngineBase {
public:
    using Event = VornSupport::VornSmartPointer<RuvoNNEventNotification>;

    RuvoNNEngine();
    ~RuvoNNEngine() override;

    // Queues an event. Any thread, under any lock but the container's; never
    // waits for a delivery.
    void produce(Event event);

protected:
    bool initialize() override;
    bool cleanup() override;

private:
    using Events = VornSupport::VornProducerConsumer<Event>;

    // The body of the queue thread.
    class NotificationQueueHandler : public VornSupport::VornThread::VornRunnable {
    public:
        explicit NotificationQueueHandler(Events* events) : events_(events) {}
        int run(VornSupport::VornWorkInformation& information) override;

    private:
        static void offer(const RuvoNNEventNotification& event);

        Events* const events_;  // the engine's, which outlives the thread
    };

    VornSupport::VornCriticalSectionObject lock_;  // orders initialize() and cleanup()
    VornSupport::VornSynchronizedQueue<Event> queue_;
    Events events_{queue_};
    VornSupport::VornThread thread_;
};

}  // namespace RuvoService
