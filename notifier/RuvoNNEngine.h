#pragma once

#include "engines/RuvoEngineBase.h"
#include "notifier/RuvoNNEventNotification.h"
#include "runtime/platform/Export.h"
#include "runtime/support/VornCriticalSection.h"
#include "runtime/support/VornMutex.h"
#include "runtime/support/VornPostponed.h"
#include "runtime/support/VornSmartPointer.h"
#include "runtime/support/VornSynchronizedQueue.h"
#include "runtime/support/VornThread.h"

#include <atomic>
#include <cstddef>

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

    // For a command whose client waits for its answer: what the thread produces
    // while this lives is queued as ever, but the queue thread, if it sleeps, is
    // woken at the end only, so that it does not take the processor before the
    // answer has been sent; or as soon as the sending has to wait, of datagrams before
    // it. One a thread, on its stack.
    class VORN_EXPORT LateWake final : private VornSupport::VornPostponed {
    public:
        explicit LateWake(RuvoNNEngine* engine);  // null: does nothing
        ~LateWake();

    private:
        friend class RuvoNNEngine;
        void run() noexcept override;

        RuvoNNEngine* const engine_;
        bool produced_ = false;
    };

    RuvoNNEngine();
    ~RuvoNNEngine() override;

    // Queues an event. Any thread, under any lock but the container's; never
    // waits for a delivery.
    void produce(Event event);

    // False while nobody is registered for events and no trace is wanted of them:
    // one that is made then need not be made. Once it has been true for a
    // registration, it is true for all who know of that. Any thread.
    bool isHeard() const;

    // Called by a command on its client's thread, no lock held, before it raises
    // an event: while more than "ruvod.limits.event-queue-bytes" of events wait,
    // sends the client its answers and waits, so that clients that raise faster
    // than listeners take cannot fill the memory. Does not wait while the queue
    // thread does not run. Throws what the connection throws.
    void waitForRoom(VornNet::VornConnection& connection) VORN_EXCLUDES(roomMutex_);

protected:
    bool initialize() override;
    bool cleanup() override;

private:
    using Events = VornSupport::VornProducerConsumer<Event>;

    // The body of the queue thread.
    class NotificationQueueHandler : public VornSupport::VornThread::VornRunnable {
    public:
        NotificationQueueHandler(Events* events, RuvoNNEngine& engine)
            : events_(events), engine_(engine) {}
        int run(VornSupport::VornWorkInformation& information) override;

    private:
        static void offer(const RuvoNNEventNotification& event);
        bool moreComesAtOnce() const;

        Events* const events_;  // the engine's, which outlives the thread
        RuvoNNEngine& engine_;
    };

    void noteOffered(std::size_t bytes) VORN_EXCLUDES(roomMutex_);
    void setRunning(bool running) VORN_EXCLUDES(roomMutex_);

    VornSupport::VornCriticalSectionObject lock_;  // orders initialize() and cleanup()
    VornSupport::VornSynchronizedQueue<Event> queue_;
    Events events_{queue_};
    VornSupport::VornThread thread_;

    std::atomic<std::size_t> queuedBytes_{0};
    std::atomic<int> roomWaiters_{0};  // changed under roomMutex_
    VornSupport::VornMutex roomMutex_;
    VornSupport::VornCondition roomCondition_;
    bool running_ VORN_GUARDED_BY(roomMutex_) = false;
};

}  // namespace RuvoService
