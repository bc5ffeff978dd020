#include "runtime/monitor/MonitorLibrary.h"

#include "runtime/monitor/ForeignExceptions.h"
#include "runtime/platform/ModuleFolder.h"
#include "runtime/platform/PathText.h"
#include "runtime/support/VornException.h"
#include "runtime/support/VornLogging.h"

namespace VornMonitor {

using VornSupport::ModuleDataFunction;
using VornSupport::VornException;

namespace {

const char addressInThisModule = 0;

// A name of the configuration is a name, not a way out of the folder.
bool isPlainName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string("/\\:\0", 4)) == std::string::npos;
}

std::string pathOf(std::string folder, const std::string& name) {
    if (folder.empty()) folder = VornPlatform::folderOfModuleAt(&addressInThisModule);
    return VornPlatform::utf8FromPath(
        VornPlatform::pathFromUtf8(folder) /
        VornPlatform::pathFromUtf8(VornPlatform::moduleFileName(name)));
}

[[noreturn]] void throwCannotLoad(const std::string& name, const std::string& reason) {
    throw VornException("VornEventMonitorManager::loadMonitor: cannot load " + name + ": " +
                        reason);
}

}  // namespace

MonitorLibrary::MonitorLibrary(const std::string& folder, const std::string& name) : name_(name) {
    if (!isPlainName(name)) throwCannotLoad(name, "not a name of a library");
    std::string error;
    if (!loader_.open(pathOf(folder, name), error)) throwCannotLoad(name, error);
    const auto function = reinterpret_cast<ModuleDataFunction>(
        loader_.symbol(VornSupport::kModuleDataFunction));
    if (function == nullptr) {
        throwCannotLoad(name, std::string("it has no function ") +
                                  VornSupport::kModuleDataFunction);
    }
    module_ = withOwnExceptions([&] { return function(); });
    if (module_ == nullptr) throwCannotLoad(name, "it has no module object");
}

void MonitorLibrary::attach() {
    withOwnExceptions([&] { module_->attach(); });
}

void MonitorLibrary::detach() {
    withoutExceptions([&] { module_->detach(); },
                      [&](const char* text) {
                          VORN_LOG(2, "VornEventMonitorManager::unloadMonitor: detaching "
                                          << name_ << ": " << text);
                      });
}

}  // namespace VornMonitor
