// Makes a monitor, announces one, and then cannot be attached.

#include "tests/runtime/monitor/plugins/Plugin.h"

namespace {

class Module : public PluginModule {
public:
    Module() : PluginModule("plugin_throws") {}

protected:
    void onAttach() override {
        monitor_ = std::make_unique<PluginMonitor>("plugin_throws");
        VornMonitor::VornEventMonitorManager::getInstance().announce(
            "plugin_throws second",
            [] { return std::make_unique<PluginMonitor>("plugin_throws second"); });
        throw PluginException("cannot be attached");
    }
    void onDetach() override {
        monitor_.reset();
        throw PluginException("cannot be detached either");
    }

private:
    std::unique_ptr<PluginMonitor> monitor_;
};

}  // namespace

PLUGIN_MODULE(Module)
