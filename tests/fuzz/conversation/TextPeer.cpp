#include "tests/fuzz/conversation/TextPeer.h"

#include "runtime/net/VornRemoteName.h"
#include "runtime/net/WireCodec.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace FuzzTests {
namespace {

// Takes a number and the blank behind it off the text; 0 where there is none. Of
// numbers beyond 32 bits the low ones count.
std::uint32_t takeNumber(std::string_view& text) {
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    if (text.starts_with(' ')) text.remove_prefix(1);
    return error == std::errc{} ? static_cast<std::uint32_t>(value) : 0;
}

}  // namespace

void TextPeer::readString(std::string& value) {
    ScriptedConnection::readString(value);
    if (VornNet::VornRemoteName::parse(value)) value.front() = 'x';
}

TextPeer::Received TextPeer::receiveSome(char* buffer, std::size_t size, bool wait) {
    while (wait && arrivals.empty() && !rest_.empty()) {
        std::string bytes = nextBytes();
        if (!bytes.empty()) arrivals.push_back(std::move(bytes));
    }
    return ScriptedConnection::receiveSome(buffer, size, wait);
}

void TextPeer::setAbortEvent(VornSupport::VornEvent* event) {
    if (event != nullptr) gone = true;
    ScriptedConnection::setAbortEvent(event);
}

std::string TextPeer::nextBytes() {
    const std::size_t end = std::min(rest_.find('\n'), rest_.size());
    const std::string_view line = rest_.substr(0, end);
    rest_.remove_prefix(std::min(end + 1, rest_.size()));
    if (line == "k") return bytesOf('k', {});
    if (line.size() < 2 || line[1] != ' ') return std::string(line);
    return bytesOf(line[0], line.substr(2));
}

std::string TextPeer::bytesOf(char kind, std::string_view argument) const {
    std::string bytes;
    switch (kind) {
        case 'l': return std::string(argument) + "\n";
        case 'r': return std::string(argument);
        case 'h': VornNet::append16(bytes, static_cast<std::uint16_t>(takeNumber(argument))); break;
        case 'i': VornNet::append32(bytes, takeNumber(argument)); break;
        case 's':  // on the wire a block is the same
        case 'b': VornNet::appendString(bytes, argument); break;
        case 'S':
        case 'B':
            VornNet::append32(bytes, takeNumber(argument));
            bytes += argument;
            break;
        case 'k': {
            const std::string received = wire();
            if (received.size() >= 4) bytes = received.substr(received.size() - 4);
            break;
        }
        default: bytes.assign(1, kind).append(" ").append(argument);
    }
    return bytes;
}

}  // namespace FuzzTests
