#pragma once

#include "runtime/platform/Export.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace VornSupport {

// Base of every reference-counted object. The count starts at 0 and is owned
// through VornSmartPointer; the last release() destroys the object. Counting
// may be done from any thread. Inherited virtually by classes that can be
// combined (VornNotification), so that an object has one count only.
class VORN_EXPORT VornObjectBase {
public:
    VornObjectBase() = default;
    VornObjectBase(const VornObjectBase&) : VornObjectBase() {}  // a copy is a new object: count 0
    VornObjectBase& operator=(const VornObjectBase&) { return *this; }
    virtual ~VornObjectBase();

    // Both return the new count. After release() has returned 0 the object is gone.
    virtual unsigned long addRef();
    virtual unsigned long release();
    virtual unsigned long refCount() const;

    // True when `className` is the object's own class or one of its bases,
    // named as by getClassName().
    virtual bool isA(const std::string& className) const;
    // The run-time class's own name, without namespaces, outer classes or
    // template arguments: "RuvoTSTimer".
    virtual std::string getClassName() const;

private:
    std::atomic<std::uint32_t> count_{0};
};

}  // namespace VornSupport
