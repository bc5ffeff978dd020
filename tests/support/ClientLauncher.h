#pragma once

#include "tests/support/SpawnedProcess.h"
#include "tests/support/TestSupport.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace TestSupport {

// True when the client under test runs in an emulator.
bool isClientEmulated();
// A path of this system as the client under test writes it.
std::string clientPath(const std::string& path);

// A running program, its output in files of a directory of its own. A test that
// uses it is a native program, also where the program under test is not.
class ClientProcess {
public:
    // See SpawnedProcess.
    explicit ClientProcess(const std::vector<std::string>& line)
        : process_(line, directory_.file("output"), directory_.file("errors")) {}

    std::optional<int> waitForExit(std::chrono::milliseconds bound = kPatience) {
        return process_.waitForExit(bound);
    }
    void signal(int number) const { process_.signal(number); }

    // What it has written so far, with line ends of LF.
    std::string output() const { return process_.output(); }
    std::string errors() const { return process_.errors(); }
    // Whether that holds, or gets in time, this text.
    bool outputs(const std::string& text) const;
    bool complains(const std::string& text) const;

private:
    TemporaryDirectory directory_;
    SpawnedProcess process_;
};

// The ruvoctl that RUVO_CLIENT_BIN names, through RUVO_CLIENT_EMULATOR where
// that is set.
std::vector<std::string> ruvoctlLine(const std::vector<std::string>& arguments);

// What a run of a program to its end gave.
struct ClientRun {
    int status = -1;  // -1: it did not end in time
    std::string output;
    std::string errors;
};
ClientRun runProgram(const std::vector<std::string>& line);
ClientRun runRuvoctl(const std::vector<std::string>& arguments);

}  // namespace TestSupport
