// The benchmark program itself, on the figures that take least time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace {

using testing::HasSubstr;

struct Outcome {
    int status = -1;
    std::string output;
};

Outcome run(const std::string& arguments) {
    const auto own = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const auto bin = own.parent_path() / "bin";
    const auto program = own.parent_path() / "benchmarks" / "ruvobench";
    const std::string command =
        "RUVO_BIN='" + bin.string() + "' '" + program.string() + "' " + arguments + " 2>&1";
    Outcome outcome;
    std::FILE* const pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return outcome;
    char buffer[4096];
    while (const std::size_t count = std::fread(buffer, 1, sizeof buffer, pipe)) {
        outcome.output.append(buffer, count);
    }
    const int status = ::pclose(pipe);
    if (WIFEXITED(status)) outcome.status = WEXITSTATUS(status);
    return outcome;
}

TEST(BenchCommand, NamesItsFamilies) {
    const Outcome outcome = run("--list");
    EXPECT_EQ(0, outcome.status);
    EXPECT_THAT(outcome.output, HasSubstr("event.latency  an event to one listener, p50\n"));
    EXPECT_THAT(outcome.output, HasSubstr("request.latency  "));
}

TEST(BenchCommand, MeasuresTheRealDaemonBesideABareServer) {
    const Outcome outcome = run("--json --rounds 1 --only daemon.life daemon.idle");
    ASSERT_EQ(0, outcome.status) << outcome.output;
    const auto root = nlohmann::json::parse(outcome.output);
    ASSERT_EQ(3u, root.at("figures").size());
    EXPECT_EQ("daemon.idle.memory", root.at("figures").at(0).at("name"));
    EXPECT_EQ("daemon.life.start", root.at("figures").at(1).at("name"));
    EXPECT_EQ("daemon.life.stop", root.at("figures").at(2).at("name"));
    for (const auto& figure : root.at("figures")) {
        EXPECT_GT(figure.at("ours"), 0) << figure;
        EXPECT_GT(figure.at("bare"), 0) << figure;
    }
}

TEST(BenchCommand, MeasuresOneFigureOfAFamily) {
    const Outcome outcome = run("--quick --rounds 1 --only request.latency.one-core");
    ASSERT_EQ(0, outcome.status) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("request.latency.one-core"));
    EXPECT_THAT(outcome.output, testing::Not(HasSubstr("request.latency.two-cores")));
    EXPECT_THAT(outcome.output, HasSubstr("<= 1.25 x"));
}

TEST(BenchCommand, ComparesManyTasksWithFew) {
    const Outcome outcome = run("--json --quick --rounds 1 --only task.waiting.threads task.store");
    ASSERT_EQ(0, outcome.status) << outcome.output;
    const auto figures = nlohmann::json::parse(outcome.output).at("figures");
    ASSERT_EQ(2u, figures.size());
    EXPECT_EQ("task.store", figures.at(0).at("name"));
    EXPECT_GT(figures.at(0).at("ours"), 0);
    EXPECT_GT(figures.at(0).at("bare"), 0);
    EXPECT_EQ("task.waiting.threads", figures.at(1).at("name"));
    EXPECT_GT(figures.at(1).at("bare"), 0);
    // Timers may have an idle thread or two at the moment of the count.
    EXPECT_LT(figures.at(1).at("ours"), 50);
}

TEST(BenchCommand, RefusesNamesThatItDoesNotKnow) {
    const Outcome outcome = run("--only request.latencies");
    EXPECT_EQ(2, outcome.status);
    EXPECT_THAT(outcome.output, HasSubstr("There is no benchmark request.latencies"));
}

TEST(BenchCommand, RefusesBadOptions) {
    EXPECT_EQ(2, run("--rounds 0").status);
    EXPECT_EQ(2, run("--fast").status);
}

}  // namespace
