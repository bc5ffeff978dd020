// Announces two monitors when it is attached, one of its own name. The second
// cannot be made the first time.

#include "tests/runtime/monitor/plugins/Plugin.h"

namespace {

bool failed = false;

std::unique_ptr<VornMonitor::VornEventMonitor> makeSecond() {
    auto monitor = std::make_unique<PluginMonitor>("plugin_announcing second");
    if (!std::exchange(failed, true)) throw PluginException("not the first time");
    return monitor;
}

class Module : public PluginModule {
public:
    Module() : PluginModule("plugin_announcing") {}

protected:
    void onAttach() override {
        auto& manager = VornMonitor::VornEventMonitorManager::getInstance();
        manager.announce("plugin_announcing",
                         [] { return std::make_unique<PluginMonitor>("plugin_announcing"); });
        manager.announce("plugin_announcing second", &makeSecond);
    }
};

}  // namespace

PLUGIN_MODULE(Module)
