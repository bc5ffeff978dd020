#include "service/RuvoServiceClientThreadPool.h"

#include "runtime/support/VornLogging.h"

namespace RuvoService {

using VornSupport::VornCollaborator;
using VornSupport::VornCriticalSection;
using VornSupport::VornNotification;
using VornSupport::VornThread;

namespace {

constexpr int kLookAgainMs = 100;

}  // namespace

RuvoServiceClientThreadPool::~RuvoServiceClientThreadPool() {
    // The list is read under its lock, or the last thread might still be
    // leaving it when the lock goes.
    if (const std::size_t count = size(); count != 0) {
        VORN_LOG(9, "~RuvoServiceClientThreadPool: waiting for active client threads: " << count);
        while (size() != 0) emptied_.wait(kLookAgainMs);
    }
    VORN_LOG(9, "~RuvoServiceClientThreadPool: all client threads exited.");
}

void RuvoServiceClientThreadPool::add(VornThread& thread) {
    thread.addDependent(*this);
    VornCriticalSection lock(lock_);
    threads_.insert(&thread);
}

void RuvoServiceClientThreadPool::remove(VornThread& thread) {
    thread.removeDependent(*this);
    erase(thread);
}

std::size_t RuvoServiceClientThreadPool::size() const {
    VornCriticalSection lock(lock_);
    return threads_.size();
}

void RuvoServiceClientThreadPool::handleNotification(VornCollaborator& source,
                                                     const VornNotification& notification) {
    if (dynamic_cast<const VornThread::ThreadDone*>(&notification) == nullptr) return;
    erase(source);
}

void RuvoServiceClientThreadPool::erase(const VornCollaborator& thread) {
    VornCriticalSection lock(lock_);
    threads_.erase(&thread);
    // Inside the lock: the destructor that finds the list empty takes the event
    // along.
    if (threads_.empty()) emptied_.set();
}

}  // namespace RuvoService
