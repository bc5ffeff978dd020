#include "benchmarks/harness/Figure.h"

#include <algorithm>
#include <stdexcept>

namespace RuvoBench {
namespace {

std::vector<const FigureFamily*>& families() {
    static std::vector<const FigureFamily*> all;
    return all;
}

}  // namespace

bool Figure::ok() const {
    switch (rule) {
        case Rule::RatioAtMost:
            return ratio && *ratio <= limit;
        case Rule::RatioAtLeast:
            return ratio && *ratio >= limit;
        case Rule::ValueAtMost:
            return ours <= limit;
    }
    return false;
}

double median(std::vector<double> values) {
    if (values.empty()) throw std::runtime_error("nothing was measured");
    const auto middle = values.begin() + std::ssize(values) / 2;
    std::nth_element(values.begin(), middle, values.end());
    if (values.size() % 2 == 1) return *middle;
    return (*middle + *std::max_element(values.begin(), middle)) / 2;
}

Rounds measureRounds(int rounds, const std::function<double()>& ours,
                     const std::function<double()>& bare) {
    Rounds result;
    for (int round = 0; round < rounds; ++round) {
        const bool bareFirst = round % 2 == 1;
        if (bareFirst) result.bare.push_back(bare());
        result.ours.push_back(ours());
        if (!bareFirst) result.bare.push_back(bare());
    }
    return result;
}

Figure evaluate(Figure figure, const Rounds& rounds) {
    figure.ours = median(rounds.ours);
    if (rounds.bare.empty()) return figure;
    figure.bare = median(rounds.bare);
    std::vector<double> ratios;
    for (std::size_t i = 0; i < rounds.bare.size(); ++i) {
        if (rounds.bare[i] > 0) ratios.push_back(rounds.ours[i] / rounds.bare[i]);
    }
    if (ratios.empty()) return figure;
    figure.ratio = median(ratios);
    const auto [lowest, highest] = std::minmax_element(ratios.begin(), ratios.end());
    figure.lowestRatio = *lowest;
    figure.highestRatio = *highest;
    return figure;
}

FigureFamily::FigureFamily(std::string_view name, std::string_view what, Measure measure)
    : name_(name), what_(what), measure_(measure) {
    families().push_back(this);
}

std::vector<const FigureFamily*> FigureFamily::all() {
    auto sorted = families();
    std::sort(sorted.begin(), sorted.end(),
              [](const auto* a, const auto* b) { return a->name() < b->name(); });
    return sorted;
}

}  // namespace RuvoBench
