#include "runtime/net/VornHostLookup.h"

#include "runtime/support/VornEvent.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <stdexcept>
#include <thread>

using TestSupport::waitUntil;
using VornNet::VornHostLookup;
using VornSupport::VornEvent;

namespace {

TEST(VornHostLookup, TellsTheAddressesOnAnotherThread) {
    auto& lookup = VornHostLookup::getInstance();
    VornPlatform::Resolved found;
    std::thread::id where;
    VornEvent done{true};
    lookup.find("localhost", 4711, [&](VornPlatform::Resolved resolved) {
        found = std::move(resolved);
        where = std::this_thread::get_id();
        done.set();
    });
    ASSERT_TRUE(done.wait(60'000));
    ASSERT_FALSE(found.addresses.empty());
    EXPECT_EQ(found.addresses[0].port(), 4711);
    EXPECT_NE(where, std::this_thread::get_id());
}

TEST(VornHostLookup, TellsTheProblem) {
    auto& lookup = VornHostLookup::getInstance();
    std::string problem;
    VornEvent done{true};
    lookup.find("no-such-host.invalid", 1, [&](VornPlatform::Resolved resolved) {
        problem = resolved.problem;
        done.set();
    });
    ASSERT_TRUE(done.wait(60'000));
    EXPECT_NE(problem, "");
}

// Questions of any number share a few threads, and one that fails costs no other.
TEST(VornHostLookup, AnswersManyOnFewThreads) {
    auto& lookup = VornHostLookup::getInstance();
    constexpr int kQuestions = 100;
    std::atomic<int> answers{0};
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    VornEvent go{true};
    for (int i = 0; i < kQuestions; ++i) {
        lookup.find("127.0.0.1", 1, [&, i](VornPlatform::Resolved) {
            const int now = ++inside;
            int seen = most;
            while (now > seen && !most.compare_exchange_weak(seen, now)) {
            }
            go.wait();
            --inside;
            ++answers;
            if (i % 3 == 0) throw std::runtime_error("of one question");
        });
    }
    EXPECT_TRUE(waitUntil([&] { return inside == VornHostLookup::kMostThreads; }));
    go.set();
    EXPECT_TRUE(waitUntil([&] { return answers == kQuestions; }));
    EXPECT_EQ(most, VornHostLookup::kMostThreads);
}

}  // namespace
