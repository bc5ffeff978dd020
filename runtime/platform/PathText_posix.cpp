#include "runtime/platform/PathText.h"

namespace VornPlatform {

std::filesystem::path pathFromUtf8(std::string_view text) { return text; }

std::string utf8FromPath(const std::filesystem::path& path) { return path.native(); }

bool fileNamesIgnoreCase() { return false; }

}  // namespace VornPlatform
