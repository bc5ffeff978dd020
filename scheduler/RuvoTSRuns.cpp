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
constexpr int kMostAtOnce = 1 << 20;  // a number that does not overflow
// So often as many as may be on their way at once have got what they need, and nobody
// waited: the shortage is over.
constexpr int kCalmRounds = 2;

struct Reason {
    VornPlatform::OsError error;
};

VornSupport::VornLogging& operator<<(VornSupport::VornLogging& log, Reason reason) {
    return reason.error ? log << reason.error : log << "no thread";
}

}  // namespace

RuvoTSRefused::~RuvoTSRefused() = default;

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
    Task self;  // released after the lock
    VornMutexLock lock(mutex_);
    if (!open_) return false;
    if (limit_ != 0 && places_ >= limit_) {
        standInLineLocked(task);
        return false;
    }
    self = takeOutOfLineLocked(task);
    noteComesLocked(task);
    ++places_;
    task.place_.epoch = epoch_;
    task.place_.taken = true;
    return true;
}

void RuvoTSRuns::leavePlace(RuvoTSTask& task, bool got) noexcept {
    bool over = false;
    const bool comesAgain = !got && !task.isFinished();
    {
        VornMutexLock lock(mutex_);
        const int taken = places_;
        const bool had = std::exchange(task.place_.taken, false);
        if (had) --places_;
        if (limit_ == 0) return;
        if (!got) {
            // The next one would be refused as well. One that comes again waits, even when
            // the line had no memory for it.
            over = !comesAgain && endShortageLocked();
        } else if (had && ++fulfilled_ >= limit_) {
            over = endRoundLocked(taken);
        }
    }
    if (got) callNext();
    if (over) reportEnd();
}

// With runs that overlap somebody is always on the way, so that the shortage would go
// on by itself, and a limit that grew with every run would soon hold nobody back.
bool RuvoTSRuns::endRoundLocked(int taken) noexcept {
    fulfilled_ = 0;
    const bool isAwaited = !line_.empty() || called_ != 0;
    if (isAwaited || taken >= limit_ / 2) limit_ = std::min(2 * limit_, kMostAtOnce);
    calmRounds_ = isAwaited ? 0 : calmRounds_ + 1;
    if (calmRounds_ < kCalmRounds) return false;
    limit_ = 0;
    return true;
}

// Has the first in line that still waits try now. Asks tasks, and lets go of them,
// without the lock.
void RuvoTSRuns::callNext() noexcept {
    for (;;) {
        Task next;
        {
            VornMutexLock lock(mutex_);
            if (line_.empty()) {
                if (!endShortageLocked()) return;
                break;
            }
            next = takeOutOfLineLocked(*line_.front());
            next->place_.called = true;
            ++called_;
        }
        if (next->isFinished()) {
            VornMutexLock lock(mutex_);
            noteComesLocked(*next);
        } else if (next->hasten()) {
            return;
        }
        // Its time has come by itself, or its timer is just being armed.
    }
    reportEnd();
}

void RuvoTSRuns::noteShortage(RuvoTSTask& task, VornPlatform::OsError reason) noexcept {
    bool begins = false;
    int limit = 0;
    {
        VornMutexLock lock(mutex_);
        standInLineLocked(task);
        begins = limit_ == 0;
        if (begins) {
            limit_ = std::max(1, places_ / kMeansOfARun);
        } else if (task.place_.epoch == epoch_) {
            limit_ = std::max(1, std::min(limit_, places_) / 2);
        } else {
            return;  // it began before the limit was set
        }
        ++epoch_;
        fulfilled_ = 0;
        calmRounds_ = 0;
        limit = limit_;
    }
    if (!begins) return;
    VORN_LOG(2, "RuvoTSRuns: the system is short of means to run tasks ("
                    << Reason{reason} << "): tasks wait for each other from here on, " << limit
                    << " run at once");
}

void RuvoTSRuns::leaveLine(RuvoTSTask& task) noexcept {
    Task self;  // released after the lock
    bool over = false;
    {
        VornMutexLock lock(mutex_);
        self = takeOutOfLineLocked(task);
        noteComesLocked(task);
        over = endShortageLocked();
    }
    if (over) reportEnd();
}

bool RuvoTSRuns::endShortageLocked() noexcept {
    if (limit_ == 0 || places_ != 0 || called_ != 0 || !line_.empty()) return false;
    limit_ = 0;
    return true;
}

void RuvoTSRuns::reportEnd() noexcept {
    VORN_LOG(2, "RuvoTSRuns: tasks run again without waiting for each other");
}

bool RuvoTSRuns::isCalled(const RuvoTSTask& task) const noexcept {
    VornMutexLock lock(mutex_);
    return task.place_.called;
}

bool RuvoTSRuns::isShort() const {
    VornMutexLock lock(mutex_);
    return limit_ != 0;
}

bool RuvoTSRuns::isCrowded() const {
    VornMutexLock lock(mutex_);
    return limit_ != 0 && places_ > limit_;
}

void RuvoTSRuns::standInLineLocked(RuvoTSTask& task) noexcept {
    noteComesLocked(task);
    calmRounds_ = 0;
    if (task.place_.inLine || !open_) return;
    try {
        line_.emplace_back(&task);
        task.place_.inLine = true;
    } catch (const std::exception&) {
        // Its timer is all that it has.
    }
}

RuvoTSRuns::Task RuvoTSRuns::takeOutOfLineLocked(RuvoTSTask& task) noexcept {
    if (!std::exchange(task.place_.inLine, false)) return nullptr;
    const auto found = std::find(line_.begin(), line_.end(), &task);
    if (found == line_.end()) return nullptr;  // the line of an earlier life
    Task self = std::move(*found);
    line_.erase(found);
    return self;
}

// A task of an earlier life may come late, when none is expected.
void RuvoTSRuns::noteComesLocked(RuvoTSTask& task) noexcept {
    if (std::exchange(task.place_.called, false) && called_ > 0) --called_;
}

// ---- pauses, and the end ---------------------------------------------------------

// Not a wait for the event itself: a thousand runs that pause at once would meet at
// the lock of all events.
bool RuvoTSRuns::pause(int ms) { return !VornPlatform::awaitSignal(stopSignal(), ms); }

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
    called_ = 0;
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

std::size_t RuvoTSRuns::lineForTest() const {
    VornMutexLock lock(mutex_);
    return line_.size();
}

int RuvoTSRuns::placesForTest() const {
    VornMutexLock lock(mutex_);
    return places_;
}

int RuvoTSRuns::count() const {
    VornMutexLock lock(mutex_);
    return count_;
}

}  // namespace RuvoService
