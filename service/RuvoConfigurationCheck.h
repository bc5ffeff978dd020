#pragma once

#include <functional>
#include <string>

namespace RuvoService {

// Looks through a properties file without starting or changing anything, and
// calls `found` for each thing that is wrong with it: the file cannot be read,
// a line has no key and value, a key is unknown, given twice or missing, a value
// cannot be used. A complaint is one line, "FILE:NUMBER: KEY: what is wrong".
void checkConfiguration(const std::string& fileName,
                        const std::function<void(const std::string& line)>& found);

}  // namespace RuvoService
