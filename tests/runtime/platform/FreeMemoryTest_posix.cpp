#include "runtime/platform/FreeMemory.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

// Resident pages of this process.
long residentPages() {
    std::ifstream file("/proc/self/statm");
    long size = 0;
    long resident = 0;
    file >> size >> resident;
    return resident;
}

TEST(FreeMemory, GoesBackToTheSystem) {
    // Small pieces below one that stays: nothing the allocator gives back by itself.
    std::vector<std::unique_ptr<char[]>> pieces;
    for (int i = 0; i < 20000; ++i) {
        pieces.push_back(std::make_unique<char[]>(4000));
        pieces.back()[0] = 'x';
    }
    const std::unique_ptr<char[]> last = std::make_unique<char[]>(4000);
    pieces.clear();
    const long before = residentPages();
    VornPlatform::giveFreeMemoryBack();
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(residentPages(), before - 10000);
#else
    EXPECT_GT(before, 0) << "the sanitizers bring an allocator of their own";
#endif
}

}  // namespace
