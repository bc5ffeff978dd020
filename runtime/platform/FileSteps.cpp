#include "runtime/platform/FileSteps.h"

#include <atomic>

namespace VornPlatform {
namespace {

std::atomic<void (*)(FileStep)> told{nullptr};

}  // namespace

void setFileStepsForTest(void (*to)(FileStep)) { told = to; }

OsError noteFileStep(FileStep step, OsError outcome) {
    if (const auto hook = told.load(std::memory_order_relaxed); hook && !outcome) hook(step);
    return outcome;
}

}  // namespace VornPlatform
