#include "runtime/platform/SocketAddress.h"

#include "runtime/platform/SocketNative.h"

#include <algorithm>

namespace VornPlatform {
namespace {

using Family = SocketAddress::Family;

constexpr unsigned char kMappedPrefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
constexpr std::size_t kLongestNumeric = 64;  // far beyond any numeric address

}  // namespace

std::optional<SocketAddress> SocketAddress::parse(std::string_view host, std::uint16_t port) {
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
        if (host.find(':') == std::string_view::npos) return std::nullopt;
    }
    if (host.size() > kLongestNumeric || host.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    const std::string text(host);
    Bytes bytes{};
    if (::inet_pton(AF_INET, text.c_str(), bytes.data()) == 1) {
        return SocketAddress(Family::V4, bytes, port);
    }
    if (::inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1) {
        return SocketAddress(Family::V6, bytes, port);
    }
    return std::nullopt;
}

SocketAddress SocketAddress::any(Family family, std::uint16_t port) {
    return SocketAddress(family, Bytes{}, port);
}

bool SocketAddress::isMapped() const {
    return family_ == Family::V6 &&
           std::equal(std::begin(kMappedPrefix), std::end(kMappedPrefix), bytes_.begin());
}

bool SocketAddress::isLoopback() const {
    const SocketAddress plain = unmapped();
    if (plain.family_ == Family::V4) return plain.bytes_[0] == 127;
    if (plain.family_ != Family::V6) return false;
    Bytes loopback{};
    loopback[15] = 1;
    return plain.bytes_ == loopback;
}

bool SocketAddress::isAny() const {
    return family_ != Family::None && unmapped().bytes_ == Bytes{};
}

SocketAddress SocketAddress::unmapped() const {
    if (!isMapped()) return *this;
    Bytes v4{};
    std::copy(bytes_.begin() + 12, bytes_.end(), v4.begin());
    return SocketAddress(Family::V4, v4, port_);
}

SocketAddress SocketAddress::mapped() const {
    if (family_ != Family::V4) return *this;
    Bytes v6{};
    std::copy(std::begin(kMappedPrefix), std::end(kMappedPrefix), v6.begin());
    std::copy(bytes_.begin(), bytes_.begin() + 4, v6.begin() + 12);
    return SocketAddress(Family::V6, v6, port_);
}

bool SocketAddress::sameHost(const SocketAddress& other) const {
    const SocketAddress a = unmapped();
    const SocketAddress b = other.unmapped();
    return a.family_ == b.family_ && a.bytes_ == b.bytes_ && a.scope_ == b.scope_;
}

std::string SocketAddress::host() const {
    const SocketAddress plain = unmapped();
    char text[INET6_ADDRSTRLEN] = {};
    if (plain.family_ == Family::V4) {
        ::inet_ntop(AF_INET, plain.bytes_.data(), text, sizeof text);
    } else if (plain.family_ == Family::V6) {
        ::inet_ntop(AF_INET6, plain.bytes_.data(), text, sizeof text);
        if (scope_ != 0) return std::string(text) + "%" + std::to_string(scope_);
    }
    return text;
}

std::string SocketAddress::text() const {
    if (family_ == Family::None) return "?";
    const std::string shown = host();
    const bool colons = shown.find(':') != std::string::npos;
    return (colons ? "[" + shown + "]" : shown) + ":" + std::to_string(port_);
}

std::size_t SocketAddress::hash() const {
    const std::string_view bytes(reinterpret_cast<const char*>(bytes_.data()), bytes_.size());
    return std::hash<std::string_view>()(bytes) * 65599U + port_ + scope_;
}

}  // namespace VornPlatform
