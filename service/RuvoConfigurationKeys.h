#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace RuvoService {

// What the value of a key must be.
enum class RuvoValueKind {
    Text,       // anything
    Name,       // anything but the empty text
    Number,     // a decimal number from `least` to `most`
    Choice,     // one of the words in `words`, separated by "|"
    Directory,  // a directory that exists
    FilePath    // a path whose directory exists
};

// A key of the properties file that the daemon knows. One that ends in ".*"
// stands for all keys that begin so and go on.
struct RuvoConfigurationKey {
    std::string_view key;
    std::string_view defaultValue;  // empty: there is none
    std::string_view unit;          // for a human; empty: the value counts nothing
    RuvoValueKind kind = RuvoValueKind::Text;
    std::uint64_t least = 0;
    std::uint64_t most = 0;
    std::string_view words = {};
    bool required = false;
};

// Every key there is, in the order of docs/configuration.md. Any thread.
std::span<const RuvoConfigurationKey> ruvoConfigurationKeys();

// The entry under which `key` falls, or null for an unknown key.
const RuvoConfigurationKey* findConfigurationKey(std::string_view key);

// A decimal number with nothing around it. False when it is none or too large.
bool parseConfigurationNumber(std::string_view text, std::uint64_t& number);

// Where relative paths of the properties file count from. Both absolute.
struct RuvoDirectories {
    // `operating` is the value of "ruvod.operating-directory", which counts from
    // the directory that is current at the time of the call.
    static RuvoDirectories of(const std::string& operating);

    std::string start;      // the operating directory itself
    std::string operating;  // everything else
};

// What is wrong with a value, as it follows the key and a colon; empty when
// nothing is.
std::string complainAboutValue(const RuvoConfigurationKey& key, const std::string& value,
                               const RuvoDirectories& directories);

}  // namespace RuvoService
