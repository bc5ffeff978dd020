// Dozens of clients of a real daemon, and the proof that they saw what a correct
// arbiter lets them see: never two holders at one moment, no waiter that sleeps
// beside a free node. RUVO_ARBITER_CHECK_SECONDS (20) or RUVO_ARBITER_CHECK_PAIRS
// say how much of it; RUVO_ARBITER_CHECK_SEED repeats a choice of clients.

#include "tests/arbiter/checker/LockLoad.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <limits>
#include <random>
#include <string>

namespace ArbiterCheck {
namespace {

using namespace TestSupport;

constexpr int kClients = 64;
constexpr milliseconds kRound{2500};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// How long a waiter may sleep beside a free node.
milliseconds bound() { return milliseconds(isEmulated() || kSanitized ? 500 : 50); }

std::uint64_t numberFrom(const char* name, std::uint64_t otherwise) {
    const std::string value = environment(name);
    return value.empty() ? otherwise : std::stoull(value);
}

TEST(ArbiterCheck, FindsNothingWrongWithARealDaemon) {
    const std::uint64_t pairs = numberFrom("RUVO_ARBITER_CHECK_PAIRS", 0);
    const std::uint64_t seconds =
        numberFrom("RUVO_ARBITER_CHECK_SECONDS", pairs == 0 ? 20 : 24 * 3600);
    const auto seed =
        static_cast<unsigned>(numberFrom("RUVO_ARBITER_CHECK_SEED", std::random_device()()));
    std::cout << "seed " << seed << '\n';

    Daemon daemon({.logLevel = 2});
    LockLoad load(daemon, kClients, bound(), seed);
    const Time end = Clock::now() + std::chrono::seconds(seconds);
    const std::uint64_t most = pairs == 0 ? std::numeric_limits<std::int64_t>::max() : pairs;
    const Totals& totals = load.totals();
    while (Clock::now() < end && totals.pairs < most) {
        const auto left = std::chrono::duration_cast<milliseconds>(end - Clock::now());
        const auto found = load.run(std::min(kRound, left), most - totals.pairs);
        for (std::size_t i = 0; i < found.size() && i < 20; ++i) ADD_FAILURE() << found[i];
        ASSERT_TRUE(found.empty()) << found.size() << " faults";
    }
    std::cout << totals.pairs << " pairs, " << totals.refused << " refused, " << totals.left
              << " left while they waited, " << totals.killed << " killed, " << totals.broken
              << " broke off, " << totals.stuck << " told and gone, longest wake-up "
              << totals.longestWakeMs << " ms\n";
    EXPECT_GT(totals.pairs, 100u);
    EXPECT_GT(totals.refused, 10u);
    EXPECT_GT(totals.left, 0u);
    EXPECT_GT(totals.killed, 0u);
    EXPECT_GT(totals.broken, 0u);
    EXPECT_TRUE(daemon.serves());
    EXPECT_EQ(daemon.stop(), 0);
    // What a wait says that was forgotten and found out for itself.
    EXPECT_EQ(daemon.log().find("we were not told"), std::string::npos) << daemon.log();
}

}  // namespace
}  // namespace ArbiterCheck
