#include "benchmarks/harness/BlockingSocket.h"
#include "benchmarks/harness/Figure.h"
#include "benchmarks/harness/Placement.h"
#include "benchmarks/harness/Requests.h"
#include "benchmarks/harness/Servers.h"

#include <chrono>

namespace RuvoBench {
namespace {

using Clock = std::chrono::steady_clock;

// What a client sends and how much it waits for, step by step.
struct Step {
    std::string bytes;
    std::size_t answer;
};

// Connections a second, one behind the other: connect, the steps, close.
double connectionRate(std::uint16_t port, const std::vector<Step>& steps,
                      std::chrono::milliseconds slice) {
    std::vector<char> buffer(64);
    std::uint64_t done = 0;
    const auto begin = Clock::now();
    for (const auto end = begin + slice; Clock::now() < end; ++done) {
        const Fd client = connectToLoopback(port);
        for (const auto& step : steps) {
            sendAll(client.get(), step.bytes);
            receiveExactly(client.get(), buffer.data(), step.answer);
        }
    }
    return static_cast<double>(done) /
           std::chrono::duration<double>(Clock::now() - begin).count();
}

void measureOne(const Settings& settings, const FigureSink& sink, const std::string& group,
                const std::vector<Step>& steps, const std::vector<std::string>& bareArguments) {
    if (!settings.wants(group)) return;
    const Daemon daemon(settings);
    const BareServer server(settings, bareArguments);
    for (const auto& placement : placements()) {
        const std::string name = group + "." + placement.name;
        if (!settings.wants(name)) continue;
        const Pinned pinned(placement.load);
        const auto rate = [&](std::uint16_t port) {
            return connectionRate(port, steps, settings.slice());
        };
        sink(evaluate({.name = name,
                       .unit = "/s",
                       .against = "bare accept, thread",
                       .rule = Rule::RatioAtLeast,
                       .limit = 0.70},
                      measureRounds(settings.rounds, [&] { return rate(daemon.port()); },
                                    [&] { return rate(server.port()); })));
    }
}

void measure(const Settings& settings, const FigureSink& sink) {
    const std::string request = batchOf(getProgressRequest(1), 1);
    const std::string opening(kOpening);
    const std::size_t both = kAdmitted.size() + kResultBytes;
    const std::string size = std::to_string(request.size());

    // The client sends everything at once: one round trip.
    measureOne(settings, sink, "connection.new.at-once", {{opening + request, both}},
               {"ping", std::to_string(opening.size() + request.size()), std::to_string(both)});
    // The client waits until it is admitted: two.
    measureOne(settings, sink, "connection.new.in-turn",
               {{opening, kAdmitted.size()}, {request, kResultBytes}},
               {"greet", size, std::to_string(kResultBytes)});
}

const FigureFamily family("connection.new", "connect, one request, close: how many a second",
                          measure);

}  // namespace
}  // namespace RuvoBench
