#include "client/ruvoctl/EndRequests.h"

#include <gtest/gtest.h>

#include <thread>

using Ruvoctl::EndRequests;

namespace {

void expectNext(EndRequests& requests, int signal, bool reachedOthers) {
    const auto request = requests.next();
    ASSERT_TRUE(request);
    EXPECT_EQ(request->signal, signal);
    EXPECT_EQ(request->reachedOthers, reachedOthers);
}

}  // namespace

TEST(EndRequests, GivesEachOnce) {
    EndRequests requests;
    EXPECT_FALSE(requests.any());
    EXPECT_FALSE(requests.next());
    requests.add({.signal = 15});
    requests.add({.signal = 2, .reachedOthers = true});
    requests.add({.signal = 2});
    requests.add({.signal = 15});
    EXPECT_TRUE(requests.any());
    expectNext(requests, 15, false);
    expectNext(requests, 2, true);
    expectNext(requests, 2, false);
    EXPECT_FALSE(requests.next());
    EXPECT_TRUE(requests.any());  // there was one
    requests.add({.signal = 15});
    expectNext(requests, 15, false);
}

TEST(EndRequests, KnowsEverySignal) {
    EndRequests requests;
    for (int signal = 1; signal <= 64; ++signal) requests.add({.signal = signal});
    for (int signal = 1; signal <= 64; ++signal) expectNext(requests, signal, false);
    EXPECT_FALSE(requests.next());
}

TEST(EndRequests, GivesThemInTheOrderInWhichTheyCame) {
    EndRequests requests;
    for (int signal = 64; signal >= 1; --signal) requests.add({.signal = signal});
    expectNext(requests, 64, false);
    requests.add({.signal = 64});
    requests.add({.signal = 63});  // still the first one
    for (int signal = 63; signal >= 1; --signal) expectNext(requests, signal, false);
    expectNext(requests, 64, false);
    EXPECT_FALSE(requests.next());
}

TEST(EndRequests, TellsOfTheTimeThatIsLeft) {
    EndRequests requests;
    requests.add({.signal = 2});
    EXPECT_EQ(requests.next()->graceMs, -1);
    requests.add({.signal = 1, .graceMs = 5000});
    EXPECT_EQ(requests.next()->graceMs, 5000);
}

TEST(EndRequests, GoFromOneThreadToAnother) {
    EndRequests requests;
    std::thread teller([&] { requests.add({.signal = 31, .reachedOthers = true}); });
    while (!requests.any()) std::this_thread::yield();
    expectNext(requests, 31, true);
    teller.join();
}
