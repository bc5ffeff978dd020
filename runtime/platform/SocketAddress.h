#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/OsError.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace VornPlatform {

// An IPv4 or IPv6 address with a port, or nothing. A plain value; any thread.
// An IPv4 peer of an IPv6 socket has an IPv6 address (::ffff:1.2.3.4); host()
// and text() show it as IPv4, == tells the two forms apart (see unmapped()).
class VORN_EXPORT SocketAddress {
public:
    enum class Family : std::uint8_t { None = 0, V4 = 4, V6 = 6 };
    using Bytes = std::array<unsigned char, 16>;  // network order; V4 uses the first four

    SocketAddress() = default;
    SocketAddress(Family family, const Bytes& bytes, std::uint16_t port, std::uint32_t scope = 0)
        : bytes_(bytes), scope_(scope), port_(port), family_(family) {}

    // From a numeric host ("127.0.0.1", "::1", "[::1]"). Empty when it is none.
    static std::optional<SocketAddress> parse(std::string_view host, std::uint16_t port);
    // All addresses of the machine.
    static SocketAddress any(Family family, std::uint16_t port);

    Family family() const { return family_; }
    const Bytes& bytes() const { return bytes_; }
    std::uint16_t port() const { return port_; }
    std::uint32_t scope() const { return scope_; }  // interface of a link-local V6 address
    void setPort(std::uint16_t port) { port_ = port; }

    explicit operator bool() const { return family_ != Family::None; }
    bool isMapped() const;    // V6 that stands for a V4 one
    bool isLoopback() const;  // 127.0.0.0/8 or ::1, mapped ones as well
    bool isAny() const;
    // The V4 address that a mapped one stands for; any other as it is.
    SocketAddress unmapped() const;
    // The V6 form of a V4 address, as an IPv6 socket wants it.
    SocketAddress mapped() const;
    bool sameHost(const SocketAddress& other) const;  // ports and mapping left aside

    std::string host() const;  // "127.0.0.1", "::1", "fe80::1%2"
    std::string text() const;  // "127.0.0.1:4711", "[::1]:4711"

    friend bool operator==(const SocketAddress&, const SocketAddress&) = default;
    std::size_t hash() const;

private:
    Bytes bytes_{};
    std::uint32_t scope_ = 0;
    std::uint16_t port_ = 0;
    Family family_ = Family::None;
};

// The addresses of a host name or a numeric host, in the system's order of
// preference. Blocks for as long as the system's name service takes. Errors of
// name resolution have no number of their own everywhere: `problem` is then
// the system's text.
struct Resolved {
    std::vector<SocketAddress> addresses;
    OsError error;        // set when there are none
    std::string problem;  // for a human, set when there are none
};
VORN_EXPORT Resolved resolve(const std::string& host, std::uint16_t port);

// True for a loopback address and for one that an interface of this machine
// has. Asks the system each time. The port is left aside.
VORN_EXPORT bool isOwnAddress(const SocketAddress& address);

}  // namespace VornPlatform

template <>
struct std::hash<VornPlatform::SocketAddress> {
    std::size_t operator()(const VornPlatform::SocketAddress& a) const noexcept { return a.hash(); }
};
