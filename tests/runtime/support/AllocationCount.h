#pragma once

#include <cstddef>

// What the calling thread has asked operator new for since it began. Programs
// that link AllocationCount.cpp have an operator new of their own, which also
// serves shared libraries where NativeProbe::replacesAllocationEverywhere().
struct AllocationCount {
    std::size_t calls = 0;
    std::size_t bytes = 0;

    static AllocationCount ofThisThread();
};
