#include "runtime/support/ModuleData.h"

namespace VornSupport {

ModuleData::~ModuleData() = default;

}  // namespace VornSupport
