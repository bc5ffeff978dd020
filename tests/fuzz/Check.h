#pragma once

#include <stdexcept>
#include <string>

namespace FuzzTests {

// A property that does not hold. The fuzzing library takes an exception that
// nobody catches for a crash and keeps the input; the replay reports it.
class Broken : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// `what` holds, in words that a report can begin with.
inline void check(bool holds, const std::string& what) {
    if (!holds) throw Broken("does not hold: " + what);
}

}  // namespace FuzzTests
