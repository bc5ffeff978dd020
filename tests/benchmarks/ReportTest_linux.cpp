#include "benchmarks/harness/Report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace RuvoBench {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

Figure latency(double ratio) {
    Figure figure{.name = "request.latency.one-core",
                  .unit = "us",
                  .against = "bare ping-pong",
                  .rule = Rule::RatioAtMost,
                  .limit = 1.25};
    figure.ours = 12.5;
    figure.bare = 10;
    figure.ratio = ratio;
    figure.lowestRatio = 1.1;
    figure.highestRatio = 1.4;
    return figure;
}

std::string reportOf(bool json, const std::vector<Figure>& figures,
                     const std::string& failure = {}) {
    Settings settings;
    settings.json = json;
    std::ostringstream out;
    Report report(settings, false, out);
    for (const auto& figure : figures) report.add(figure);
    if (!failure.empty()) report.addFailure("event.latency", failure);
    report.finish();
    EXPECT_EQ(!failure.empty(), report.failed());
    return out.str();
}

TEST(Report, ShowsAFigureBesideItsLimit) {
    const std::string text = reportOf(false, {latency(1.2)});
    EXPECT_THAT(text, ContainsRegex("request.latency.one-core +12.50 us +10.00 us  bare ping-pong "
                                    "+1.20 \\(1.10-1.40\\) +<= 1.25 x +ok\n"));
    EXPECT_THAT(text, HasSubstr("\n1 within their limits, 0 short\n"));
}

TEST(Report, SaysWhatFallsShort) {
    const std::string text = reportOf(false, {latency(1.2), latency(1.3)});
    EXPECT_THAT(text, ContainsRegex("1.30 .*SHORT\n"));
    EXPECT_THAT(text, HasSubstr("\n1 within their limits, 1 short\n"));
}

TEST(Report, ShowsAValueWithoutARatioBesideALimitOfItsUnit) {
    const std::string text = reportOf(
        false,
        {{.name = "daemon.life.start", .unit = "ms", .against = "", .limit = 60, .ours = 1234.5}});
    EXPECT_THAT(text, ContainsRegex("daemon.life.start +1234 ms +<= 60 ms +SHORT\n"));
}

TEST(Report, NamesWhatCouldNotBeMeasured) {
    const std::string text = reportOf(false, {}, "no answer in time");
    EXPECT_THAT(text, HasSubstr("event.latency: not measured: no answer in time\n"));
    EXPECT_THAT(text, HasSubstr("0 within their limits, 0 short, 1 not measured\n"));
}

TEST(Report, WritesOneJsonObjectAndNothingElse) {
    const auto root = nlohmann::json::parse(reportOf(true, {latency(1.3)}, "no answer in time"));
    EXPECT_EQ(5, root.at("rounds"));
    EXPECT_FALSE(root.at("raised-priority"));
    const auto& figure = root.at("figures").at(0);
    EXPECT_EQ("request.latency.one-core", figure.at("name"));
    EXPECT_EQ("us", figure.at("unit"));
    EXPECT_EQ(12.5, figure.at("ours"));
    EXPECT_EQ(10, figure.at("bare"));
    EXPECT_EQ("bare ping-pong", figure.at("against"));
    EXPECT_EQ(1.3, figure.at("ratio"));
    EXPECT_EQ(1.1, figure.at("lowest-ratio"));
    EXPECT_EQ(1.4, figure.at("highest-ratio"));
    EXPECT_EQ(1.25, figure.at("limit"));
    EXPECT_EQ("ratio-at-most", figure.at("rule"));
    EXPECT_FALSE(figure.at("ok"));
    EXPECT_EQ("event.latency", root.at("not-measured").at(0).at("family"));
    EXPECT_EQ("no answer in time", root.at("not-measured").at(0).at("reason"));
}

TEST(Report, LeavesOutInJsonWhatThereIsNot) {
    const auto root = nlohmann::json::parse(
        reportOf(true, {{.name = "a", .unit = "ms", .against = "", .limit = 60, .ours = 1}}));
    const auto& figure = root.at("figures").at(0);
    EXPECT_FALSE(figure.contains("bare"));
    EXPECT_FALSE(figure.contains("ratio"));
    EXPECT_TRUE(figure.at("ok"));
    EXPECT_TRUE(root.at("not-measured").empty());
}

}  // namespace
}  // namespace RuvoBench
