#include "benchmarks/harness/Figure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace RuvoBench {
namespace {

Figure figureOf(Rule rule, double limit, double ours, std::optional<double> ratio) {
    Figure figure;
    figure.rule = rule;
    figure.limit = limit;
    figure.ours = ours;
    figure.ratio = ratio;
    return figure;
}

TEST(Median, IsTheMiddleOfAnOddNumber) { EXPECT_DOUBLE_EQ(3, median({9, 1, 3})); }

TEST(Median, IsBetweenTheTwoMiddleOnesOfAnEvenNumber) {
    EXPECT_DOUBLE_EQ(2.5, median({4, 1, 3, 2}));
    EXPECT_DOUBLE_EQ(1.5, median({2, 1}));
}

TEST(Median, OfNothingIsAnError) { EXPECT_THROW(median({}), std::runtime_error); }

TEST(MeasureRounds, LetsTheSidesBeginInTurn) {
    std::string order;
    const Rounds rounds = measureRounds(
        3,
        [&order] {
            order += 'o';
            return 1.0;
        },
        [&order] {
            order += 'b';
            return 2.0;
        });
    EXPECT_EQ("obboob", order);
    EXPECT_EQ(std::vector<double>(3, 1.0), rounds.ours);
    EXPECT_EQ(std::vector<double>(3, 2.0), rounds.bare);
}

TEST(Evaluate, TakesTheMedianOfEachRoundsOwnRatio) {
    // Of the medians alone the ratio would be 2.
    const Figure figure = evaluate({}, {.ours = {1, 10, 100}, .bare = {1, 5, 200}});
    EXPECT_DOUBLE_EQ(10, figure.ours);
    EXPECT_DOUBLE_EQ(5, *figure.bare);
    EXPECT_DOUBLE_EQ(1, *figure.ratio);
    EXPECT_DOUBLE_EQ(0.5, figure.lowestRatio);
    EXPECT_DOUBLE_EQ(2, figure.highestRatio);
}

TEST(Evaluate, KeepsWhatTheFigureSaysAlready) {
    const Figure figure = evaluate({.name = "a.b", .unit = "us", .against = "c"},
                                   {.ours = {1}, .bare = {1}});
    EXPECT_EQ("a.b", figure.name);
    EXPECT_EQ("us", figure.unit);
    EXPECT_EQ("c", figure.against);
}

TEST(Evaluate, HasNoRatioWithoutABareSide) {
    const Figure figure = evaluate({}, {.ours = {4}, .bare = {}});
    EXPECT_FALSE(figure.bare);
    EXPECT_FALSE(figure.ratio);
}

TEST(Evaluate, HasNoRatioToZero) {
    const Figure figure = evaluate({}, {.ours = {4}, .bare = {0}});
    EXPECT_DOUBLE_EQ(0, *figure.bare);
    EXPECT_FALSE(figure.ratio);
}

TEST(Figure, IsWithinAnUpperLimitOfItsRatioUpToIt) {
    EXPECT_TRUE(figureOf(Rule::RatioAtMost, 1.25, 100, 1.25).ok());
    EXPECT_FALSE(figureOf(Rule::RatioAtMost, 1.25, 1, 1.26).ok());
}

TEST(Figure, IsWithinALowerLimitOfItsRatioFromIt) {
    EXPECT_TRUE(figureOf(Rule::RatioAtLeast, 0.8, 0, 0.8).ok());
    EXPECT_FALSE(figureOf(Rule::RatioAtLeast, 0.8, 100, 0.79).ok());
}

TEST(Figure, IsHeldAgainstALimitOfItsValueWhateverItsRatio) {
    EXPECT_TRUE(figureOf(Rule::ValueAtMost, 12, 12, 100).ok());
    EXPECT_FALSE(figureOf(Rule::ValueAtMost, 12, 12.1, 0.1).ok());
}

TEST(Figure, WithoutTheRatioThatItsRuleNeedsIsShort) {
    EXPECT_FALSE(figureOf(Rule::RatioAtMost, 1.25, 0, {}).ok());
    EXPECT_FALSE(figureOf(Rule::RatioAtLeast, 0, 0, {}).ok());
}

const auto nothing = [](const Settings&, const FigureSink&) {};
const FigureFamily second("b.second", "of the test", nothing);
const FigureFamily first("a.first", "of the test", [](const Settings& settings,
                                                      const FigureSink& sink) {
    sink({.name = "rounds", .unit = std::to_string(settings.rounds), .against = ""});
});

TEST(FigureFamily, ListsAllByName) {
    EXPECT_THAT(FigureFamily::all(), testing::ElementsAre(&first, &second));
}

TEST(FigureFamily, HandsFiguresOnToTheSink) {
    Settings settings;
    settings.rounds = 7;
    Figure got;
    first.run(settings, [&got](const Figure& figure) { got = figure; });
    EXPECT_EQ("rounds", got.name);
    EXPECT_EQ("7", got.unit);
}

TEST(Settings, WantsEverythingUnlessAskedForSomething) {
    EXPECT_TRUE(Settings().wants("event.latency"));
}

TEST(Settings, WantsWhatIsNamedAndWhatItsNameBegins) {
    Settings settings;
    settings.only = {"event.latency"};
    EXPECT_TRUE(settings.wants("event.latency"));
    EXPECT_TRUE(settings.wants("event.latency.one-core"));
    EXPECT_TRUE(settings.wants("event"));
    EXPECT_FALSE(settings.wants("event.latency2"));
    EXPECT_FALSE(settings.wants("event.delivery"));
    EXPECT_FALSE(settings.wants("eve"));
}

TEST(Settings, WantsAnyOfSeveral) {
    Settings settings;
    settings.only = {"daemon.idle", "request"};
    EXPECT_TRUE(settings.wants("request.batch.one-core"));
    EXPECT_TRUE(settings.wants("daemon.idle.memory"));
    EXPECT_FALSE(settings.wants("connection.new"));
}

TEST(Settings, QuickSlicesAreShorter) {
    Settings settings;
    const auto ordinary = settings.slice();
    settings.quick = true;
    EXPECT_LT(settings.slice(), ordinary);
}

}  // namespace
}  // namespace RuvoBench
