#include "benchmarks/harness/BlockingSocket.h"
#include "benchmarks/harness/Conversation.h"
#include "benchmarks/harness/Figure.h"
#include "benchmarks/harness/Listeners.h"
#include "benchmarks/harness/PingPong.h"
#include "benchmarks/harness/Placement.h"
#include "benchmarks/harness/Requests.h"
#include "benchmarks/harness/Servers.h"

namespace RuvoBench {
namespace {

using Clock = std::chrono::steady_clock;

// From the first byte that the raising socket is given to the last that the
// listener has, p50 in microseconds. The raiser's own answer is read behind it.
double deliveryP50(int raiser, int listener, std::string_view request, std::size_t delivery,
                   std::chrono::milliseconds slice) {
    std::vector<char> buffer(delivery);
    std::vector<std::int64_t> times;
    times.reserve(1 << 16);
    auto begin = Clock::now();
    for (const auto end = begin + slice; begin < end; begin = Clock::now()) {
        sendAll(raiser, request);
        receiveExactly(listener, buffer.data(), delivery);
        times.push_back(std::chrono::nanoseconds(Clock::now() - begin).count());
        receiveExactly(raiser, buffer.data(), kResultBytes);
    }
    return p50Microseconds(times);
}

void measure(const Settings& settings, const FigureSink& sink) {
    const Event event{.name = "bench.event", .data = "data"};
    const std::string request = batchOf(notifyRequest(event), 1);
    const std::size_t delivery = deliveryBytes(event);

    Listeners toldByDaemon(1);
    const Daemon daemon(settings);
    Conversation raiser(daemon.port());
    raiser.expect(registerRequest("^bench\\.event$", toldByDaemon.remoteName(0), 1), 0);
    raiser.expect(notifyRequest(event), 0);
    toldByDaemon.acceptAll();
    toldByDaemon.drain(delivery);

    Listeners toldByBare(1);
    const BareServer server(settings,
                            {"hop", std::to_string(request.size()), std::to_string(kResultBytes),
                             std::to_string(delivery), toldByBare.ports()});
    toldByBare.acceptAll();
    const Fd bareRaiser = connectToLoopback(server.port());

    for (const auto& placement : placements()) {
        const std::string name = std::string("event.latency.") + placement.name;
        if (!settings.wants(name)) continue;
        const Pinned pinned(placement.load);
        const auto ours = [&] {
            return deliveryP50(raiser.socket(), toldByDaemon.socket(0), request, delivery,
                               settings.slice());
        };
        const auto bare = [&] {
            return deliveryP50(bareRaiser.get(), toldByBare.socket(0), request, delivery,
                               settings.slice());
        };
        sink(evaluate({.name = name,
                       .unit = "us",
                       .against = "bare two hops",
                       .rule = Rule::RatioAtMost,
                       .limit = 1.5},
                      measureRounds(settings.rounds, ours, bare)));
    }
}

const FigureFamily family("event.latency", "an event to one listener, p50", measure);

}  // namespace
}  // namespace RuvoBench
