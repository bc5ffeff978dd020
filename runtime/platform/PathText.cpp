#include "runtime/platform/PathText.h"

#include <system_error>

namespace VornPlatform {

bool isReadableAtOnce(const std::filesystem::path& path) {
    std::error_code ignored;
    const auto type = std::filesystem::status(path, ignored).type();
    return type == std::filesystem::file_type::regular ||
           type == std::filesystem::file_type::character;
}

}  // namespace VornPlatform
