// What the checker finds in histories that were made up.

#include "tests/arbiter/checker/LockHistory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace ArbiterCheck {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using Texts = std::vector<std::string>;

const Time kBegin = Time() + std::chrono::hours(1);

Time at(double ms) {
    return kBegin + std::chrono::duration_cast<Clock::duration>(
                        std::chrono::duration<double, std::milli>(ms));
}

Attempt granted(int client, std::int32_t handle, double sent, double ended, double unlockSent,
                double unlockAnswered, int waitMs = -1) {
    return {.client = client,
            .node = 1,
            .waitMs = waitMs,
            .sent = at(sent),
            .ended = at(ended),
            .end = Attempt::End::Granted,
            .handle = handle,
            .unlockSent = at(unlockSent),
            .unlockAnswered = at(unlockAnswered)};
}
Attempt kept(int client, std::int32_t handle, double sent, double ended) {
    Attempt attempt = granted(client, handle, sent, ended, ended, ended);
    attempt.unlockSent = attempt.unlockAnswered = kNever;
    return attempt;
}
Attempt refused(int client, double sent, double ended, int waitMs = 0) {
    return {.client = client, .node = 1, .waitMs = waitMs, .sent = at(sent), .ended = at(ended)};
}
Attempt closed(int client, double sent, double ended, int waitMs = -1) {
    Attempt attempt = refused(client, sent, ended, waitMs);
    attempt.end = Attempt::End::Closed;
    return attempt;
}
Attempt onNode(int node, Attempt attempt) {
    attempt.node = node;
    return attempt;
}

Texts complaintsOf(const std::vector<Attempt>& attempts) {
    LockHistory history(kBegin, milliseconds(50));
    history.add(attempts);
    return history.complaints();
}

// ---- what is right -------------------------------------------------------------

TEST(LockHistory, IsContentWithNothing) { EXPECT_THAT(complaintsOf({}), IsEmpty()); }

TEST(LockHistory, IsContentWithTurns) {
    EXPECT_THAT(
        complaintsOf({granted(1, 1, 0, 1, 10, 11), granted(2, 2, 2, 12, 20, 21),
                      granted(1, 3, 12, 22, 23, 24), refused(3, 13, 14), refused(4, 12.5, 18, 5)}),
        IsEmpty());
}

// The next may be told before the last one's unlock is answered.
TEST(LockHistory, IsContentWithAnswersThatCross) {
    EXPECT_THAT(complaintsOf({granted(1, 1, 0, 1, 10, 100), granted(2, 2, 2, 10, 30, 31)}),
                IsEmpty());
}

TEST(LockHistory, IsContentWithHandlesThatOtherNodesHave) {
    EXPECT_THAT(complaintsOf({granted(1, 1, 0, 1, 10, 11), onNode(2, granted(2, 2, 0, 1, 10, 11)),
                              onNode(3, granted(3, 3, 2, 3, 4, 5))}),
                IsEmpty());
}

TEST(LockHistory, IsContentWithALockThatIsNeverGivenBack) {
    EXPECT_THAT(complaintsOf({kept(1, 1, 0, 1), refused(2, 500, 1500, 1000), closed(3, 2, 5000)}),
                IsEmpty());
}

TEST(LockHistory, IsContentWithAWakeWithinTheBound) {
    EXPECT_THAT(complaintsOf({granted(1, 1, 0, 1, 10, 11), granted(2, 2, 2, 60, 70, 71)}),
                IsEmpty());
}

TEST(LockHistory, IsContentWithAFreeNodeThatNobodyWants) {
    EXPECT_THAT(
        complaintsOf({granted(1, 1, 400, 401, 410, 411), granted(2, 2, 900, 901, 902, 903)}),
        IsEmpty());
}

TEST(LockHistory, IsContentWhenTheTimeIsUp) {
    EXPECT_THAT(complaintsOf({granted(1, 1, 0, 1, 2000, 2001), refused(2, 5, 1006, 1000)}),
                IsEmpty());
}

// ---- two holders ---------------------------------------------------------------

TEST(LockHistory, FindsTwoHolders) {
    EXPECT_THAT(complaintsOf({granted(1, 1, 0, 1, 10, 11), granted(2, 2, 2, 9, 20, 21)}),
                ElementsAre(StartsWith("two holders: client 1 on node 1 with handle 1, client 2")));
}

TEST(LockHistory, FindsAHolderWithinTheTimeOfAnother) {
    EXPECT_THAT(complaintsOf({granted(1, 1, 0, 1, 100, 101), granted(2, 2, 2, 9, 10, 11),
                              granted(3, 3, 12, 50, 51, 52)}),
                ElementsAre(HasSubstr("client 2"), HasSubstr("client 3")))
        << "the first one holds it all the time";
}

