#include "runtime/support/VornExecuteProgram.h"

#include <utility>

namespace VornSupport {

bool VornExecuteProgram(const std::string& commandLine, bool wait, VornProcessHandle* processHandle,
                        int* exitCode) {
    VornProcessHandle process;
    if (VornPlatform::startProcess(commandLine, process)) return false;
    if (wait) {
        process.wait(VornProcessHandle::kForever);
        if (exitCode != nullptr) *exitCode = process.exitCode();
    }
    if (processHandle != nullptr) *processHandle = std::move(process);
    return true;
}

}  // namespace VornSupport
