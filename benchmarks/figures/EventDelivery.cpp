#include "benchmarks/harness/BlockingSocket.h"
#include "benchmarks/harness/Conversation.h"
#include "benchmarks/harness/Figure.h"
#include "benchmarks/harness/Listeners.h"
#include "benchmarks/harness/Placement.h"
#include "benchmarks/harness/Raising.h"
#include "benchmarks/harness/Requests.h"
#include "benchmarks/harness/Servers.h"

#include <chrono>

namespace RuvoBench {
namespace {

constexpr std::uint16_t kBatch = 64;
constexpr std::size_t kListeners[] = {1, 10, 100};
constexpr std::size_t kDataBytes[] = {4, 256};

// The daemon with its registered listeners and the client that raises events.
class DaemonSide {
public:
    DaemonSide(const Settings& settings, std::size_t listeners, const Event& event)
        : listeners_(listeners),
          daemon_(settings),
          raiser_(daemon_.port()),
          batch_(batchOf(notifyRequest(event), kBatch)),
          delivery_(deliveryBytes(event)) {
        for (std::size_t i = 0; i < listeners; ++i) {
            const auto handle = static_cast<std::int32_t>(i);
            raiser_.expect(registerRequest("^bench", listeners_.remoteName(i), handle), 0);
        }
        raiser_.expect(notifyRequest(event), 0);
        listeners_.acceptAll();
        listeners_.drain(delivery_);
    }
    double seconds(std::uint64_t batches) {
        return raiseWhile(
            raiser_.socket(), batches, [this](std::uint64_t) { return std::string_view(batch_); },
            kBatch * kResultBytes, [&] { listeners_.drain(batches * kBatch * delivery_); });
    }

private:
    Listeners listeners_;
    Daemon daemon_;
    Conversation raiser_;
    std::string batch_;
    std::size_t delivery_;
};

// The bare thread that writes the same bytes to as many listeners.
class BareSide {
public:
    BareSide(const Settings& settings, std::size_t listeners, const Event& event)
        : listeners_(listeners),
          delivery_(deliveryBytes(event)),
          server_(settings, {"fan", std::to_string(delivery_), listeners_.ports()}),
          control_(connectToLoopback(server_.port())) {
        listeners_.acceptAll();
    }
    double seconds(std::uint64_t batches) {
        const auto begin = std::chrono::steady_clock::now();
        const std::uint64_t deliveries = batches * kBatch;
        sendAll(control_.get(), {reinterpret_cast<const char*>(&deliveries), sizeof deliveries});
        listeners_.drain(deliveries * delivery_);
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    }

private:
    Listeners listeners_;
    std::size_t delivery_;
    BareServer server_;
    Fd control_;
};

// A side's rate in deliveries a second, its number of batches found beforehand.
template <typename Side>
std::function<double()> rateOf(Side& side, std::size_t listeners, const Settings& settings) {
    const double target = std::chrono::duration<double>(settings.slice()).count();
    const auto seconds = [&side](std::uint64_t batches) { return side.seconds(batches); };
    const std::uint64_t batches = calibrate(seconds, target);
    return [&side, listeners, batches] {
        return static_cast<double>(batches * kBatch * listeners) / side.seconds(batches);
    };
}

void measureOne(const Settings& settings, const FigureSink& sink, const std::string& name,
                std::size_t listeners, std::size_t dataBytes) {
    const Event event{.name = "bench.event", .data = std::string(dataBytes, 'd')};
    DaemonSide daemon(settings, listeners, event);
    BareSide bare(settings, listeners, event);
    const Pinned pinned(widestPlacement().load);
    sink(evaluate({.name = name,
                   .unit = "/s",
                   .against = "bare writer",
                   .rule = Rule::RatioAtLeast,
                   .limit = 0.50},
                  measureRounds(settings.rounds, rateOf(daemon, listeners, settings),
                                rateOf(bare, listeners, settings))));
}

void measure(const Settings& settings, const FigureSink& sink) {
    for (const std::size_t listeners : kListeners) {
        for (const std::size_t dataBytes : kDataBytes) {
            const std::string name = "event.delivery.to-" + std::to_string(listeners) +
                                     "." + std::to_string(dataBytes) + "-bytes";
            if (settings.wants(name)) measureOne(settings, sink, name, listeners, dataBytes);
        }
    }
}

const FigureFamily family("event.delivery", "deliveries a second, events raised in batches",
                          measure);

}  // namespace
}  // namespace RuvoBench
