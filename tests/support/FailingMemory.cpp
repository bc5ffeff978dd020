#include "tests/support/FailingMemory.h"

#include <cstdlib>
#include <new>
#include <utility>

namespace {

thread_local int left = -1;  // that succeed; negative: all
thread_local int toFail = 0;
thread_local bool hasFailed = false;

bool isToFail() {
    if (left < 0) return false;
    if (left > 0) {
        --left;
        return false;
    }
    hasFailed = true;
    if (toFail != FailingMemory::kAll && --toFail == 0) left = -1;
    return true;
}

void* allocate(std::size_t size) {
    if (isToFail()) throw std::bad_alloc();
    void* const piece = std::malloc(size == 0 ? 1 : size);
    if (piece == nullptr) throw std::bad_alloc();
    return piece;
}

}  // namespace

void FailingMemory::begin(int before, int failures) {
    hasFailed = false;
    toFail = failures;
    left = before;
}

bool FailingMemory::end() {
    left = -1;
    return std::exchange(hasFailed, false);
}

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
// As the library's own, which the address sanitizer puts another in place of.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
// Inlined, the compiler takes it for a mistake.
[[gnu::noinline]] void operator delete(void* piece) noexcept { std::free(piece); }
[[gnu::noinline]] void operator delete[](void* piece) noexcept { std::free(piece); }
[[gnu::noinline]] void operator delete(void* piece, std::size_t) noexcept { std::free(piece); }
[[gnu::noinline]] void operator delete[](void* piece, std::size_t) noexcept { std::free(piece); }
