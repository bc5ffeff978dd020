#include "runtime/support/VornPostponed.h"

#include <utility>

namespace VornSupport {
namespace {

thread_local VornPostponed* ours = nullptr;

}  // namespace

VornPostponed::~VornPostponed() { takeBack(); }

bool VornPostponed::isPending() { return ours != nullptr; }

void VornPostponed::perform() noexcept {
    if (VornPostponed* const pending = std::exchange(ours, nullptr)) pending->run();
}

void VornPostponed::postpone() { ours = this; }

void VornPostponed::takeBack() {
    if (ours == this) ours = nullptr;
}

}  // namespace VornSupport
