#include "service/RuvoConfigurationKeys.h"

#include "runtime/platform/PathText.h"
#include "runtime/support/VornShortText.h"

#include <charconv>
#include <filesystem>
#include <system_error>

namespace RuvoService {
namespace {

using Kind = RuvoValueKind;

constexpr std::uint64_t kGiB = 1024ULL * 1024 * 1024;

constexpr RuvoConfigurationKey number(std::string_view key, std::string_view fallback,
                                      std::string_view unit, std::uint64_t least,
                                      std::uint64_t most) {
    return {.key = key, .defaultValue = fallback, .unit = unit, .kind = Kind::Number,
            .least = least, .most = most};
}

constexpr RuvoConfigurationKey text(std::string_view key, std::string_view fallback = {},
                                    Kind kind = Kind::Text) {
    return {.key = key, .defaultValue = fallback, .unit = {}, .kind = kind};
}

constexpr RuvoConfigurationKey choice(std::string_view key, std::string_view fallback,
                                      std::string_view words) {
    return {.key = key, .defaultValue = fallback, .unit = {}, .kind = Kind::Choice,
            .words = words};
}

constexpr RuvoConfigurationKey kKeys[] = {
    {.key = "ruvod.operating-directory", .defaultValue = {}, .unit = {}, .kind = Kind::Directory,
     .required = true},
    text("ruvod.application-name", "VRUVO"),
    text("ruvod.service-name"),
    text("ruvod.service-display-name"),
    number("logging.level", "1", "level", 0, 9),
    number("logging.target", "2", "target", 0, 4),
    text("logging.file", "ruvod.log", Kind::FilePath),
    number("logging.max-bytes", "10485760", "bytes", 0, INT64_MAX),
    number("logging.files", "5", "files", 0, 1000),
    number("ruvod.tcp-server.port", {}, "port", 0, 65535),
    number("ruvod.udp-server.port", {}, "port", 0, 65535),
    choice("ruvod.local-access", "owner", "owner|any"),
    text("ruvod.local-access.group"),
    number("ruvod.limits.clients", "4096", "connections", 1, 1000000),
    number("ruvod.limits.opening-ms", "30000", "milliseconds", 1, 600000),
    number("ruvod.limits.string-bytes", "1048576", "bytes", 64, kGiB),
    number("ruvod.limits.block-bytes", "67108864", "bytes", 64, kGiB),
    number("ruvod.limits.event-queue-bytes", "67108864", "bytes", 65536, kGiB),
    number("ruvod.limits.delivery-ms", "2000", "milliseconds", 1, 600000),
    text("ruvod.load-monitors"),
    text("ruvod.unload-monitors"),
    text("ruvod.web.virtual-path"),
    text("ruvod.web.server-name", "Vorn Tessera Web Services"),
    text("ruvod.web.default-doc", "default.html", Kind::Name),
    choice("ruvod.gateway", "off", "on|off"),
    text("ruvod.gateway.services", "services"),
    text("ruvod.gateway.services.*", {}, Kind::Name),
};

bool isOneOf(std::string_view words, std::string_view value) {
    while (!words.empty()) {
        const auto end = words.find('|');
        if (words.substr(0, end) == value) return true;
        words = end == std::string_view::npos ? std::string_view() : words.substr(end + 1);
    }
    return false;
}

std::string quoted(const std::string& value) {
    return '"' + VornSupport::shortText(value) + '"';
}

std::filesystem::path joined(const std::string& base, const std::string& path) {
    return VornPlatform::pathFromUtf8(base) / VornPlatform::pathFromUtf8(path);
}

bool isDirectory(const std::filesystem::path& path) {
    std::error_code ignored;
    return std::filesystem::is_directory(path, ignored);
}

std::string complainAboutNumber(const RuvoConfigurationKey& key, const std::string& value) {
    std::uint64_t parsed = 0;
    if (parseConfigurationNumber(value, parsed) && parsed >= key.least && parsed <= key.most) {
        return {};
    }
    return quoted(value) + " is not a number from " + std::to_string(key.least) + " to " +
           std::to_string(key.most);
}

}  // namespace

std::span<const RuvoConfigurationKey> ruvoConfigurationKeys() { return kKeys; }

const RuvoConfigurationKey* findConfigurationKey(std::string_view key) {
    for (const auto& known : kKeys) {
        if (known.key == key) return &known;
    }
    for (const auto& known : kKeys) {
        if (!known.key.ends_with(".*")) continue;
        const auto prefix = known.key.substr(0, known.key.size() - 1);
        if (key.size() > prefix.size() && key.starts_with(prefix)) return &known;
    }
    return nullptr;
}

bool parseConfigurationNumber(std::string_view text, std::uint64_t& number) {
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stopped == end;
}

RuvoDirectories RuvoDirectories::of(const std::string& operating) {
    std::error_code ignored;
    const auto start = std::filesystem::current_path(ignored);
    return {.start = VornPlatform::utf8FromPath(start),
            .operating = VornPlatform::utf8FromPath(start / VornPlatform::pathFromUtf8(operating))};
}

std::string complainAboutValue(const RuvoConfigurationKey& key, const std::string& value,
                               const RuvoDirectories& directories) {
    switch (key.kind) {
        case Kind::Text:
            return {};
        case Kind::Name:
            return value.empty() ? "the value is empty" : "";
        case Kind::Number:
            return complainAboutNumber(key, value);
        case Kind::Choice:
            if (isOneOf(key.words, value)) return {};
            return quoted(value) + " is not one of " + std::string(key.words);
        case Kind::Directory:
            if (value.empty()) return "the value is empty";
            if (isDirectory(joined(directories.start, value))) return {};
            return "there is no directory " + quoted(value);
        case Kind::FilePath:
            if (value.empty()) return "the value is empty";
            if (isDirectory(joined(directories.operating, value))) {
                return quoted(value) + " is a directory";
            }
            if (isDirectory(joined(directories.operating, value).parent_path())) return {};
            return "there is no directory for " + quoted(value);
    }
    return {};
}

}  // namespace RuvoService
