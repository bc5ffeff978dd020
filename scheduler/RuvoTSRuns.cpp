#include "scheduler/RuvoTSRuns.h"

#include "runtime/support/VornLogging.h"
#include "scheduler/RuvoTSTask.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <thread>

namespace RuvoService {

using VornSupport::VornMutexLock;

namespace {

constexpr int kShortageMs = 100;
// A run takes a timer's thread, a thread of its own, the interpreter's process and
// what that starts.
constexpr int kMeansOfARun = 4;

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

// ---- places ----------------------------------------------------------------------

bool RuvoTSRuns::takePlace(RuvoTSTask& task) {
    VornMutexLock lock(mutex_);
    if (!open_) return false;
    if (limit_ != 0 && places_ >= limit_) {
        standInLineLocked(task);
        return false;
    }
    ++places_;
    task.place_ = {.epoch = epoch_, .taken = true, .inLine = false};
    return true;
}

void RuvoTSRuns::leavePlace(RuvoTSTask& task, bool ran) noexcept {
    {
        VornMutexLock lock(mutex_);
        if (!std::exchange(task.place_.taken, false)) return;
        --places_;
        // After a refusal the next one would be refused as well.
        if (limit_ == 0 || !ran) return;
        if (++fulfilled_ >= limit_) {
            ++limit_;
            fulfilled_ = 0;
        }
    }
    callNext();
}

// Has the first in line try now. Asks tasks, and lets go of them, without the lock.
void RuvoTSRuns::callNext() noexcept {
    for (;;) {
        Task next;
        bool waits = false;
        {
            VornMutexLock lock(mutex_);
            if (line_.empty()) {
                if (limit_ == 0 || places_ != 0) return;
                limit_ = 0;
                break;
            }
            next = std::move(line_.front());
            line_.pop_front();
            waits = std::exchange(next->place_.inLine, false);
        }
        if (waits && !next->isFinished()) return next->hasten();
    }
    VORN_LOG(2, "RuvoTSRuns: tasks run again without waiting for each other");
}

void RuvoTSRuns::noteShortage(RuvoTSTask& task, const std::string& reason) noexcept {
    bool begins = false;
    int limit = 0;
    {
        VornMutexLock lock(mutex_);
        standInLineLocked(task);
        begins = limit_ == 0;
        if (begins) {
            limit_ = std::max(1, places_ / kMeansOfARun);
        } else if (task.place_.epoch == epoch_) {
            limit_ = std::max(1, limit_ / 2);
        } else {
            return;  // it began before the limit was set
        }
        ++epoch_;
        fulfilled_ = 0;
        limit = limit_;
    }
    if (!begins) return;
    VORN_LOG(2, "RuvoTSRuns: the system is short of means to run tasks ("
                    << reason << "): tasks wait for each other from here on, " << limit
                    << " run at once");
}

bool RuvoTSRuns::isCrowded() const {
    VornMutexLock lock(mutex_);
    return limit_ != 0 && places_ > limit_;
}

void RuvoTSRuns::standInLineLocked(RuvoTSTask& task) noexcept {
    if (task.place_.inLine || !open_) return;
    try {
        line_.emplace_back(&task);
        task.place_.inLine = true;
    } catch (const std::exception&) {
        // Its timer is all that it has.
    }
}

// ---- pauses, and the end ---------------------------------------------------------

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
    limit_ = 0;
    stopping_.reset();
}

bool RuvoTSRuns::stop(int ms) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    std::deque<Task> line;  // released after the lock
    VornMutexLock lock(mutex_);
    line.swap(line_);
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
