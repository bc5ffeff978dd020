#include "tests/client/TakenMemory.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t taken = 0;

}  // namespace

std::size_t ClientTest::memoryTakenByThisThread() { return taken; }

void* operator new(std::size_t size) {
    taken += size;
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
