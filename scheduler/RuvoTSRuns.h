#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/NativeSignal.h"
#include "runtime/support/VornEvent.h"
#include "runtime/support/VornMutex.h"

#include <utility>

namespace RuvoService {

// The runs of tasks under way, each from the moment its time came to the end of
// its thread. One a process. When the service stops, runs that only pause end
// at once, and runs whose command still works let go of it: the child process
// goes on, its end is nobody's affair any more, and the thread ends. So a stop
// does not wait for commands and ends none. Any thread.
class VORN_EXPORT RuvoTSRuns {
public:
    // One run under way, or, when it is false, none: the service stops.
    class Token {
    public:
        Token() = default;
        Token(Token&& other) noexcept : counted_(std::exchange(other.counted_, false)) {}
        Token& operator=(Token&& other) noexcept {
            std::swap(counted_, other.counted_);
            return *this;
        }
        ~Token() {
            if (counted_) getInstance().end();
        }
        explicit operator bool() const { return counted_; }

    private:
        friend class RuvoTSRuns;
        explicit Token(bool counted) : counted_(counted) {}
        bool counted_ = false;
    };

    static RuvoTSRuns& getInstance();

    Token begin() VORN_EXCLUDES(mutex_);
    // One of the pauses that a run makes. False, at once, when the service stops.
    bool pause(int ms);
    // Before something is tried again that memory, threads or descriptors were
    // missing for: 100 ms. False when the service stops.
    bool pauseForShortage() VORN_EXCLUDES(mutex_);
    // On from stop() to open(), which makes it.
    VornPlatform::NativeSignal::Handle stopSignal() { return stopping_.getHandle(); }

    // Runs may begin, as they may in a new process. Throws VornException when the
    // system has no handle for the signal.
    void open() VORN_EXCLUDES(mutex_);
    // No run begins from here on. Waits for those under way, `ms` milliseconds
    // at most; false when some are left.
    bool stop(int ms) VORN_EXCLUDES(mutex_);
    int count() const VORN_EXCLUDES(mutex_);

private:
    RuvoTSRuns() = default;
    void end() VORN_EXCLUDES(mutex_);

    VornSupport::VornEvent stopping_{true};
    mutable VornSupport::VornMutex mutex_;
    VornSupport::VornCondition ended_;
    bool open_ VORN_GUARDED_BY(mutex_) = true;
    int count_ VORN_GUARDED_BY(mutex_) = 0;
};

}  // namespace RuvoService
