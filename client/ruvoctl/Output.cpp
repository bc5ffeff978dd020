#include "client/ruvoctl/Output.h"

#include <cstring>

namespace Ruvoctl {
namespace {

constexpr std::string_view kJobEvent = "VornJSEvent:";
constexpr std::string_view kLockEvent = "VornRAEvent:";
constexpr std::string_view kTaskEvent = "VornTSEvent:";
constexpr std::size_t kShownBytes = 1024;  // of an event's data, on a line for humans

// The length of the UTF-8 sequence at the beginning of `text` when it is a
// printable character, else 0.
std::size_t printableLength(std::string_view text) {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    if (first < 0x80) return first >= 0x20 && first != 0x7f && first != '"' && first != '\\';
    const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || text.size() < length) return 0;
    unsigned point = first & (0xffU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) return 0;
        point = (point << 6) | (byte(i) & 0x3fU);
    }
    const bool overlong = (length == 3 && point < 0x800) || (length == 4 && point < 0x10000);
    const bool surrogate = point >= 0xd800 && point <= 0xdfff;
    // Controls, and the marks that turn the direction of the text around.
    const bool control = point < 0xa0 || (point >= 0x2028 && point <= 0x202e) ||
                         (point >= 0x2066 && point <= 0x2069);
    return overlong || surrogate || control || point > 0x10ffff ? 0 : length;
}

// The number that is the data of an event whose name begins so.
std::optional<std::int32_t> codeOf(const Ruvo::RuvoDelivery& delivery, std::string_view beginning) {
    std::int32_t code = 0;
    if (delivery.event.rfind(beginning, 0) != 0 || delivery.data.size() != sizeof code) {
        return std::nullopt;
    }
    std::memcpy(&code, delivery.data.data(), sizeof code);  // in this machine's byte order
    return code;
}

// What a job's event says, when it is one.
std::optional<std::string> jobChange(const Ruvo::RuvoDelivery& delivery) {
    const auto code = codeOf(delivery, kJobEvent);
    if (!code) return std::nullopt;
    switch (*code) {
        case 0: return "completed";
        case 1: return "cancelled";
        case 2: return "created";
        case 3: return "progress";
        default: return "code " + std::to_string(*code);
    }
}

// What a lock's event says, when it is one.
std::optional<std::string> lockChange(const Ruvo::RuvoDelivery& delivery) {
    const auto code = codeOf(delivery, kLockEvent);
    if (!code) return std::nullopt;
    switch (*code) {
        case 0: return "unlocked";
        case 1: return "locked";
        default: return "code " + std::to_string(*code);
    }
}

// The state that a task's event tells of, when it is one.
std::optional<std::string> taskChange(const Ruvo::RuvoDelivery& delivery) {
    const auto state = codeOf(delivery, kTaskEvent);
    if (!state) return std::nullopt;
    return stateText(*state);
}

std::string dataText(std::string_view data) {
    if (data.empty()) return {};
    const std::string_view part = data.substr(0, kShownBytes);
    std::string text = isPrintable(part) ? "\"" + std::string(part) + "\"" : "hex " + hexOf(part);
    if (part.size() < data.size()) text += "...";
    return " data=" + text + " (" + std::to_string(data.size()) + " bytes)";
}

}  // namespace

std::string textOf(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string hexOf(std::string_view bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(bytes.size() * 2);
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        hex += kDigits[byte >> 4];
        hex += kDigits[byte & 15];
    }
    return hex;
}

std::optional<std::string> bytesOf(std::string_view hex) {
    std::string bytes;
    int high = -1;
    for (const char c : hex) {
        int digit = 0;
        if (c >= '0' && c <= '9') {
            digit = c - '0';
        } else if (c >= 'a' && c <= 'f') {
            digit = c - 'a' + 10;
        } else if (c >= 'A' && c <= 'F') {
            digit = c - 'A' + 10;
        } else if (c == ' ' && high < 0) {
            continue;
        } else {
            return std::nullopt;
        }
        if (high < 0) {
            high = digit;
        } else {
            bytes += static_cast<char>(high * 16 + digit);
            high = -1;
        }
    }
    if (high >= 0) return std::nullopt;
    return bytes;
}

std::string shown(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::size_t length = printableLength(text);
        if (length > 0) {
            result += text.substr(0, length);
        } else {
            result += "\\x" + hexOf(text.substr(0, 1));
        }
        text.remove_prefix(length > 0 ? length : 1);
    }
    return result;
}

bool isPrintable(std::string_view text) {
    if (text.empty()) return false;
    while (!text.empty()) {
        const std::size_t length = printableLength(text);
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

std::string stateText(std::int32_t state) {
    switch (state) {
        case -1: return "finished";
        case 0: return "running";
        case 1: return "ended";
        case 2: return "waiting";
        default: return "state " + std::to_string(state);
    }
}

std::string lineOf(const Ruvo::RuvoDelivery& delivery) {
    std::string line = shown(delivery.event);
    auto change = jobChange(delivery);
    if (!change) change = lockChange(delivery);
    if (!change) change = taskChange(delivery);
    if (change) line += " " + *change;
    line += " sender=\"" + shown(delivery.sender) + "\" message=\"" + shown(delivery.message) +
            "\"";
    if (!change) line += dataText(delivery.data);
    return line;
}

Json jsonOf(const Ruvo::RuvoDelivery& delivery) {
    Json json = {{"event", delivery.event},
                 {"sender", delivery.sender},
                 {"message", delivery.message},
                 {"dataSize", delivery.data.size()},
                 {"data", hexOf(delivery.data)}};
    if (const auto change = jobChange(delivery)) {
        json["job"] = {{"name", delivery.event.substr(kJobEvent.size())}, {"change", *change}};
    } else if (const auto lock = lockChange(delivery)) {
        json["lock"] = {{"path", delivery.event.substr(kLockEvent.size())}, {"change", *lock}};
    } else if (const auto state = taskChange(delivery)) {
        json["task"] = {{"handle", delivery.event.substr(kTaskEvent.size())}, {"state", *state}};
    } else if (isPrintable(delivery.data)) {
        json["text"] = delivery.data;
    }
    return json;
}

}  // namespace Ruvoctl
