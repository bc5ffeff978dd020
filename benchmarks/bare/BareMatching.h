#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace RuvoBench {

// The least that a search for many different patterns can cost: every pattern
// compiled beforehand, and a loop over them. One thread.
class BareMatching {
public:
    // With `plain` they are texts between optional "^" and "$" and are compared
    // as such; else they go through the expression library.
    BareMatching(const std::vector<std::string>& patterns, bool plain);
    ~BareMatching();
    BareMatching(const BareMatching&) = delete;
    BareMatching& operator=(const BareMatching&) = delete;

    std::size_t countMatches(std::string_view text) const;

private:
    struct Plain;
    struct Expressions;
    std::unique_ptr<Plain> plain_;
    std::unique_ptr<Expressions> expressions_;
};

}  // namespace RuvoBench
