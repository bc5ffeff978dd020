#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornCriticalSection.h"
#include "runtime/support/VornMutex.h"

#include <atomic>
#include <cstddef>
#include <deque>
#include <optional>
#include <utility>

namespace VornSupport {

// What queues of every element type share: the lock that guards the elements.
class VORN_EXPORT VornBaseSynchronizedQueue {
public:
    VornBaseSynchronizedQueue() = default;
    virtual ~VornBaseSynchronizedQueue();
    VornBaseSynchronizedQueue(const VornBaseSynchronizedQueue&) = delete;
    VornBaseSynchronizedQueue& operator=(const VornBaseSynchronizedQueue&) = delete;

protected:
    VornMutex mutex_;  // of the back, where elements are pushed
};

// A first-in first-out queue. Any thread. Who takes and who pushes meet only
// when the elements that were there at their last meeting have been taken.
template <class T>
class VornSynchronizedQueue : public VornBaseSynchronizedQueue {
public:
    void push(const T& element) VORN_EXCLUDES(mutex_) {
        VornMutexLock lock(mutex_);
        back_.push_back(element);
        size_.fetch_add(1, std::memory_order_release);
    }
    // Takes the front element; false when there is none.
    bool pop(T& element) {
        std::optional<T> front = take();
        if (!front) return false;
        element = std::move(*front);
        return true;
    }
    // The same as a value, for callers that hold a lock: what an assignment
    // lets go of may call anybody.
    std::optional<T> take() VORN_EXCLUDES(frontMutex_, mutex_) {
        if (empty()) return std::nullopt;
        VornMutexLock lock(frontMutex_);
        if (front_.empty()) {
            VornMutexLock backLock(mutex_);
            front_.swap(back_);
        }
        if (front_.empty()) return std::nullopt;
        std::optional<T> front(std::move(front_.front()));
        front_.pop_front();
        size_.fetch_sub(1, std::memory_order_release);
        return front;
    }
    std::size_t size() const { return size_.load(std::memory_order_acquire); }
    bool empty() const { return size() == 0; }

private:
    VornMutex frontMutex_;  // taken before mutex_
    std::deque<T> front_ VORN_GUARDED_BY(frontMutex_);
    std::deque<T> back_ VORN_GUARDED_BY(mutex_);
    std::atomic<std::size_t> size_{0};  // of both
};

// The waiting that producers and consumers of every element type share.
class VORN_EXPORT VornBaseProducerConsumer {
public:
    VornBaseProducerConsumer() = default;
    virtual ~VornBaseProducerConsumer();
    VornBaseProducerConsumer(const VornBaseProducerConsumer&) = delete;
    VornBaseProducerConsumer& operator=(const VornBaseProducerConsumer&) = delete;

    // True: marks the end of the stream and wakes the consumer; what was
    // produced before is still consumed. False: takes the mark away, for a
    // consumer that starts anew.
    void produceSentinel(bool sentinel) VORN_EXCLUDES(sync_);
    // Wakes a consumer that sleeps, for elements that were produced without that.
    void wakeConsumer() VORN_EXCLUDES(sync_);

protected:
    // Appends through `append`. True when a consumer sleeps.
    template <class Append>
    bool produceWith(Append append) VORN_EXCLUDES(sync_) {
        traceProduceWaiting();
        VornMutexLock lock(sync_);
        traceProduceAdding();
        append();
        return consumersWaiting_ > 0;
    }
    // With no lock held, or the consumer would wake up only to wait for it.
    void notifyConsumer() { syncEvent_.notifyOne(); }

    // Waits until `take` gets an element (true) or there is none and a
    // sentinel (false).
    template <class Take>
    bool consumeWith(Take take) VORN_EXCLUDES(sync_) {
        traceConsumeChecking();
        // While elements are there, producers are not met.
        bool taken = take();
        if (taken) {
            traceConsumeCompleted(true);
            return true;
        }
        VornMutexLock lock(sync_);
        while (!(taken = take()) && !sentinel_) {
            ++consumersWaiting_;
            syncEvent_.wait(sync_);
            --consumersWaiting_;
        }
        traceConsumeCompleted(taken);
        return taken;
    }

private:
    static void traceProduceWaiting();
    static void traceProduceAdding();
    static void traceConsumeChecking();
    static void traceConsumeCompleted(bool taken);

    VornMutex sync_;           // taken before the queue's own lock
    VornCondition syncEvent_;  // an element or a sentinel came
    bool sentinel_ VORN_GUARDED_BY(sync_) = false;
    int consumersWaiting_ VORN_GUARDED_BY(sync_) = 0;
};

// Producers and a consumer over a queue, which must outlive this. produce()
// may be called from any thread and never waits for the consumer.
template <class T>
class VornProducerConsumer : public VornBaseProducerConsumer {
public:
    explicit VornProducerConsumer(VornSynchronizedQueue<T>& queue) : queue_(queue) {}

    void produce(const T& element) {
        if (produceWith([&] { queue_.push(element); })) notifyConsumer();
    }
    // As produce(), and lets a consumer that sleeps go on sleeping: it will see the
    // element when it wakes for another reason, wakeConsumer() at the latest.
    void produceQuietly(const T& element) {
        produceWith([&] { queue_.push(element); });
    }
    // Waits for the next element. False when everything produced before a
    // sentinel has been consumed.
    bool consume(T& element) {
        std::optional<T> front;
        const auto take = [&] { return (front = queue_.take()).has_value(); };
        if (!consumeWith(take)) return false;
        element = std::move(*front);
        return true;
    }
    // True when nothing waits to be consumed at this moment.
    bool isEmpty() const { return queue_.empty(); }

private:
    VornSynchronizedQueue<T>& queue_;
};

}  // namespace VornSupport
