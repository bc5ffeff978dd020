#pragma once

#include "client/RuvoListener.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Ruvoctl {

using Json = nlohmann::ordered_json;

// On one line; what is not UTF-8 is replaced.
std::string textOf(const Json& json);

// "0badf00d".
std::string hexOf(std::string_view bytes);
// The bytes that such digits, blanks between them allowed, stand for.
std::optional<std::string> bytesOf(std::string_view hex);

// The text as it is where it is printable UTF-8; control characters, bytes that
// are no UTF-8, quotes and backslashes as "\x1b". An event may come from anybody
// and must not drive the terminal.
std::string shown(std::string_view text);
// True when shown() would change nothing, and it is not empty.
bool isPrintable(std::string_view text);

// A task's state in a word.
std::string stateText(std::int32_t state);

// One line for a delivery, without its line end.
std::string lineOf(const Ruvo::RuvoDelivery& delivery);
Json jsonOf(const Ruvo::RuvoDelivery& delivery);

}  // namespace Ruvoctl
