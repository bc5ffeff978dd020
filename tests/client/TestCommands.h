#pragma once

#include <string>
#include <vector>

// Commands of the system that a test runs under a lock. Paths hold no quotes.
namespace ClientTest {

using Words = std::vector<std::string>;

// Ends with this status.
Words exitingWith(int status);
// Writes the value of RUVO_LOCK_HANDLE, and a line end, to a file.
Words writingTheHandle(const std::string& file);
// Creates `begun`, and when `go` exists removes it and ends with `status`.
Words until(const std::string& begun, const std::string& go, int status);

}  // namespace ClientTest
