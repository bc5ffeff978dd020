#pragma once

#include "benchmarks/harness/Settings.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace RuvoBench {

// How a figure is held against its limit.
enum class Rule {
    RatioAtMost,   // ours / bare
    RatioAtLeast,  // ours / bare
    ValueAtMost,   // ours alone; a bare value beside it is for comparison
};

// One line of the report.
struct Figure {
    std::string name;  // "request.latency.one-core"
    std::string unit;
    std::string against;  // what the bare side was
    Rule rule = Rule::ValueAtMost;
    double limit = 0;

    double ours = 0;             // median of the rounds
    std::optional<double> bare = std::nullopt;  // median of the rounds
    // Of the rounds' own ratios, each of two neighbouring slices: what disturbs
    // the machine for longer than a round disturbs both sides.
    std::optional<double> ratio = std::nullopt;
    double lowestRatio = 0;
    double highestRatio = 0;

    bool ok() const;
};

// What every round measured, side by side.
struct Rounds {
    std::vector<double> ours;
    std::vector<double> bare;  // empty when there is nothing to compare with
};

double median(std::vector<double> values);

// Runs the two sides in turn, the other one first in every second round.
Rounds measureRounds(int rounds, const std::function<double()>& ours,
                     const std::function<double()>& bare);

// `figure` with everything filled in that the rounds say.
Figure evaluate(Figure figure, const Rounds& rounds);

using FigureSink = std::function<void(const Figure&)>;

// A family of figures that share their servers. Each lives in a file of its own
// in figures/ and announces itself with a FigureFamily object of static life.
// Its measuring function throws when it cannot measure.
class FigureFamily {
public:
    using Measure = void (*)(const Settings& settings, const FigureSink& sink);
    FigureFamily(std::string_view name, std::string_view what, Measure measure);

    std::string_view name() const { return name_; }
    std::string_view what() const { return what_; }
    void run(const Settings& settings, const FigureSink& sink) const {
        measure_(settings, sink);
    }
    // All of them, by name.
    static std::vector<const FigureFamily*> all();

private:
    std::string_view name_;
    std::string_view what_;
    Measure measure_;
};

}  // namespace RuvoBench
