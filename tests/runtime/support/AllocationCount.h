#pragma once

#include <cstddef>
#include <string_view>

// What the calling thread has asked operator new for since it began. Programs
// that link AllocationCount.cpp have an operator new of their own, which also
// serves shared libraries where NativeProbe::replacesAllocationEverywhere().
struct AllocationCount {
    std::size_t calls = 0;
    std::size_t bytes = 0;
    std::size_t largest = 0;  // bytes of one call, since forgetLargest()

    static AllocationCount ofThisThread();
    static void forgetLargest();  // of this thread
};

// While it lives, operator new has no memory for the threads that the log knows
// by this name. One at a time.
class AllocationFailure {
public:
    explicit AllocationFailure(std::string_view threadName);
    ~AllocationFailure();
    AllocationFailure(const AllocationFailure&) = delete;
    AllocationFailure& operator=(const AllocationFailure&) = delete;

    int count() const;  // of the refusals
};
