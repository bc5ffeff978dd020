#include "runtime/platform/Export.h"

#include <fstream>
#include <string>

// A library for ModuleLoaderTest: it tells when it is loaded and unloaded, and
// can be called.
namespace {

std::string goodbyeFile;

struct Goodbye {
    ~Goodbye() {
        if (!goodbyeFile.empty()) std::ofstream(goodbyeFile) << "unloaded";
    }
} goodbye;

}  // namespace

extern "C" VORN_EXPORT int pluginAdd(int a, int b) { return a + b; }
extern "C" VORN_EXPORT void pluginSayGoodbyeTo(const char* file) { goodbyeFile = file; }
