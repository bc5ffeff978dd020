#include "runtime/platform/PathText.h"

#include "runtime/platform/WideText_windows.h"

namespace VornPlatform {

std::filesystem::path pathFromUtf8(std::string_view text) { return toWide(text); }

std::string utf8FromPath(const std::filesystem::path& path) { return toUtf8(path.native()); }

bool fileNamesIgnoreCase() { return true; }

}  // namespace VornPlatform
