#include "runtime/support/VornObjectBase.h"

#include "runtime/support/VornClassName.h"

namespace VornSupport {

VornObjectBase::~VornObjectBase() = default;

unsigned long VornObjectBase::addRef() {
    return count_.fetch_add(1, std::memory_order_relaxed) + 1;
}

unsigned long VornObjectBase::release() {
    const std::uint32_t left = count_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) delete this;
    return left;
}

unsigned long VornObjectBase::refCount() const { return count_.load(std::memory_order_acquire); }

bool VornObjectBase::isA(const std::string& className) const {
    return classIsA(typeid(*this), className);
}

std::string VornObjectBase::getClassName() const { return classNameOf(typeid(*this)); }

}  // namespace VornSupport
