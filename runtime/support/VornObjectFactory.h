#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornObjectBase.h"
#include "runtime/support/VornSmartPointer.h"

#include <string>
#include <unordered_map>

namespace VornSupport {

// Makes objects by name. Filled first, by one thread; afterwards any number of
// threads may construct at once.
class VORN_EXPORT VornObjectFactory {
public:
    // Returns a new object with count 0.
    using Creator = VornObjectBase* (*)();

    // Registers the creator of `name`, in place of an earlier one.
    void add(const std::string& name, Creator creator);
    // A new object, or null when nothing is registered under exactly `name`.
    VornSmartPointer<VornObjectBase> construct(const std::string& name) const;

private:
    std::unordered_map<std::string, Creator> creators_;
};

// The creator of a class that is made without arguments.
template <class T>
VornObjectBase* createObject() {
    return new T;
}

}  // namespace VornSupport
