#include "benchmarks/bare/BareMatching.h"
#include "benchmarks/harness/BlockingSocket.h"
#include "benchmarks/harness/Conversation.h"
#include "benchmarks/harness/Figure.h"
#include "benchmarks/harness/Listeners.h"
#include "benchmarks/harness/Placement.h"
#include "benchmarks/harness/Raising.h"
#include "benchmarks/harness/Requests.h"
#include "benchmarks/harness/Servers.h"

#include <chrono>
#include <cstdio>
#include <stdexcept>

namespace RuvoBench {
namespace {

constexpr std::size_t kConsumers = 10000;
constexpr std::uint16_t kBatch = 8;
constexpr int kBatches = 64;  // different ones, used in turn
constexpr std::uint16_t kRegisteredAtOnce = 100;

std::string numbered(const char* format, std::size_t number) {
    char text[64];
    std::snprintf(text, sizeof text, format, static_cast<unsigned>(number));
    return text;
}

// What the patterns of one figure look like: four shapes, each with a number.
// None of them matches any eventName().
struct Shapes {
    const char* figure;
    double limit;
    bool plain;  // texts between optional anchors
    const char* shapes[4];
};

constexpr Shapes kShapes[] = {
    {.figure = "event.matching.patterns",
     .limit = 200,
     .plain = false,
     .shapes = {"^storage\\.array%u\\.(failed|degraded)$", "drive%u[a-z]+\\.removed",
                "(fan|supply)[.]%u:", "array[0-9]+\\.drive%u$"}},
    // These have more in common with the events' names.
    {.figure = "event.matching.like-patterns",
     .limit = 200,
     .plain = false,
     .shapes = {"^bench\\.match\\.(copy|move)%u$", "bench\\.match\\.drive%u[a-z]+",
                "^bench\\.match\\.[a-z]+%u:", "match\\.(fan|supply)[.]%u$"}},
    {.figure = "event.matching.plain-text",
     .limit = 40,
     .plain = true,
     .shapes = {"unit%05u failed", "^unit%05u", "failed%05u$", "^storage unit%05u failed$"}},
};

std::vector<std::string> makePatterns(const Shapes& shapes) {
    std::vector<std::string> patterns;
    for (std::size_t i = 0; i < kConsumers; ++i) {
        patterns.push_back(numbered(shapes.shapes[i % 4], i));
    }
    return patterns;
}

std::string eventName(std::size_t number) { return numbered("bench.match.event%06u", number); }

// Registers them all as consumers that no event is ever delivered to.
void registerAll(Conversation& client, const std::vector<std::string>& patterns) {
    std::string answers(kRegisteredAtOnce * kResultBytes, '\0');
    for (std::size_t begin = 0; begin < patterns.size(); begin += kRegisteredAtOnce) {
        std::string batch = batchHeader(kRegisteredAtOnce);
        for (std::size_t i = begin; i < begin + kRegisteredAtOnce; ++i) {
            batch += registerRequest(patterns[i], "tcp:127.0.0.1:9", static_cast<std::int32_t>(i));
        }
        sendAll(client.socket(), batch);
        receiveExactly(client.socket(), answers.data(), answers.size());
        if (answers.find_first_not_of('\0') != std::string::npos) {
            throw std::runtime_error("a registration was refused");
        }
    }
}

// The daemon with its silent consumers and, behind them, one that is told of
// everything: its deliveries show how far the matching has come.
class DaemonSide {
public:
    DaemonSide(const Settings& settings, const std::vector<std::string>& patterns)
        : listener_(1), daemon_(settings), raiser_(daemon_.port()) {
        registerAll(raiser_, patterns);
        raiser_.expect(registerRequest("^bench", listener_.remoteName(0), 1), 0);
        std::size_t number = 0;
        for (int i = 0; i < kBatches; ++i) {
            std::string batch = batchHeader(kBatch);
            for (int j = 0; j < kBatch; ++j) batch += notifyRequest({.name = eventName(number++)});
            batches_.push_back(std::move(batch));
        }
        raiser_.expect(notifyRequest({.name = eventName(0)}), 0);
        listener_.acceptAll();
        listener_.drain(delivery_);
    }
    // Processor time and not time that passes: the daemon does nothing else, and
    // other programs do not count.
    double seconds(std::uint64_t batches) {
        const double before = processorSeconds(daemon_.pid());
        raiseWhile(
            raiser_.socket(), batches,
            [this](std::uint64_t i) { return std::string_view(batches_[i % kBatches]); },
            kBatch * kResultBytes, [&] { listener_.drain(batches * kBatch * delivery_); });
        return processorSeconds(daemon_.pid()) - before;
    }

private:
    Listeners listener_;
    Daemon daemon_;
    Conversation raiser_;
    std::vector<std::string> batches_;
    const std::size_t delivery_ = deliveryBytes({.name = eventName(0)});
};

double bareSeconds(const BareMatching& matching, std::uint64_t batches) {
    const double before = ownProcessorSeconds();
    for (std::uint64_t i = 0; i < batches * kBatch; ++i) {
        if (matching.countMatches(eventName(i % (kBatch * kBatches))) != 0) {
            throw std::runtime_error("a pattern matched that should not");
        }
    }
    return ownProcessorSeconds() - before;
}

void measureOne(const Settings& settings, const FigureSink& sink, const Shapes& shapes) {
    const auto patterns = makePatterns(shapes);
    const BareMatching matching(patterns, shapes.plain);
    DaemonSide daemon(settings, patterns);
    const Pinned pinned(widestPlacement().load);

    const double target = std::chrono::duration<double>(settings.slice()).count();
    const auto perConsumer = [target](const std::function<double(std::uint64_t)>& seconds) {
        const std::uint64_t batches = calibrate(seconds, target);
        return [seconds, batches] {
            return seconds(batches) * 1e9 / static_cast<double>(batches * kBatch * kConsumers);
        };
    };
    const auto ours = perConsumer([&daemon](std::uint64_t n) { return daemon.seconds(n); });
    const auto bare = perConsumer([&matching](std::uint64_t n) { return bareSeconds(matching, n); });
    sink(evaluate({.name = shapes.figure,
                   .unit = "ns",
                   .against = "a bare loop",
                   .rule = Rule::ValueAtMost,
                   .limit = shapes.limit},
                  measureRounds(settings.rounds, ours, bare)));
}

void measure(const Settings& settings, const FigureSink& sink) {
    for (const auto& shapes : kShapes) {
        if (settings.wants(shapes.figure)) measureOne(settings, sink, shapes);
    }
}

const FigureFamily family("event.matching",
                          "an event and 10,000 different patterns, for each of them", measure);

}  // namespace
}  // namespace RuvoBench
