#include "tests/runtime/support/AllocationCount.h"

#include "runtime/support/VornThreadName.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

thread_local AllocationCount count;

constexpr std::size_t kLongestName = 32;
char failingName[kLongestName];            // set while no thread fails
std::atomic<std::size_t> failingLength{0};  // 0: none
std::atomic<int> refusals{0};

bool isToFail() {
    const std::size_t length = failingLength.load(std::memory_order_acquire);
    return length != 0 && VornSupport::threadName() == std::string_view(failingName, length);
}

void* allocate(std::size_t size) noexcept {
    if (isToFail()) {
        ++refusals;
        return nullptr;
    }
    ++count.calls;
    count.bytes += size;
    if (size > count.largest) count.largest = size;
    return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

AllocationCount AllocationCount::ofThisThread() { return count; }
void AllocationCount::forgetLargest() { count.largest = 0; }

AllocationFailure::AllocationFailure(std::string_view threadName) {
    refusals = 0;
    failingLength.store(threadName.copy(failingName, kLongestName), std::memory_order_release);
}
AllocationFailure::~AllocationFailure() { failingLength = 0; }
int AllocationFailure::count() const { return refusals; }

void* operator new(std::size_t size) {
    if (void* const memory = allocate(size)) return memory;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
