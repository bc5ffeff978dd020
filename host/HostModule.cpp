#include "host/HostModule.h"

#include "runtime/platform/ModuleFolder.h"
#include "runtime/platform/ModuleLoader.h"
#include "runtime/platform/PathText.h"

namespace RuvoHost {
namespace {

const char addressInThisProgram = 0;

}  // namespace

const RuvoHostApi* loadHostModule(std::string& error) {
    const auto folder =
        VornPlatform::pathFromUtf8(VornPlatform::folderOfModuleAt(&addressInThisProgram));
    const std::string path =
        VornPlatform::utf8FromPath(folder / VornPlatform::moduleFileName("ruvos64"));
    VornPlatform::ModuleLoader module;
    if (!module.open(path, error)) {
        error = "cannot load " + path + ": " + error;
        return nullptr;
    }
    const auto table = reinterpret_cast<RuvoHostApiFunction>(module.symbol(RUVO_HOST_API_FUNCTION));
    // Threads of the module may outlive everything here.
    module.keep();
    if (table == nullptr || table()->version != RUVO_HOST_API_VERSION) {
        error = path + " does not fit this host";
        return nullptr;
    }
    return table();
}

}  // namespace RuvoHost
