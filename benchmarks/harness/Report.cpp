#include "benchmarks/harness/Report.h"

#include "benchmarks/harness/Placement.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ostream>

namespace RuvoBench {
namespace {

constexpr double kBusyMachine = 0.5;  // load average that another program makes

std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* pattern, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, pattern);
    std::vsnprintf(text, sizeof text, pattern, arguments);
    va_end(arguments);
    return text;
}

std::string value(double number, const std::string& unit) {
    const int decimals = number >= 1000 ? 0 : number >= 100 ? 1 : 2;
    return format("%.*f %s", decimals, number, unit.c_str());
}

std::string limitText(const Figure& figure) {
    switch (figure.rule) {
        case Rule::RatioAtMost:
            return format("<= %.2f x", figure.limit);
        case Rule::RatioAtLeast:
            return format(">= %.2f x", figure.limit);
        case Rule::ValueAtMost:
            return format("<= %g %s", figure.limit, figure.unit.c_str());
    }
    return {};
}

std::string tableLine(const Figure& figure) {
    std::string ratio;
    if (figure.ratio) {
        ratio = format("%5.2f (%.2f-%.2f)", *figure.ratio, figure.lowestRatio,
                       figure.highestRatio);
    }
    return format("%-38s %12s %14s  %-20s %-19s %-12s %s\n", figure.name.c_str(),
                  value(figure.ours, figure.unit).c_str(),
                  figure.bare ? value(*figure.bare, figure.unit).c_str() : "",
                  figure.against.c_str(), ratio.c_str(), limitText(figure).c_str(),
                  figure.ok() ? "ok" : "SHORT");
}

const char* ruleName(Rule rule) {
    switch (rule) {
        case Rule::RatioAtMost:
            return "ratio-at-most";
        case Rule::RatioAtLeast:
            return "ratio-at-least";
        case Rule::ValueAtMost:
            return "value-at-most";
    }
    return "";
}

nlohmann::ordered_json toJson(const Figure& figure) {
    nlohmann::ordered_json object{{"name", figure.name},   {"unit", figure.unit},
                                  {"ours", figure.ours},   {"against", figure.against},
                                  {"limit", figure.limit}, {"rule", ruleName(figure.rule)}};
    if (figure.bare) object["bare"] = *figure.bare;
    if (figure.ratio) {
        object["ratio"] = *figure.ratio;
        object["lowest-ratio"] = figure.lowestRatio;
        object["highest-ratio"] = figure.highestRatio;
    }
    object["ok"] = figure.ok();
    return object;
}

}  // namespace

Report::Report(const Settings& settings, bool raisedPriority, std::ostream& out)
    : settings_(settings), raisedPriority_(raisedPriority), out_(out) {
    ::getloadavg(&loadAverage_, 1);
    if (settings_.json) return;
    out_ << format("%zu processors, %d rounds of %lld ms a side, %s priority; medians\n",
                   allowedProcessors().size(), settings_.rounds,
                   static_cast<long long>(settings_.slice().count()),
                   raisedPriority_ ? "raised" : "ordinary");
    if (loadAverage_ > kBusyMachine) {
        out_ << format("Other programs are running (load average %.2f): expect noise.\n",
                       loadAverage_);
    }
    out_ << format("\n%-38s %12s %14s  %-20s %-19s %-12s\n", "figure", "ours", "bare", "",
                   "ours / bare (range)", "limit")
         << std::flush;
}

void Report::add(const Figure& figure) {
    figures_.push_back(figure);
    if (!settings_.json) out_ << tableLine(figure) << std::flush;
}

void Report::addFailure(std::string_view family, std::string_view reason) {
    failures_.emplace_back(family, reason);
    if (!settings_.json) out_ << family << ": not measured: " << reason << '\n' << std::flush;
}

void Report::finish() {
    if (settings_.json) {
        finishJson();
    } else {
        finishTable();
    }
}

void Report::finishTable() {
    const auto met = std::count_if(figures_.begin(), figures_.end(),
                                   [](const Figure& figure) { return figure.ok(); });
    out_ << format("\n%td within their limits, %td short", met, std::ssize(figures_) - met);
    if (!failures_.empty()) out_ << format(", %zu not measured", failures_.size());
    out_ << '\n' << std::flush;
}

void Report::finishJson() {
    nlohmann::ordered_json root{{"processors", allowedProcessors().size()},
                                {"rounds", settings_.rounds},
                                {"slice-ms", settings_.slice().count()},
                                {"raised-priority", raisedPriority_},
                                {"load-average", loadAverage_},
                                {"figures", nlohmann::ordered_json::array()},
                                {"not-measured", nlohmann::ordered_json::array()}};
    for (const auto& figure : figures_) root["figures"].push_back(toJson(figure));
    for (const auto& [family, reason] : failures_) {
        root["not-measured"].push_back({{"family", family}, {"reason", reason}});
    }
    out_ << root.dump(2) << '\n' << std::flush;
}

}  // namespace RuvoBench
