#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/NativeSignal.h"
#include "runtime/platform/OsError.h"
#include "runtime/support/VornEvent.h"
#include "runtime/support/VornMutex.h"
#include "runtime/support/VornSmartPointer.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <utility>

namespace RuvoService {

class RuvoTSTask;

// What a run that has begun throws when the system refuses it a process, for want
// of means that others give back when they end.
class VORN_EXPORT RuvoTSRefused : public std::exception {
public:
    explicit RuvoTSRefused(VornPlatform::OsError error) : error_(error) {}
    ~RuvoTSRefused() override;
    const char* what() const noexcept override { return "refused"; }
    VornPlatform::OsError error() const { return error_; }

private:
    VornPlatform::OsError error_;  // no text: memory may be what is missing
};

// The runs of tasks under way, each from the moment its time came to the end of
// its thread. One a process. When the service stops, runs that only pause end
// at once, and runs whose command still works let go of it: the child process
// goes on, its end is nobody's affair any more, and the thread ends. So a stop
// does not wait for commands and ends none.
//
// Also says how many of them may be on their way to their command at once when the
// system is short of threads, processes or descriptors. Nobody knows that
// beforehand, and runs that take the last threads for their pauses leave none to run
// with: so when one is refused, a quarter of those on their way may go on from there,
// half of those on their way at each further refusal, and twice as many each time that
// as many have got what they need, as long as others wait or half of the places are
// taken. Others stand in line, without a thread, and are tried when a command has begun
// and lived for a moment, or a run has ended, after a second at the latest. Commands that
// work, however long, keep nobody from beginning. The shortage is over when nobody waits,
// and nobody is on the way or, twice in a row, as many as may be have got what they need.
//
// Any thread.
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

    // A place for a run of this task. Without one the task stands in line, and its
    // timer, which the caller arms for a later try, is hastened in its turn.
    bool takePlace(RuvoTSTask& task) VORN_EXCLUDES(mutex_);
    // When the command needs no more, and at the end of the run: gives the task's place
    // back, if it still has it. `got`: it was not refused what it needs; the first in
    // line is called then.
    void leavePlace(RuvoTSTask& task, bool got) noexcept VORN_EXCLUDES(mutex_);
    // Whether the task has been called since it stood in line, and has not come yet: for
    // who arms its timer afterwards.
    bool isCalled(const RuvoTSTask& task) const noexcept VORN_EXCLUDES(mutex_);
    // The run that has a place was refused a thread or a process, for `reason`. It
    // stands in line. Logged at level 2 when the shortage begins and when it ends.
    void noteShortage(RuvoTSTask& task, VornPlatform::OsError reason) noexcept
        VORN_EXCLUDES(mutex_);
    // The task is finished, and comes no more.
    void leaveLine(RuvoTSTask& task) noexcept VORN_EXCLUDES(mutex_);
    // More than may be under way are. Who has not begun had better stand in line.
    bool isCrowded() const VORN_EXCLUDES(mutex_);
    // Whether there is a shortage.
    bool isShort() const VORN_EXCLUDES(mutex_);

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
    // Tasks that stand in line.
    std::size_t lineForTest() const VORN_EXCLUDES(mutex_);
    int placesForTest() const VORN_EXCLUDES(mutex_);

private:
    using Task = VornSupport::VornSmartPointer<RuvoTSTask>;

    RuvoTSRuns() = default;
    void end() VORN_EXCLUDES(mutex_);
    void standInLineLocked(RuvoTSTask& task) noexcept VORN_REQUIRES(mutex_);
    // What held the task in line; null when it does not stand there.
    Task takeOutOfLineLocked(RuvoTSTask& task) noexcept VORN_REQUIRES(mutex_);
    void noteComesLocked(RuvoTSTask& task) noexcept VORN_REQUIRES(mutex_);
    // True when the shortage was to be ended: reportEnd() then, without the lock.
    bool endShortageLocked() noexcept VORN_REQUIRES(mutex_);
    // As many as may be on their way have got what they need; `taken`: the places before
    // the last of them left. Likewise true when that ended the shortage.
    bool endRoundLocked(int taken) noexcept VORN_REQUIRES(mutex_);
    void callNext() noexcept VORN_EXCLUDES(mutex_);
    static void reportEnd() noexcept;

    VornSupport::VornEvent stopping_{true};
    mutable VornSupport::VornMutex mutex_;
    VornSupport::VornCondition ended_;
    bool open_ VORN_GUARDED_BY(mutex_) = true;
    int count_ VORN_GUARDED_BY(mutex_) = 0;
    int places_ VORN_GUARDED_BY(mutex_) = 0;      // that are taken
    int limit_ VORN_GUARDED_BY(mutex_) = 0;       // of places; 0: there is no shortage
    int fulfilled_ VORN_GUARDED_BY(mutex_) = 0;   // runs in this round: up to the limit
    int calmRounds_ VORN_GUARDED_BY(mutex_) = 0;  // of these, in a row, with nobody waiting
    std::uint32_t epoch_ VORN_GUARDED_BY(mutex_) = 0;  // of the limit; not while it grows
    int called_ VORN_GUARDED_BY(mutex_) = 0;      // out of the line, and not come yet
    std::deque<Task> line_ VORN_GUARDED_BY(mutex_);
};

}  // namespace RuvoService
