#pragma once

#include "client/ruvoctl/Session.h"

#include <string>
#include <vector>

namespace Ruvoctl {

// Runs the program with these arguments (its own name left out) and returns its
// exit status. Never throws. Unknown commands and options are told on `err`.
int run(const std::vector<std::string>& arguments, Surroundings& surroundings);

}  // namespace Ruvoctl
