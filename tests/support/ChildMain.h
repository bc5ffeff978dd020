#pragma once

#include <string>
#include <string_view>

// A test program that links test_child_main in place of the usual main() can
// start itself as a child that does one thing:
//   exit N            ends with status N
//   args FILE ...     writes FILE: every further argument in a line of its own
//   until FILE        ends with status 0 when FILE exists, with 1 after a minute
//   touch FILE DONE   as "until FILE", then creates DONE
//   tell BEGUN FILE DONE  creates BEGUN, then as "touch"
//   read FILE         reads standard input to its end, writes to both outputs,
//                     and creates FILE with the number of bytes read
//   copy FROM FILE    copies a file of text (also one of /proc) to FILE
//   list FOLDER FILE  writes the names in a folder to FILE
//   env NAME FILE     writes FILE: the value of an environment variable
//   stderr TEXT       writes TEXT to standard error
namespace TestSupport {

// A command line that starts this program as such a child.
std::string childCommand(std::string_view arguments);

// `text` as one argument, for both platforms' ways of reading command lines; it
// must not hold quotes or end in a backslash.
std::string inQuotes(std::string_view text);

}  // namespace TestSupport
