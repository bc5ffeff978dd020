// Makes two monitors when it is attached, one of its own name.

#include "tests/runtime/monitor/plugins/Plugin.h"

namespace {

class Module : public PluginModule {
public:
    Module() : PluginModule("plugin_attached") {}

protected:
    void onAttach() override {
        first_ = std::make_unique<PluginMonitor>("plugin_attached");
        second_ = std::make_unique<PluginMonitor>("plugin_attached second");
    }
    void onDetach() override {
        first_.reset();
        second_.reset();
    }

private:
    std::unique_ptr<PluginMonitor> first_;
    std::unique_ptr<PluginMonitor> second_;
};

}  // namespace

PLUGIN_MODULE(Module)
