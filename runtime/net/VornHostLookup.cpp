#include "runtime/net/VornHostLookup.h"

#include "runtime/platform/NativeThread.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"
#include "runtime/support/VornThread.h"

#include <exception>
#include <utility>

namespace VornNet {

using VornSupport::VornMutexLock;

VornHostLookup& VornHostLookup::getInstance() {
    static VornHostLookup* const instance = new VornHostLookup;  // its threads may outlive us
    return *instance;
}

void VornHostLookup::find(const std::string& host, std::uint16_t port, Done done) {
    VornMutexLock lock(mutex_);
    questions_.push_back({host, port, std::move(done)});
    if (threads_ == kMostThreads) return;
    const auto error = VornPlatform::startThread(
        {.name = "VornResolve", .stackBytes = VornSupport::VornThread::kClientStack}, &enter, this);
    if (!error) {
        ++threads_;
    } else if (threads_ == 0) {
        questions_.pop_back();
        throw VornSupport::VornException("no thread to look up the host: " + error.text());
    }
}

void VornHostLookup::enter(void* self) { static_cast<VornHostLookup*>(self)->answerAll(); }

void VornHostLookup::answerAll() {
    VornMutexLock lock(mutex_);
    while (!questions_.empty()) {
        const Question question = std::move(questions_.front());
        questions_.pop_front();
        lock.unlock();
        try {
            question.done(VornPlatform::resolve(question.host, question.port));
        } catch (const std::exception& e) {
            VORN_LOG(2, "VornHostLookup::answerAll: " << question.host << ": " << e.what());
        }
        lock.lock();
    }
    --threads_;
}

}  // namespace VornNet
