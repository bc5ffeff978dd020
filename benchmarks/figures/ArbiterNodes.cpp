#include "benchmarks/harness/BlockingSocket.h"
#include "benchmarks/harness/Conversation.h"
#include "benchmarks/harness/Figure.h"
#include "benchmarks/harness/PingPong.h"
#include "benchmarks/harness/Placement.h"
#include "benchmarks/harness/Requests.h"
#include "benchmarks/harness/Servers.h"
#include "runtime/net/WireCodec.h"

#include <cstdio>
#include <random>
#include <stdexcept>

namespace RuvoBench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kFew = 1'000;
constexpr std::size_t kMany = 1'000'000;
constexpr std::size_t kAtOnce = 100;  // lock and unlock of so many nodes in a batch
constexpr std::size_t kNameBytes = 20;

std::string nameOf(std::size_t number) {
    char text[kNameBytes + 1];
    std::snprintf(text, sizeof text, "bench storage%07u", static_cast<unsigned>(number));
    return text;
}

// A daemon whose arbiter knows so many nodes.
class Nodes {
public:
    Nodes(const Settings& settings, std::size_t count)
        : count_(count), daemon_(settings), client_(daemon_.port()) {
        add(0, kFew);
        const double before = residentKiB(daemon_.pid());
        add(kFew, count);
        if (count > kFew) {
            bytes_ =
                (residentKiB(daemon_.pid()) - before) * 1024 / static_cast<double>(count - kFew);
        }
    }
    // Of memory for each node, its name not counted.
    double bytesBeyondName() const { return bytes_ - static_cast<double>(kNameBytes); }

    // A lock and its unlock, of another node each time: p50 in microseconds.
    double pairP50(std::chrono::milliseconds slice) {
        std::vector<std::int64_t> times;
        times.reserve(1 << 16);
        auto begin = Clock::now();
        for (const auto end = begin + slice; begin < end;) {
            const std::string request = lockRequest(nameOf(random_() % count_), 0);
            begin = Clock::now();
            client_.expect(unlockRequest(client_.ask(request)), 0);
            times.push_back(std::chrono::nanoseconds(Clock::now() - begin).count());
            ++handle_;
        }
        return p50Microseconds(times);
    }

private:
    // The handles are known beforehand: nobody else locks anything.
    void add(std::size_t begin, std::size_t end) {
        std::string answers(2 * kAtOnce * kResultBytes, '\0');
        while (begin < end) {
            std::string batch = batchHeader(2 * kAtOnce);
            for (const std::size_t last = begin + kAtOnce; begin < last; ++begin) {
                batch += lockRequest(nameOf(begin), 0) + unlockRequest(++handle_);
            }
            sendAll(client_.socket(), batch);
            receiveExactly(client_.socket(), answers.data(), answers.size());
            const char* const lastHandle = answers.data() + answers.size() - 2 * kResultBytes;
            if (static_cast<std::int32_t>(VornNet::decode32(lastHandle)) != handle_) {
                throw std::runtime_error("a lock was not obtained");
            }
        }
    }

    const std::size_t count_;
    std::mt19937 random_{1};
    double bytes_ = 0;
    std::int32_t handle_ = 0;
    Daemon daemon_;
    Conversation client_;
};

void measure(const Settings& settings, const FigureSink& sink) {
    const Pinned pinned(widestPlacement().load);
    Nodes many(settings, kMany);
    if (settings.wants("arbiter.nodes.find")) {
        Nodes few(settings, kFew);
        const Rounds rounds = measureRounds(
            settings.rounds, [&] { return many.pairP50(settings.slice()); },
            [&] { return few.pairP50(settings.slice()); });
        sink(evaluate({.name = "arbiter.nodes.find",
                       .unit = "us",
                       .against = "1,000 nodes",
                       .rule = Rule::RatioAtMost,
                       .limit = 3},
                      rounds));
    }
    if (settings.wants("arbiter.nodes.memory")) {
        sink(evaluate({.name = "arbiter.nodes.memory",
                       .unit = "bytes",
                       .against = "",
                       .rule = Rule::ValueAtMost,
                       .limit = 400},
                      {.ours = {many.bytesBeyondName()}, .bare = {}}));
    }
}

const FigureFamily family("arbiter.nodes", "a lock among 1,000,000 nodes, and what a node takes",
                          measure);

}  // namespace
}  // namespace RuvoBench
