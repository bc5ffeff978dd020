#include "tests/runtime/support/TestPlugin.h"

#include "runtime/platform/Export.h"

namespace PlugIn::Inner {
namespace {

class PlugInBase : public virtual VornSupport::VornObjectBase {};

class PlugInTask : public PlugInBase {
public:
    explicit PlugInTask(bool* destroyed) : destroyed_(destroyed) {}
    ~PlugInTask() override { *destroyed_ = true; }

private:
    bool* destroyed_;
};

}  // namespace
}  // namespace PlugIn::Inner

extern "C" VORN_EXPORT VornSupport::VornObjectBase* makePlugInObject(bool* destroyed) {
    return new PlugIn::Inner::PlugInTask(destroyed);
}
