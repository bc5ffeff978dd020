#include "benchmarks/harness/BlockingSocket.h"
#include "benchmarks/harness/Figure.h"
#include "benchmarks/harness/Listeners.h"
#include "benchmarks/harness/Locking.h"
#include "benchmarks/harness/PingPong.h"
#include "benchmarks/harness/Placement.h"
#include "benchmarks/harness/Requests.h"
#include "benchmarks/harness/Servers.h"

#include <functional>
#include <thread>

namespace RuvoBench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::microseconds kFallAsleep{200};  // more than enough for a thread

// p50 in microseconds of what wake() takes, each time after prepare() and when
// the one to be woken sleeps.
double wakeP50(const std::function<void()>& prepare, const std::function<void()>& wake,
               const std::function<void()>& finish, std::chrono::milliseconds slice) {
    std::vector<std::int64_t> times;
    for (const auto end = Clock::now() + slice; Clock::now() < end;) {
        prepare();
        std::this_thread::sleep_for(kFallAsleep);
        const auto begin = Clock::now();
        wake();
        times.push_back(std::chrono::nanoseconds(Clock::now() - begin).count());
        finish();
    }
    return p50Microseconds(times);
}

// Two clients that take turns: who has the lock gives it to who waits.
class Handover {
public:
    explicit Handover(std::uint16_t port)
        : clients_{{port, "bench:wake", -1}, {port, "bench:wake", -1}} {
        holder().askForLock();
        handle_ = holder().awaitHandle();
    }
    double p50(std::chrono::milliseconds slice) {
        return wakeP50([this] { waiter().beginToWait(); },
                       [this] {
                           holder().askForUnlock(handle_);
                           handle_ = waiter().awaitHandle();
                       },
                       [this] {
                           holder().awaitDone();
                           holds_ = 1 - holds_;
                       },
                       slice);
    }

private:
    LockClient& holder() { return clients_[holds_]; }
    LockClient& waiter() { return clients_[1 - holds_]; }

    LockClient clients_[2];
    std::size_t holds_ = 0;
    std::int32_t handle_ = 0;
};

void measure(const Settings& settings, const FigureSink& sink) {
    const Daemon daemon(settings);
    Handover handover(daemon.port());
    const std::string request = batchOf(unlockRequest(0), 1);
    Listeners listener(1);
    const BareServer server(settings,
                            {"hop", std::to_string(request.size()), std::to_string(kResultBytes),
                             std::to_string(kResultBytes), listener.ports()});
    listener.acceptAll();
    const Fd client = connectToLoopback(server.port());
    const auto barely = [&] {
        char answer[kResultBytes];
        return wakeP50([] {},
                       [&] {
                           sendAll(client.get(), request);
                           receiveExactly(listener.socket(0), answer, sizeof answer);
                       },
                       [&] { receiveExactly(client.get(), answer, sizeof answer); },
                       settings.slice());
    };
    for (const auto& placement : placements()) {
        const std::string name = std::string("arbiter.wake.") + placement.name;
        if (!settings.wants(name)) continue;
        const Pinned pinned(placement.load);
        Rounds rounds = measureRounds(
            settings.rounds, [&] { return handover.p50(settings.slice()); }, barely);
        // What it takes beyond a bare wake-up; that one stands beside it.
        for (std::size_t i = 0; i < rounds.ours.size(); ++i) rounds.ours[i] -= rounds.bare[i];
        sink(evaluate({.name = name,
                       .unit = "us",
                       .against = "bare wake-up",
                       .rule = Rule::ValueAtMost,
                       .limit = 100},
                      rounds));
    }
}

const FigureFamily family("arbiter.wake", "from an unlock to the handle of the one who waits",
                          measure);

}  // namespace
}  // namespace RuvoBench