TEST(LockHistory, FindsAHolderBesideOneThatNeverGaveItBack) {
    EXPECT_THAT(complaintsOf({kept(1, 1, 0, 1), granted(2, 2, 2, 500, 600, 601)}),
                ElementsAre(StartsWith("two holders")));
}

// ---- wake-ups ------------------------------------------------------------------

TEST(LockHistory, FindsALostWakeUp) {
    EXPECT_THAT(complaintsOf({granted(1, 1, 0, 1, 10, 11), granted(2, 2, 60, 62, 70, 71),
                              granted(3, 3, 5, 72, 75, 76)}),
                ElementsAre(StartsWith("a lost wake-up: client 3 on node 1 with handle 3 waits "
                                       "for 51.")));
}

TEST(LockHistory, TellsALateWakeUpFromALostOne) {
    EXPECT_THAT(complaintsOf({granted(1, 1, 0, 1, 10, 11), granted(2, 2, 2, 510, 520, 521)}),
                IsEmpty());
    EXPECT_THAT(complaintsOf({granted(1, 1, 0, 1, 10, 11), granted(2, 2, 2, 512, 520, 521)}),
                ElementsAre(StartsWith("a late wake-up: client 2")));
}

// The one that was told nothing goes on sleeping while others come and go.
TEST(LockHistory, FindsAWaiterThatSleepsUntilSomebodyElseComes) {
    EXPECT_THAT(complaintsOf({granted(1, 1, 0, 1, 10, 11), granted(3, 2, 100, 101, 102, 103),
                              granted(2, 3, 2, 104, 105, 106)}),
                ElementsAre(StartsWith("a lost wake-up: client 2")));
}

TEST(LockHistory, FindsAWaiterThatGivesUpBesideAFreeNode) {
    EXPECT_THAT(complaintsOf({granted(1, 1, 0, 1, 10, 11), refused(2, 2, 1003, 1000)}),
                ElementsAre(StartsWith("a lost wake-up: client 2")));
}

TEST(LockHistory, FindsAWaiterThatClosesBesideAFreeNode) {
    EXPECT_THAT(complaintsOf({granted(1, 1, 0, 1, 10, 11), closed(2, 2, 500)}),
                ElementsAre(StartsWith("a lost wake-up: client 2")));
}

TEST(LockHistory, FindsARequestThatIsNotServedAtOnceByANodeFreeFromTheBeginning) {
    EXPECT_THAT(complaintsOf({granted(1, 1, 10, 511, 580, 581)}),
                ElementsAre(StartsWith("a late wake-up: client 1")));
    EXPECT_THAT(complaintsOf({refused(1, 10, 70, 60), granted(2, 1, 600, 601, 602, 603)})[0],
                StartsWith("a lost wake-up: client 1"));
}

TEST(LockHistory, ForgivesWhatTheMachineWasLateBy) {
    LockHistory history(kBegin, milliseconds(50));
    history.add({granted(1, 1, 0, 1, 10, 11), refused(2, 2, 103, 101)});
    EXPECT_EQ(history.complaints().size(), 1u);
    history.addStall(at(0), at(9));
    EXPECT_EQ(history.complaints().size(), 1u) << "three times that, where it was not";
    history.addStall(at(90), at(99));
    EXPECT_EQ(history.complaints().size(), 1u) << "that, and three times as long again";
    history.addStall(at(20), at(30));
    EXPECT_THAT(history.complaints(), IsEmpty());
}

TEST(LockHistory, LooksAtTheHoldersOfAWildNodeOnly) {
    LockHistory history(kBegin, milliseconds(50));
    history.setWild(1);
    history.add({granted(1, 1, 0, 1, 10, 11), granted(2, 2, 2, 500, 600, 601), refused(3, 20, 21)});
    EXPECT_THAT(history.complaints(), IsEmpty());
    history.add(granted(4, 3, 510, 550, 560, 570));
    EXPECT_THAT(history.complaints(), ElementsAre(StartsWith("two holders")));
}

// ---- refusals and handles --------------------------------------------------------

