#include "scheduler/RuvoTSRuns.h"

#include <chrono>
#include <thread>

namespace RuvoService {

using VornSupport::VornMutexLock;

namespace {

constexpr int kShortageMs = 100;

}  // namespace

RuvoTSRuns& RuvoTSRuns::getInstance() {
    static RuvoTSRuns* const instance = new RuvoTSRuns;
    return *instance;
}

RuvoTSRuns::Token RuvoTSRuns::begin() {
    VornMutexLock lock(mutex_);
    if (open_) ++count_;
    return Token(open_);
}

void RuvoTSRuns::end() {
    VornMutexLock lock(mutex_);
    if (--count_ == 0) ended_.notifyAll();
}

bool RuvoTSRuns::pause(int ms) { return stopping_.wait(ms) == 0; }

bool RuvoTSRuns::pauseForShortage() {
    std::this_thread::sleep_for(std::chrono::milliseconds(kShortageMs));
    VornMutexLock lock(mutex_);
    return open_;
}

void RuvoTSRuns::open() {
    // Not when it is first needed: a command would have been started then.
    stopping_.getHandle();
    VornMutexLock lock(mutex_);
    open_ = true;
    stopping_.reset();
}

bool RuvoTSRuns::stop(int ms) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    VornMutexLock lock(mutex_);
    open_ = false;
    stopping_.set();
    while (count_ > 0) {
        if (!ended_.waitUntil(mutex_, deadline)) return count_ == 0;
    }
    return true;
}

int RuvoTSRuns::count() const {
    VornMutexLock lock(mutex_);
    return count_;
}

}  // namespace RuvoService
