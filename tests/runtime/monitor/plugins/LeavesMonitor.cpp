// Does not destroy its monitor when it is detached.

#include "tests/runtime/monitor/plugins/Plugin.h"

namespace {

class Module : public PluginModule {
public:
    Module() : PluginModule("plugin_leaves") {}

protected:
    void onAttach() override { monitor_ = std::make_unique<PluginMonitor>("plugin_leaves"); }

private:
    std::unique_ptr<PluginMonitor> monitor_;
};

}  // namespace

PLUGIN_MODULE(Module)
