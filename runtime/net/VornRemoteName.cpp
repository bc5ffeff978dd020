#include "runtime/net/VornRemoteName.h"

#include <charconv>

namespace VornNet {

std::optional<VornRemoteName> VornRemoteName::parse(std::string_view text) {
    const std::string_view scheme = text.substr(0, 4);
    if (scheme != "tcp:" && scheme != "udp:") return std::nullopt;
    const Kind kind = scheme == "tcp:" ? Kind::Tcp : Kind::Udp;
    text.remove_prefix(4);

    const auto colon = text.rfind(':');
    if (colon == std::string_view::npos || colon == 0) return std::nullopt;
    std::string_view host = text.substr(0, colon);
    const std::string_view digits = text.substr(colon + 1);
    if (host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
    if (host.empty() || host.find('\0') != std::string_view::npos) return std::nullopt;

    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
    if (error != std::errc{} || end != digits.data() + digits.size() || port == 0) {
        return std::nullopt;
    }
    return VornRemoteName{kind, std::string(host), port};
}

}  // namespace VornNet
