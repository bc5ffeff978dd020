#pragma once

#include "runtime/platform/Export.h"
#include "runtime/support/VornObjectBase.h"

namespace VornSupport {

// What a collaborator tells its dependents. Receivers know the kind by
// getClassName() or by the code. Never changed after construction, so one
// notification may be read by many threads.
class VORN_EXPORT VornNotification : public virtual VornObjectBase {
public:
    VornNotification() = default;
    explicit VornNotification(int kind) : kind_(kind) {}
    ~VornNotification() override;

    // The code given at construction; 0 when none was.
    int getKind() const { return kind_; }

private:
    int kind_ = 0;
};

}  // namespace VornSupport
