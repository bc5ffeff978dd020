#include "runtime/platform/BatchCommand.h"

#include <string_view>

namespace VornPlatform {

// The interpreter takes the outer pair of two pairs of quotes away, whatever
// stands between them.
std::string batchCommand(const std::string& file) {
    constexpr std::string_view kSpecial = " \t&()[]{}^=;!'+,`~@";
    if (file.find_first_of(kSpecial) == std::string::npos) return "cmd /c " + file;
    return "cmd /c \"\"" + file + "\"\"";
}

bool provideInterpreter(const std::string&) { return true; }

}  // namespace VornPlatform
