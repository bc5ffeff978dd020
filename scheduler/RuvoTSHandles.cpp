#include "scheduler/RuvoTSHandles.h"

#include <atomic>
#include <random>

namespace RuvoService {
namespace {

// Full period for every odd increment, the modulus being a power of two.
constexpr std::uint32_t kFactor = 1103515245;
constexpr std::uint32_t kMask = 0x7FFFFFFF;

std::atomic<std::int32_t> lastHandleSeed{0};
std::atomic<std::int32_t (*)()> drawInstead{nullptr};
std::atomic<std::uint64_t> constructedTasks{0};

std::uint64_t randomNumber() {
    std::random_device device;
    return static_cast<std::uint64_t>(device()) << 32 | device();
}

}  // namespace

std::int32_t RuvoTSHandles::after(std::int32_t seed, std::uint32_t salt) {
    return static_cast<std::int32_t>((static_cast<std::uint32_t>(seed) * kFactor + (salt | 1)) &
                                     kMask);
}

void RuvoTSHandles::setDrawForTest(std::int32_t (*draw)()) { drawInstead = draw; }

std::int32_t RuvoTSHandles::draw() {
    if (const auto instead = drawInstead.load(std::memory_order_relaxed)) return instead();
    static const auto salt = static_cast<std::uint32_t>(randomNumber());
    std::int32_t seed = lastHandleSeed.load(std::memory_order_relaxed);
    while (!lastHandleSeed.compare_exchange_weak(seed, after(seed, salt),
                                                 std::memory_order_relaxed)) {
    }
    return after(seed, salt);
}

std::uint64_t countTask() { return constructedTasks.fetch_add(1, std::memory_order_relaxed) + 1; }

// Each step can be undone, so different numbers stay different.
std::uint64_t identityOf(std::uint64_t number) {
    static const std::uint64_t salt = randomNumber();
    static const std::uint64_t factor = randomNumber() | 1;
    std::uint64_t mixed = (number + salt) * factor;
    mixed = (mixed ^ mixed >> 32) * 0x9E3779B97F4A7C15;
    return mixed ^ mixed >> 29;
}

}  // namespace RuvoService