TEST(LockHistory, FindsARefusalAlthoughNobodyHadIt) {
    EXPECT_THAT(complaintsOf({granted(1, 1, 0, 1, 10, 11), refused(2, 12, 13)}),
                ElementsAre(StartsWith("refused although nobody had it: client 2")));
    EXPECT_THAT(complaintsOf({refused(2, 0, 1), granted(1, 1, 2, 3, 10, 11)}),
                ElementsAre(StartsWith("refused although nobody had it: client 2")));
    EXPECT_THAT(complaintsOf({granted(1, 1, 0, 1, 10, 11), refused(2, 10.5, 13)}), IsEmpty());
    EXPECT_THAT(complaintsOf({granted(1, 1, 0.5, 3, 10, 11), refused(2, 0, 1)}), IsEmpty());
    EXPECT_THAT(complaintsOf({closed(3, 5, 6), granted(1, 1, 0, 1, 10, 11), refused(2, 12, 13)}),
                IsEmpty())
        << "the third one may have had it";
}

TEST(LockHistory, FindsARefusalBeforeTheTimeIsUp) {
    EXPECT_THAT(complaintsOf({kept(1, 1, 0, 1), refused(2, 5, 1004, 1000)}),
                ElementsAre(StartsWith("refused after 999.")));
    EXPECT_THAT(complaintsOf({kept(1, 1, 0, 1), refused(2, 5, 100'000, -1)}),
                ElementsAre(StartsWith("refused although it waits without limit")));
}

TEST(LockHistory, FindsWhatIsNoHandle) {
    Attempt attempt = granted(1, 0, 0, 1, 2, 3);
    EXPECT_THAT(complaintsOf({attempt}), ElementsAre(StartsWith("not a handle")));
    attempt = granted(1, -5, 0, 1, 2, 3);
    EXPECT_FALSE(complaintsOf({attempt}).empty());
}

TEST(LockHistory, FindsAHandleThatTwoHave) {
    EXPECT_THAT(complaintsOf({granted(1, 7, 0, 2, 3, 4), onNode(2, granted(2, 7, 1, 2, 3, 4))}),
                ElementsAre(StartsWith("one handle for two")));
}

TEST(LockHistory, FindsHandlesOutOfOrder) {
    EXPECT_THAT(complaintsOf({granted(1, 2, 0, 1, 3, 4), onNode(2, granted(2, 1, 2, 3, 4, 5))}),
                ElementsAre(StartsWith("a handle after 2: client 2")));
}

TEST(LockHistory, FindsTimesOutOfOrder) {
    EXPECT_THAT(complaintsOf({refused(1, 2, 1)})[0], StartsWith("times are not in order"));
    EXPECT_THAT(complaintsOf({granted(1, 1, 0, 5, 4, 6)})[0], StartsWith("times are not in order"));
    EXPECT_THAT(complaintsOf({granted(1, 1, 0, 5, 7, 6)})[0], StartsWith("times are not in order"));
    EXPECT_THAT(complaintsOf({granted(1, 1, -1, 5, 6, 7)})[0],
                StartsWith("times are not in order"));
}

TEST(LockHistory, KnowsItsLongestWakeUp) {
    LockHistory history(kBegin, milliseconds(50));
    EXPECT_EQ(history.longestWakeMs(), 0);
    history.add({granted(1, 1, 0, 1, 10, 11), granted(2, 2, 2, 15, 16, 17),
                 granted(3, 3, 2, 16.5, 20, 21), granted(4, 4, 100, 101, 102, 103)});
    EXPECT_DOUBLE_EQ(history.longestWakeMs(), 4) << "the others did not wait for it";
}

// ---- many ------------------------------------------------------------------------

// A long history of one node, right throughout; then with one thing changed.
TEST(LockHistory, FindsOneFaultAmongThousands) {
    constexpr int kTurns = 20'000;
    std::mt19937 random(7);
    std::vector<Attempt> turns;
    double now = 0;
    for (int i = 1; i <= kTurns; ++i) {
        const double waited = static_cast<double>(random() % 40);
        turns.push_back(granted(static_cast<int>(random() % 64), i, std::max(0.0, now - waited),
                                now + 0.1, now + 0.4, now + 0.6));
        now += 0.5 + static_cast<double>(random() % 10);
    }
    EXPECT_THAT(complaintsOf(turns), IsEmpty());

    auto doubled = turns;
    doubled[12'345].unlockSent = doubled[12'346].ended + std::chrono::microseconds(1);
    doubled[12'345].unlockAnswered = doubled[12'345].unlockSent;
    EXPECT_THAT(complaintsOf(doubled), ElementsAre(StartsWith("two holders")));

    auto lost = turns;
    lost.push_back(granted(98, kTurns + 1, now + 56, now + 57, now + 58, now + 59));
    lost.push_back(granted(99, kTurns + 2, now + 5, now + 60, now + 61, now + 62));
    EXPECT_THAT(complaintsOf(lost), ElementsAre(StartsWith("a lost wake-up: client 99")));
}

}  // namespace
}  // namespace ArbiterCheck
