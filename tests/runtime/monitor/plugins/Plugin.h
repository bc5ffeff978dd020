#pragma once

#include "runtime/monitor/VornEventMonitor.h"
#include "runtime/monitor/VornEventMonitorManager.h"
#include "runtime/platform/Export.h"
#include "runtime/support/ModuleData.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"

#include <exception>
#include <memory>
#include <string>

// What the libraries of MonitorLoadingTest share. Each tells the log, at level
// 4, when it is attached, detached and unloaded. Everything here is the
// library's own code, so an exception of these types must not outlive it.
namespace {

struct PluginException : std::exception {
    explicit PluginException(std::string text) : text_(std::move(text)) {}
    const char* what() const noexcept override { return text_.c_str(); }

private:
    std::string text_;
};

struct PluginVornException : VornSupport::VornException {
    using VornException::VornException;
};

class PluginMonitor : public VornMonitor::VornEventMonitor {
public:
    explicit PluginMonitor(const std::string& name) : VornEventMonitor(name) {}
    ~PluginMonitor() override {
        retire();
        VORN_LOG(4, getMonitorName() << ": destroyed");
    }

protected:
    bool initialize() override {
        VORN_LOG(4, getMonitorName() << ": initialized " << requireProperty("key"));
        return true;
    }
    bool cleanup() override {
        VORN_LOG(4, getMonitorName() << ": cleaned up");
        return true;
    }
    // Reads what to do.
    void handleClient(VornNet::VornConnection& connection) override {
        std::string what;
        connection.readString(what);
        if (what == "throw own") throw PluginException("an own exception");
        if (what == "throw derived") throw PluginVornException("a derived exception", 17);
        if (what == "throw property") throw VornSupport::VornPropertyNotFound("a.key");
        if (what == "throw number") throw 17;
        connection.writeString(getMonitorName() + " read " + what);
    }
};

class PluginModule : public VornSupport::ModuleData {
public:
    explicit PluginModule(const char* name) : ModuleData(true), name_(name) {}
    ~PluginModule() override { VORN_LOG(4, name_ << ": unloaded"); }

    void attach() override {
        VORN_LOG(4, name_ << ": attached");
        onAttach();
    }
    void detach() override {
        VORN_LOG(4, name_ << ": detached");
        onDetach();
    }

protected:
    virtual void onAttach() = 0;
    virtual void onDetach() {}

private:
    const char* const name_;
};

}  // namespace

// Defines the library's one module object.
#define PLUGIN_MODULE(Class)                                          \
    static Class theModule;                                           \
    extern "C" VORN_EXPORT VornSupport::ModuleData* vornModuleData(); \
    VornSupport::ModuleData* vornModuleData() { return &theModule; }
