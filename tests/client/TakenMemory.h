#pragma once

#include <cstddef>

namespace ClientTest {

// Bytes that the calling thread has asked operator new for since it began. The
// program that links this has an operator new of its own.
std::size_t memoryTakenByThisThread();

}  // namespace ClientTest
