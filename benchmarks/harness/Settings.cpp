#include "benchmarks/harness/Settings.h"

#include <algorithm>

namespace RuvoBench {
namespace {

// "event" begins "event.latency", not "events".
bool begins(std::string_view prefix, std::string_view name) {
    return name.starts_with(prefix) &&
           (name.size() == prefix.size() || name[prefix.size()] == '.');
}

}  // namespace

bool Settings::wants(std::string_view name) const {
    return only.empty() || std::any_of(only.begin(), only.end(), [name](const auto& asked) {
               return begins(asked, name) || begins(name, asked);
           });
}

}  // namespace RuvoBench
