#include "runtime/support/VornKeyedHash.h"

#include <bit>
#include <cstddef>
#include <cstring>
#include <random>

namespace VornSupport {
namespace {

constexpr std::size_t kWord = 8;

std::uint64_t randomNumber() {
    std::random_device device;
    return (static_cast<std::uint64_t>(device()) << 32) | device();
}

// In the byte order of the machine: the hash leaves no process.
std::uint64_t wordAt(const char* bytes, std::size_t count) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, count);
    return word;
}

struct State {
    std::uint64_t a, b, c, d;

    void round() {
        a += b;
        c += d;
        b = std::rotl(b, 13) ^ a;
        d = std::rotl(d, 16) ^ c;
        a = std::rotl(a, 32);
        c += b;
        a += d;
        b = std::rotl(b, 17) ^ c;
        d = std::rotl(d, 21) ^ a;
        c = std::rotl(c, 32);
    }
    void take(std::uint64_t word) {
        d ^= word;
        round();
        round();
        a ^= word;
    }
};

}  // namespace

const VornHashKey& VornHashKey::ofProcess() {
    static const VornHashKey key{randomNumber(), randomNumber()};
    return key;
}

std::uint64_t keyedHash(std::string_view text, const VornHashKey& key) {
    State state{key.first ^ 0x736f6d6570736575, key.second ^ 0x646f72616e646f6d,
                key.first ^ 0x6c7967656e657261, key.second ^ 0x7465646279746573};
    const std::size_t whole = text.size() / kWord * kWord;
    for (std::size_t at = 0; at < whole; at += kWord) state.take(wordAt(text.data() + at, kWord));
    // The last word holds what is left and, on top, the length.
    const std::uint64_t rest =
        whole == text.size() ? 0 : wordAt(text.data() + whole, text.size() - whole);
    state.take(rest | (static_cast<std::uint64_t>(text.size()) << 56));
    state.c ^= 0xff;
    for (int i = 0; i < 4; ++i) state.round();
    return state.a ^ state.b ^ state.c ^ state.d;
}

}  // namespace VornSupport
