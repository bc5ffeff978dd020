// Makes a monitor, but none of its own name.

#include "tests/runtime/monitor/plugins/Plugin.h"

namespace {

class Module : public PluginModule {
public:
    Module() : PluginModule("plugin_other") {}

protected:
    void onAttach() override { monitor_ = std::make_unique<PluginMonitor>("quite another"); }
    void onDetach() override { monitor_.reset(); }

private:
    std::unique_ptr<PluginMonitor> monitor_;
};

}  // namespace

PLUGIN_MODULE(Module)
