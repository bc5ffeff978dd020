#pragma once

#include <climits>

// Memory that runs out at a chosen moment, for the calling thread alone. Programs
// that link FailingMemory.cpp have an operator new of their own, which also serves
// shared libraries where NativeProbe::replacesAllocationEverywhere().
namespace FailingMemory {

inline constexpr int kAll = INT_MAX;

// From now on `before` allocations of this thread succeed, then `failures` fail.
void begin(int before, int failures = 1);
// All succeed again. True when one has failed since begin().
bool end();

}  // namespace FailingMemory
