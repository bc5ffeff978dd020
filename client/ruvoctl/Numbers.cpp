#include "client/ruvoctl/Numbers.h"

#include "client/ruvoctl/Output.h"
#include "client/ruvoctl/Session.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace Ruvoctl {
namespace {

constexpr double kLongestSeconds = 1000000;  // some days; the wait of the system counts in ms

// Reads the whole text, without regard to the language of the machine.
template <typename Number, typename... Format>
bool readAll(const std::string& text, Number& number, Format... format) {
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number, format...);
    return error == std::errc{} && stopped == end;
}

[[noreturn]] void refuse(const std::string& what, const std::string& takes,
                         const std::string& text) {
    throw UsageError(what + " takes " + takes + ", not \"" + shown(text.substr(0, 100)) + "\"");
}

}  // namespace

std::int64_t numberOf(const std::string& what, const std::string& text, std::int64_t least,
                      std::int64_t most) {
    std::int64_t number = 0;
    if (!readAll(text, number) || number < least || number > most) {
        const bool open = most == std::numeric_limits<std::int64_t>::max();
        refuse(what,
               "a whole number, " + std::to_string(least) +
                   (open ? " or more" : " to " + std::to_string(most)),
               text);
    }
    return number;
}

std::chrono::milliseconds durationOf(const std::string& what, const std::string& text) {
    double seconds = 0;
    // Else "nan" and "inf" were numbers.
    const bool isDecimal = text.find_first_not_of("0123456789.") == std::string::npos;
    if (!isDecimal || !readAll(text, seconds, std::chars_format::fixed) || seconds <= 0 ||
        seconds > kLongestSeconds) {
        refuse(what, "seconds, more than 0 and at most 1000000", text);
    }
    return std::chrono::milliseconds(std::max(1LL, std::llround(seconds * 1000)));
}

CLI::Option* addNumber(CLI::App& app, const std::string& name, std::int64_t& target,
                       const std::string& about, std::int64_t least, std::int64_t most) {
    const auto take = [&target, name, least, most](const std::string& text) {
        target = numberOf(name, text, least, most);
    };
    return app.add_option_function<std::string>(name, take, about)->type_name("NUMBER");
}

CLI::Option* addDuration(CLI::App& app, const std::string& name, std::chrono::milliseconds& target,
                         const std::string& about) {
    const auto take = [&target, name](const std::string& text) { target = durationOf(name, text); };
    return app.add_option_function<std::string>(name, take, about)->type_name("SECONDS");
}

}  // namespace Ruvoctl
