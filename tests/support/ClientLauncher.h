#pragma once

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
    // The first word is the program, looked for along PATH when it has no "/".
    explicit ClientProcess(const std::vector<std::string>& line);
    // Kills what still runs.
    ~ClientProcess();
    ClientProcess(const ClientProcess&) = delete;
    ClientProcess& operator=(const ClientProcess&) = delete;

    // The exit status (128 + signal's number for a killed one), or nothing when
    // the process has not ended within the bound.
    std::optional<int> waitForExit(std::chrono::milliseconds bound = kPatience);
    void signal(int number) const;

    // What it has written so far, with line ends of LF.
    std::string output() const;
    std::string errors() const;
    // Whether that holds, or gets in time, this text.
    bool outputs(const std::string& text) const;
    bool complains(const std::string& text) const;

private:
    TemporaryDirectory directory_;
    int id_ = -1;
    std::optional<int> status_;
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
