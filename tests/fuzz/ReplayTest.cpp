// Runs a fuzzer over its corpus and over changes of it: in every build, on both
// systems. What a crash of the fuzzer has taught becomes a file of the corpus.

#include "tests/fuzz/Replay.h"

#include "tests/fuzz/Mutations.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kChanges = 2000;
constexpr std::size_t kLargestFile = 64 * 1024;
// No more changes are tried after it: of a slow build on a slow machine.
constexpr std::chrono::seconds kAllChanges{60};

struct Seed {
    std::string name;
    std::string content;
};

// In the order of their names, so that their changes are the same everywhere.
std::vector<Seed> corpus() {
    const char* const root = std::getenv("RUVO_SOURCE_DIR");
    if (root == nullptr) throw std::runtime_error("RUVO_SOURCE_DIR is not set");
    const auto folder =
        TestSupport::toPath(root) / "tests" / "fuzz" / FuzzTests::fuzzerName() / "corpus";
    std::vector<Seed> seeds;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        seeds.push_back({TestSupport::toText(entry.path().filename()),
                         TestSupport::readFile(TestSupport::toText(entry.path()))});
    }
    std::sort(seeds.begin(), seeds.end(),
              [](const Seed& a, const Seed& b) { return a.name < b.name; });
    return seeds;
}

// False, and the test has failed, when the fuzzer finds something in the input.
bool holds(const std::string& input, const std::string& origin) {
    const auto begun = Clock::now();
    std::string problem;
    try {
        // A copy of its own size: what reads behind it is seen by the sanitizers.
        const std::vector<std::uint8_t> bytes(input.begin(), input.end());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    } catch (const std::exception& e) {
        problem = e.what();
    }
    if (problem.empty() && Clock::now() - begun > TestSupport::kPatience) problem = "took long";
    if (problem.empty()) return true;
    ADD_FAILURE() << origin << ": " << problem << "\ninput: \"" << FuzzTests::printable(input)
                  << '"';
    return false;
}

TEST(Replay, TakesTheCorpus) {
    const auto seeds = corpus();
    ASSERT_GE(seeds.size(), 3u);
    for (const Seed& seed : seeds) {
        EXPECT_LE(seed.content.size(), kLargestFile) << seed.name;
        holds(seed.content, seed.name);
    }
}

TEST(Replay, TakesNothing) { holds("", "the empty input"); }

TEST(Replay, TakesChangesOfTheCorpus) {
    std::vector<std::string> inputs;
    for (Seed& seed : corpus()) inputs.push_back(std::move(seed.content));
    ASSERT_FALSE(inputs.empty());
    FuzzTests::Mutations mutations(std::move(inputs));
    const auto end = Clock::now() + kAllChanges;
    int tried = 0;
    for (; tried < kChanges && Clock::now() < end; ++tried) {
        const std::string input = mutations.next();
        if (!holds(input, "change " + std::to_string(tried))) break;
    }
    EXPECT_GT(tried, 0);
}

}  // namespace
