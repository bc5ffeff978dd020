#pragma once

#include "benchmarks/harness/Figure.h"

#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace RuvoBench {

// Writes figures as they come, as lines of a table or, at the end, as one JSON
// object. One thread.
class Report {
public:
    Report(const Settings& settings, bool raisedPriority, std::ostream& out);

    void add(const Figure& figure);
    void addFailure(std::string_view family, std::string_view reason);
    // Writes what is left to write. Call it once, last.
    void finish();
    bool failed() const { return !failures_.empty(); }

private:
    void finishTable();
    void finishJson();

    const Settings& settings_;
    const bool raisedPriority_;
    std::ostream& out_;
    double loadAverage_ = 0;
    std::vector<Figure> figures_;
    std::vector<std::pair<std::string, std::string>> failures_;
};

}  // namespace RuvoBench
