#include "benchmarks/harness/Figure.h"
#include "benchmarks/harness/Locking.h"
#include "benchmarks/harness/Placement.h"
#include "benchmarks/harness/Servers.h"

#include <poll.h>

#include <algorithm>
#include <deque>
#include <stdexcept>
#include <thread>

namespace RuvoBench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kCrowd = 1000;
constexpr std::chrono::microseconds kBetweenLooks{500};
constexpr std::chrono::milliseconds kAtRest{20};  // without work that long, a server is done

double msSince(Clock::time_point begin, Clock::time_point end) {
    return std::chrono::duration<double, std::milli>(end - begin).count();
}

// When the process last worked, once it has done nothing for a while.
Clock::time_point awaitRest(pid_t process, Clock::time_point begin) {
    Clock::time_point last = begin;
    for (double before = 0;;) {
        const double seconds = processorSeconds(process);
        const auto now = Clock::now();
        if (seconds != before) last = now;
        before = seconds;
        if (now - last > kAtRest) return last;
        // Each look keeps a process of a thousand threads from switching them.
        std::this_thread::sleep_for(kBetweenLooks);
    }
}

// Clients that wait for one lock, all but one, which has it.
class Crowd {
public:
    explicit Crowd(const Daemon& daemon) : daemon_(daemon) {
        for (std::size_t i = 0; i < kCrowd + 1; ++i) {
            clients_.emplace_back(daemon.port(), "bench:crowd", -1);
        }
        holder_ = &clients_.front();
        holder_->askForLock();
        handle_ = holder_->awaitHandle();
        for (std::size_t i = 1; i < clients_.size(); ++i) clients_[i].beginToWait();
        awaitRest(daemon_.pid(), Clock::now());
    }

    struct Round {
        double answer;  // until one is told its handle
        double rest;    // until all others wait again
    };
    // Unlocks, and lets the one that held it wait with the others.
    Round wake() {
        LockClient* const before = holder_;
        const auto begin = Clock::now();
        before->askForUnlock(handle_);
        LockClient& winner = awaitAnswer(*before);
        const auto told = Clock::now();
        handle_ = winner.awaitHandle();
        const auto rest = awaitRest(daemon_.pid(), told);
        holder_ = &winner;
        before->awaitDone();
        before->beginToWait();
        awaitRest(daemon_.pid(), Clock::now());
        return {.answer = msSince(begin, told), .rest = msSince(begin, rest)};
    }

private:
    LockClient& awaitAnswer(const LockClient& notThis) {
        std::vector<pollfd> waits;
        for (const LockClient& client : clients_) {
            const bool counts = &client != &notThis;
            waits.push_back({.fd = counts ? client.socket() : -1, .events = POLLIN, .revents = 0});
        }
        if (::poll(waits.data(), waits.size(), 10'000) <= 0) {
            throw std::runtime_error("nobody was woken");
        }
        const auto found = std::find_if(waits.begin(), waits.end(),
                                        [](const pollfd& wait) { return wait.revents != 0; });
        return clients_[static_cast<std::size_t>(found - waits.begin())];
    }

    const Daemon& daemon_;
    std::deque<LockClient> clients_;
    LockClient* holder_ = nullptr;
    std::int32_t handle_ = 0;
};

void measure(const Settings& settings, const FigureSink& sink) {
    const Daemon daemon(settings);
    const Pinned pinned(widestPlacement().load);
    Crowd crowd(daemon);
    // Every wake-up is to end in time, so the longest of all counts.
    Crowd::Round longest{0, 0};
    const auto end = Clock::now() + settings.rounds * settings.slice();
    while (Clock::now() < end) {
        const Crowd::Round one = crowd.wake();
        longest = {std::max(longest.answer, one.answer), std::max(longest.rest, one.rest)};
    }
    const auto report = [&sink](const char* name, double ms) {
        sink(evaluate(
            {.name = name, .unit = "ms", .against = "", .rule = Rule::ValueAtMost, .limit = 50},
            {.ours = {ms}, .bare = {}}));
    };
    if (settings.wants("arbiter.crowd.answer")) report("arbiter.crowd.answer", longest.answer);
    if (settings.wants("arbiter.crowd.rest")) report("arbiter.crowd.rest", longest.rest);
}

const FigureFamily family("arbiter.crowd", "an unlock that 1,000 clients wait for", measure);

}  // namespace
}  // namespace RuvoBench
