#include "runtime/support/VornObjectFactory.h"

namespace VornSupport {

void VornObjectFactory::add(const std::string& name, Creator creator) { creators_[name] = creator; }

VornSmartPointer<VornObjectBase> VornObjectFactory::construct(const std::string& name) const {
    const auto found = creators_.find(name);
    if (found == creators_.end()) return nullptr;
    return VornSmartPointer<VornObjectBase>(found->second());
}

}  // namespace VornSupport
