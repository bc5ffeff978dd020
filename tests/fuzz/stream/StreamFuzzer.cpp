// Any bytes as what a peer sends, under any sequence of reads: the first line is
// the sequence, a letter a read (see Reader), the rest is what arrives. What the
// reads give does not depend on the pieces in which it arrives, values are those
// of the wire encoding, and memory grows with what arrives, not with what the peer
// has announced.

#include "runtime/net/VornConnection.h"
#include "runtime/net/WireCodec.h"
#include "tests/fuzz/Check.h"
#include "tests/fuzz/Replay.h"
#include "tests/runtime/net/ScriptedConnection.h"
#include "tests/runtime/support/AllocationCount.h"

#include <algorithm>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

using FuzzTests::check;

namespace {

constexpr std::size_t kMostReads = 64;
// For one read: the steps in which strings and buffers grow, and twice what they
// hold already.
constexpr std::size_t kStep = 256 * 1024;
constexpr std::size_t kTimes = 8;

// Performs reads. Each gives a text that tells all that can be seen of it.
class Reader {
public:
    explicit Reader(VornNet::VornConnection& connection) : connection_(connection) {}

    // Nothing for a letter that is no read.
    std::optional<std::string> read(char letter) {
        switch (letter) {
            case 's': {
                std::string value;
                connection_.readString(value);
                return "string " + value;
            }
            case 'u': return "unsigned " + std::to_string(connection_.readUnsigned());
            case 'h': return "short " + std::to_string(connection_.readUnsignedShort());
            case 'i': return "int " + std::to_string(connection_.readInt());
            case 'b':
                return "block " +
                       VornNet::readBlock(connection_, connection_.readInt(), "the block");
            case 'l': return line();
            case 'L': return peekedLine();
            case 'p': return peeked();
            case 'r': return raw();
            case 'g': return connection_.isPeerGone() ? "gone" : "there";
            default: break;
        }
        if (letter >= '0' && letter <= '9') size_ = 1 << (letter - '0');
        return std::nullopt;
    }

private:
    std::string line() {
        std::vector<char> buffer(static_cast<std::size_t>(size_));
        bool closed = false;
        const std::string text = connection_.readLine(buffer.data(), size_, closed);
        check(text.size() < buffer.size(), "a line is within its buffer");
        return "line " + text + (closed ? " closed" : "");
    }
    std::string peekedLine() {
        std::vector<char> buffer(static_cast<std::size_t>(size_));
        int length = size_;
        bool closed = false;
        const bool whole = connection_.peekLine(buffer.data(), length, closed);
        check(length >= 0 && length < size_, "a line is within its buffer");
        check(buffer[static_cast<std::size_t>(length)] == '\0', "a line is terminated");
        return "look " + std::string(buffer.data(), static_cast<std::size_t>(length)) +
               (whole ? " whole" : "") + (closed ? " closed" : "");
    }
    std::string peeked() {
        std::vector<char> buffer(static_cast<std::size_t>(size_));
        int length = size_;
        bool closed = false;
        if (!connection_.peek(buffer.data(), length, closed)) {
            return closed ? "nothing more" : "nothing yet";
        }
        check(length >= 1 && length <= size_, "a look is within its buffer");
        return "bytes " + std::string(buffer.data(), static_cast<std::size_t>(length));
    }
    // In as many parts as it takes: their sizes are those of the pieces.
    std::string raw() {
        std::string bytes(static_cast<std::size_t>(size_), '\0');
        for (int have = 0; have < size_;) {
            int count = 0;
            connection_.read(bytes.data() + have, size_ - have, count, false);
            check(count >= 1 && count <= size_ - have, "a read brings something");
            have += count;
        }
        return "raw " + bytes;
    }

    VornNet::VornConnection& connection_;
    int size_ = 16;
};

// What the reads give, up to the first one that fails.
std::vector<std::string> resultsOf(std::string_view reads, std::deque<std::string> pieces) {
    std::size_t arriving = 0;
    for (const auto& piece : pieces) arriving += piece.size();
    ScriptedConnection connection(std::move(pieces));
    connection.endsBehindArrivals = true;
    Reader reader(connection);
    std::vector<std::string> results;
    for (const char letter : reads.substr(0, kMostReads)) {
        const std::size_t before = AllocationCount::ofThisThread().bytes;
        try {
            if (auto result = reader.read(letter)) results.push_back(std::move(*result));
        } catch (const VornSupport::VornException&) {
            results.emplace_back("failed");
        }
        const std::size_t taken = AllocationCount::ofThisThread().bytes - before;
        check(taken <= kStep + kTimes * arriving, "memory grows with what arrives");
        if (!results.empty() && results.back() == "failed") break;
    }
    return results;
}

std::deque<std::string> cut(std::string_view bytes, std::size_t size) {
    std::deque<std::string> pieces;
    for (; !bytes.empty(); bytes.remove_prefix(std::min(size, bytes.size()))) {
        pieces.emplace_back(bytes.substr(0, size));
    }
    return pieces;
}

// The values that come before the first line or look, taken straight from the bytes.
void checkValues(std::string_view reads, std::string_view bytes,
                 const std::vector<std::string>& results) {
    std::size_t at = 0;
    for (const char letter : reads) {
        std::string expected;
        if (at == results.size()) return;
        if (std::string_view("suhi").find(letter) == std::string_view::npos) return;
        const std::size_t width = letter == 'h' ? 2 : 4;
        if (bytes.size() < width) {
            check(results[at] == "failed", "a value that is not all there is none");
            return;
        }
        const std::uint32_t value =
            letter == 'h' ? VornNet::decode16(bytes.data()) : VornNet::decode32(bytes.data());
        bytes.remove_prefix(width);
        if (letter == 's') {
            if (bytes.size() < value) {
                check(results[at] == "failed", "a string that is not all there is none");
                return;
            }
            expected = "string " + std::string(bytes.substr(0, value));
            bytes.remove_prefix(value);
        } else if (letter == 'i') {
            expected = "int " + std::to_string(static_cast<std::int32_t>(value));
        } else {
            expected = (letter == 'h' ? "short " : "unsigned ") + std::to_string(value);
        }
        check(results[at++] == expected, "a value is what was sent");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t end = std::min(input.find('\n'), input.size());
    const std::string_view reads = input.substr(0, std::min(end, kMostReads));
    const std::string_view bytes = input.substr(std::min(end + 1, input.size()));

    const auto whole = resultsOf(reads, cut(bytes, std::max<std::size_t>(bytes.size(), 1)));
    checkValues(reads, bytes, whole);
    for (const std::size_t pieces : {std::size_t{1}, std::size_t{3}, bytes.size() / 2 + 1}) {
        check(resultsOf(reads, cut(bytes, pieces)) == whole,
              "the pieces in which bytes arrive make no difference");
    }
    return 0;
}
