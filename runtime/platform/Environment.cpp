#include "runtime/platform/Environment.h"

#include "runtime/platform/PathText.h"

namespace VornPlatform {

std::string executableFolder() {
    return utf8FromPath(pathFromUtf8(executablePath()).parent_path());
}

}  // namespace VornPlatform
