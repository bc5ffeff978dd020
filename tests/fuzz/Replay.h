#pragma once

#include <cstddef>
#include <cstdint>

// What every fuzzer brings: looks at one input, throws FuzzTests::Broken when a
// property does not hold.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace FuzzTests {

// The fuzzer's folder below tests/fuzz/. Written by the build.
const char* fuzzerName();

}  // namespace FuzzTests
