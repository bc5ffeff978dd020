#include "scheduler/RuvoTSRuns.h"

#include <chrono>

namespace RuvoService {

using VornSupport::VornMutexLock;

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

void RuvoTSRuns::open() {
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
