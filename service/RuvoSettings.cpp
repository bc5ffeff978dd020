#include "service/RuvoSettings.h"

#include "runtime/net/VornLocalAccess.h"
#include "runtime/net/VornNetLimits.h"
#include "runtime/platform/PathText.h"
#include "runtime/support/VornLogging.h"
#include "runtime/support/VornShortText.h"

#include <cctype>
#include <filesystem>
#include <string_view>

namespace RuvoService {

using VornSupport::VornLogging;

namespace {

// The value of a number key, or its default where the value cannot be used.
std::uint64_t numberOf(const RuvoProperties& properties, const std::string& key) {
    const RuvoConfigurationKey* const known = findConfigurationKey(key);
    std::uint64_t number = 0;
    const std::string value = properties.getPropertyOr(key, std::string(known->defaultValue));
    if (!parseConfigurationNumber(value, number) || number < known->least ||
        number > known->most) {
        parseConfigurationNumber(known->defaultValue, number);
    }
    return number;
}

std::string choiceOf(const RuvoProperties& properties, const std::string& key) {
    const RuvoConfigurationKey* const known = findConfigurationKey(key);
    const std::string fallback(known->defaultValue);
    const std::string value = properties.getPropertyOr(key, fallback);
    return complainAboutValue(*known, value, {}).empty() ? value : fallback;
}

std::string textOf(const RuvoProperties& properties, const std::string& key) {
    const RuvoConfigurationKey* const known = findConfigurationKey(key);
    return properties.getPropertyOr(key, std::string(known->defaultValue));
}

}  // namespace

std::uint64_t leadingNumber(const std::string& text) {
    const bool negative = text.starts_with('-');
    std::string_view digits = text;
    if (negative) digits.remove_prefix(1);
    std::size_t count = 0;
    while (count < digits.size() && std::isdigit(static_cast<unsigned char>(digits[count])) != 0) {
        ++count;
    }
    std::uint64_t number = 0;
    if (count != 0 && !parseConfigurationNumber(digits.substr(0, count), number)) {
        return UINT64_MAX;
    }
    return negative && number != 0 ? UINT64_MAX : number;
}

void applyLogLevel(const std::string& value) {
    const std::uint64_t level = leadingNumber(value);
    if (!VornLogging::isAccessAllowed() || level > 9) return;
    VornLogging::getInstance().setLogLevel(static_cast<int>(level));
}

void applyLogTarget(const std::string& value) {
    if (!VornLogging::isAccessAllowed()) return;
    const std::uint64_t target = leadingNumber(value);
    // Not a number of a target, but one that stays unknown as an int.
    VornLogging::getInstance().setTarget(target > INT32_MAX ? -1 : static_cast<int>(target));
}

void applyLogFile(const RuvoProperties& properties, const RuvoDirectories& directories) {
    std::string file = textOf(properties, "logging.file");
    if (file.empty()) file = findConfigurationKey("logging.file")->defaultValue;
    const auto base = VornPlatform::pathFromUtf8(directories.operating);
    VornLogging::getInstance().setFile(
        VornPlatform::utf8FromPath(base / VornPlatform::pathFromUtf8(file)),
        numberOf(properties, "logging.max-bytes"),
        static_cast<int>(numberOf(properties, "logging.files")));
}

void applyNetSettings(const RuvoProperties& properties) {
    auto& limits = VornNet::VornNetLimits::getInstance();
    const auto number = [&properties](const char* key) { return numberOf(properties, key); };
    limits.clients = static_cast<int>(number("ruvod.limits.clients"));
    limits.stringBytes = static_cast<std::uint32_t>(number("ruvod.limits.string-bytes"));
    limits.blockBytes = static_cast<std::uint32_t>(number("ruvod.limits.block-bytes"));
    limits.eventQueueBytes = static_cast<std::uint32_t>(number("ruvod.limits.event-queue-bytes"));
    limits.openingMs = static_cast<int>(number("ruvod.limits.opening-ms"));
    limits.deliveryMs = static_cast<int>(number("ruvod.limits.delivery-ms"));
    VornNet::VornLocalAccess::getInstance().configure(
        choiceOf(properties, "ruvod.local-access"), textOf(properties, "ruvod.local-access.group"));
}

void logBadValues(const RuvoProperties& properties, const RuvoDirectories& directories) {
    properties.forEach([&directories](const std::string& key, const std::string& value) {
        const RuvoConfigurationKey* const known = findConfigurationKey(key);
        if (known == nullptr) return;
        const std::string complaint = complainAboutValue(*known, value, directories);
        if (complaint.empty()) return;
        VORN_LOG(2, "RuvoService::readSettings: " << VornSupport::shortText(key) << ": " << complaint);
    });
}

}  // namespace RuvoService
