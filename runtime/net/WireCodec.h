#pragma once

// The encoding of values on engine conversations and deliveries, shared by
// daemon and clients: integers are big-endian two's complement; a string is an
// unsigned 32-bit byte count followed by that many bytes, any bytes allowed.
// Pure functions on memory; any thread; nothing throws but bad_alloc.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace VornNet {

inline void encode16(std::uint16_t value, char* out) {
    out[0] = static_cast<char>(value >> 8);
    out[1] = static_cast<char>(value);
}

inline void encode32(std::uint32_t value, char* out) {
    out[0] = static_cast<char>(value >> 24);
    out[1] = static_cast<char>(value >> 16);
    out[2] = static_cast<char>(value >> 8);
    out[3] = static_cast<char>(value);
}

inline std::uint16_t decode16(const char* in) {
    const auto byte = [in](int i) { return static_cast<unsigned>(static_cast<unsigned char>(in[i])); };
    return static_cast<std::uint16_t>((byte(0) << 8) | byte(1));
}

inline std::uint32_t decode32(const char* in) {
    const auto byte = [in](int i) {
        return static_cast<std::uint32_t>(static_cast<unsigned char>(in[i]));
    };
    return (byte(0) << 24) | (byte(1) << 16) | (byte(2) << 8) | byte(3);
}

inline void append16(std::string& out, std::uint16_t value) {
    char bytes[2];
    encode16(value, bytes);
    out.append(bytes, sizeof bytes);
}

inline void append32(std::string& out, std::uint32_t value) {
    char bytes[4];
    encode32(value, bytes);
    out.append(bytes, sizeof bytes);
}

inline void appendInt(std::string& out, std::int32_t value) {
    append32(out, static_cast<std::uint32_t>(value));
}

// `text` must be shorter than 4 GiB.
inline void appendString(std::string& out, std::string_view text) {
    append32(out, static_cast<std::uint32_t>(text.size()));
    out.append(text);
}

}  // namespace VornNet
