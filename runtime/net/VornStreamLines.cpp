// The part of VornStreamConnection that looks before it takes: peek and lines.

#include "runtime/net/VornStreamConnection.h"

#include <algorithm>
#include <cstring>

namespace VornNet {

bool VornStreamConnection::peek(char* buffer, int& length, bool& closed) {
    checkOpen();
    closed = false;
    const auto wanted = static_cast<std::size_t>(std::max(length, 0));
    while (input_.size() < std::max<std::size_t>(wanted, 1) && fill(false)) {}
    const std::size_t count = std::min(wanted, input_.size());
    if (count != 0) std::memcpy(buffer, input_.data(), count);
    length = static_cast<int>(count);
    if (!input_.empty()) return true;
    closed = ended_;
    return false;
}

// What a caller with room for `capacity` bytes, the terminating zero among them,
// gets to see of the next line.
struct VornStreamConnection::Line {
    std::size_t shown;     // bytes for the caller, without the line end
    std::size_t consumed;  // bytes of the stream that this uses up
    bool whole;
    bool ended;  // the stream ended in the line
};

VornStreamConnection::Line VornStreamConnection::findLine(std::size_t capacity) {
    const std::size_t most = capacity - 1;
    for (std::size_t seen = 0;;) {
        const std::string_view held = input_.view();
        // Two bytes more than are shown: the longest line that fits may end in
        // "\r\n".
        const std::string_view inspected = held.substr(0, most + 2);
        const std::size_t end = inspected.find('\n', seen);
        if (end != std::string_view::npos) {
            const std::size_t bare = end > 0 && held[end - 1] == '\r' ? end - 1 : end;
            if (bare <= most) return {bare, end + 1, true, false};
            return {most, most, false, false};
        }
        const bool tooLong = inspected.size() > most && inspected[most] != '\r';
        if (tooLong || inspected.size() == most + 2) return {most, most, false, false};
        seen = inspected.size();
        if (!fill(true)) {
            const std::size_t rest = std::min(input_.size(), most);
            return {rest, rest, false, rest == input_.size()};
        }
    }
}

bool VornStreamConnection::peekLine(char* buffer, int& length, bool& closed) {
    checkOpen();
    closed = false;
    if (length < 1) fail("a line buffer of " + std::to_string(length) + " bytes");
    const Line line = findLine(static_cast<std::size_t>(length));
    if (line.shown != 0) std::memcpy(buffer, input_.data(), line.shown);
    buffer[line.shown] = '\0';
    length = static_cast<int>(line.shown);
    closed = line.ended;
    return line.whole;
}

char* VornStreamConnection::readLine(char* buffer, int capacity, bool& closed) {
    checkOpen();
    closed = false;
    if (capacity < 1) fail("a line buffer of " + std::to_string(capacity) + " bytes");
    const Line line = findLine(static_cast<std::size_t>(capacity));
    if (line.shown != 0) std::memcpy(buffer, input_.data(), line.shown);
    buffer[line.shown] = '\0';
    input_.consume(line.consumed);
    closed = line.ended;
    return buffer;
}

}  // namespace VornNet
