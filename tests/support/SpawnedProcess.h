#pragma once

#include "tests/support/TestSupport.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace TestSupport {

// A variable of this process's environment; empty when it is not set.
std::string environment(const char* name);

// What a program has written into a file so far, with line ends of LF.
std::string writtenText(const std::string& file);

// A running program, the leader of a session of its own, so that all that it
// starts can be found and ended with it. Its output is appended to two files,
// its input is empty, its signal handling the default. One thread.
class SpawnedProcess {
public:
    // The first word is the program, looked for along PATH when it has no "/".
    // Each of `variables` is "NAME=VALUE" and comes on top of this process's
    // environment. Throws std::runtime_error when it cannot be started.
    SpawnedProcess(const std::vector<std::string>& line, const std::string& outputFile,
                   const std::string& errorsFile,
                   const std::vector<std::string>& variables = {});
    // Kills what still runs.
    ~SpawnedProcess();
    SpawnedProcess(const SpawnedProcess&) = delete;
    SpawnedProcess& operator=(const SpawnedProcess&) = delete;

    int id() const { return id_; }
    // The exit status (128 + signal's number for a killed one), or nothing when
    // the process has not ended within the bound.
    std::optional<int> waitForExit(std::chrono::milliseconds bound = kPatience);
    bool hasExited() { return waitForExit(std::chrono::milliseconds(0)).has_value(); }
    void signal(int number) const;
    // Whether processes that it started are still there.
    bool hasLeftOthers() const;

    std::string output() const;  // so far, as writtenText() gives it
    std::string errors() const;

private:
    const std::string outputFile_;
    const std::string errorsFile_;
    int id_ = -1;
    std::optional<int> status_;
};

}  // namespace TestSupport
