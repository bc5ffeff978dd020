#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace Ruvoctl {

// Numbers as people write them: decimal digits, a minus sign before them where
// one makes sense, and nothing else. Each throws UsageError, which names `what`
// and says what it takes, for anything else.

std::int64_t numberOf(const std::string& what, const std::string& text, std::int64_t least,
                      std::int64_t most);
// Of seconds, with or without a fraction: more than 0, at most 1000000. At least
// a millisecond.
std::chrono::milliseconds durationOf(const std::string& what, const std::string& text);

// Options whose values these are. The targets outlive the parsing.
CLI::Option* addNumber(CLI::App& app, const std::string& name, std::int64_t& target,
                       const std::string& about, std::int64_t least, std::int64_t most);
CLI::Option* addDuration(CLI::App& app, const std::string& name, std::chrono::milliseconds& target,
                         const std::string& about);

}  // namespace Ruvoctl
