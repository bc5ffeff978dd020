#include "tests/runtime/support/AllocationCount.h"

#include <cstdlib>
#include <new>

namespace {

thread_local AllocationCount count;

void* allocate(std::size_t size) noexcept {
    ++count.calls;
    count.bytes += size;
    return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

AllocationCount AllocationCount::ofThisThread() { return count; }

void* operator new(std::size_t size) {
    if (void* const memory = allocate(size)) return memory;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
