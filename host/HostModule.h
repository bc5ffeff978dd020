#pragma once

#include "service/RuvoHostApi.h"

#include <string>

namespace RuvoHost {

// Loads the core module from this program's own folder and gives out its table;
// it stays loaded for the life of the process. Null, with a text in `error`,
// when there is none that fits.
const RuvoHostApi* loadHostModule(std::string& error);

}  // namespace RuvoHost
