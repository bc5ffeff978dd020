#include "benchmarks/harness/BlockingSocket.h"
#include "benchmarks/harness/Figure.h"
#include "benchmarks/harness/Requests.h"
#include "benchmarks/harness/Servers.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <thread>

namespace RuvoBench {
namespace {

constexpr std::size_t kConnections = 10000;
constexpr int kMostRounds = 3;  // each makes 10,000 threads on either side

struct Quiet {
    double memoryKiB;    // for each connection
    double processorMs;  // of the whole server, for each second of quiet
};

// Opens the connections, asks one thing on each, and then lets them be.
Quiet measureServer(pid_t server, std::uint16_t port, std::chrono::milliseconds quiet) {
    const std::string bytes = std::string(kOpening) + batchOf(getProgressRequest(1), 1);
    char answer[kAdmitted.size() + kResultBytes];
    const double before = residentKiB(server);
    std::vector<Fd> clients;
    clients.reserve(kConnections);
    for (std::size_t i = 0; i < kConnections; ++i) {
        clients.push_back(connectToLoopback(port));
        setResetOnClose(clients.back().get());
        sendAll(clients.back().get(), bytes);
        receiveExactly(clients.back().get(), answer, sizeof answer);
    }
    const double after = residentKiB(server);

    const double busyBefore = processorMs(server);
    std::this_thread::sleep_for(quiet);
    const double seconds = std::chrono::duration<double>(quiet).count();
    return {.memoryKiB = (after - before) / static_cast<double>(kConnections),
            .processorMs = (processorMs(server) - busyBefore) / seconds};
}

Quiet measureOurs(const Settings& settings, std::chrono::milliseconds quiet) {
    const Daemon daemon(settings,
                        {{"ruvod.limits.clients", std::to_string(kConnections + 1000)}});
    return measureServer(daemon.pid(), daemon.port(), quiet);
}

Quiet measureBare(const Settings& settings, std::chrono::milliseconds quiet) {
    const std::size_t request = kOpening.size() + batchOf(getProgressRequest(1), 1).size();
    const BareServer server(settings, {"ping", std::to_string(request),
                                       std::to_string(kAdmitted.size() + kResultBytes)});
    return measureServer(server.pid(), server.port(), quiet);
}

void measure(const Settings& settings, const FigureSink& sink) {
    const std::chrono::milliseconds quiet(settings.quick ? 1000 : 3000);
    Rounds memory;
    Rounds processor;
    const int rounds = settings.quick ? 1 : std::min(settings.rounds, kMostRounds);
    for (int round = 0; round < rounds; ++round) {
        const Quiet ours = measureOurs(settings, quiet);
        const Quiet bare = measureBare(settings, quiet);
        memory.ours.push_back(ours.memoryKiB);
        memory.bare.push_back(bare.memoryKiB);
        processor.ours.push_back(ours.processorMs);
        processor.bare.push_back(bare.processorMs);
    }
    sink(evaluate({.name = "connection.quiet.memory",
                   .unit = "KiB",
                   .against = "bare thread each",
                   .rule = Rule::ValueAtMost,
                   .limit = 12},
                  memory));
    sink(evaluate({.name = "connection.quiet.processor",
                   .unit = "ms/s",
                   .against = "bare thread each",
                   .rule = Rule::ValueAtMost,
                   .limit = 0},
                  processor));
}

const FigureFamily family("connection.quiet", "what each of 10,000 quiet connections costs",
                          measure);

}  // namespace
}  // namespace RuvoBench
