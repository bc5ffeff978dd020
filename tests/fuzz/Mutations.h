#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace FuzzTests {

// Changes inputs in the ways that readers of bytes trip over: flipped bits, runs
// taken out, doubled, put in or moved to another input, hostile numbers in big
// endian, digits made long. The same sequence for the same inputs on every
// system. One thread.
class Mutations {
public:
    static constexpr std::size_t kLongest = 16 * 1024;

    // At least one input.
    explicit Mutations(std::vector<std::string> inputs);

    // The next one: some input with one to four changes, of kLongest bytes at most.
    std::string next();

private:
    std::size_t below(std::size_t limit);  // 0 when `limit` is 0
    void change(std::string& text);
    std::string piece();

    const std::vector<std::string> inputs_;
    std::uint64_t state_ = 0x9E3779B97F4A7C15;
};

// The input as a line that a person can read and a C++ string literal can take.
std::string printable(std::string_view input);

}  // namespace FuzzTests
