#include "tests/support/ClientLauncher.h"

#include <stdexcept>

namespace TestSupport {
bool isClientEmulated() { return !environment("RUVO_CLIENT_EMULATOR").empty(); }

std::string clientPath(const std::string& path) { return isClientEmulated() ? "Z:" + path : path; }

bool ClientProcess::outputs(const std::string& text) const {
    return waitUntil([&] { return output().find(text) != std::string::npos; });
}

bool ClientProcess::complains(const std::string& text) const {
    return waitUntil([&] { return errors().find(text) != std::string::npos; });
}

std::vector<std::string> ruvoctlLine(const std::vector<std::string>& arguments) {
    const std::string folder = environment("RUVO_CLIENT_BIN");
    if (folder.empty()) throw std::runtime_error("RUVO_CLIENT_BIN names the client's folder");
    std::vector<std::string> line;
    if (isClientEmulated()) line.push_back(environment("RUVO_CLIENT_EMULATOR"));
    line.push_back(folder + "/ruvoctl");
    line.insert(line.end(), arguments.begin(), arguments.end());
    return line;
}

ClientRun runProgram(const std::vector<std::string>& line) {
    ClientProcess process(line);
    ClientRun run;
    run.status = process.waitForExit().value_or(-1);
    run.output = process.output();
    run.errors = process.errors();
    return run;
}

ClientRun runRuvoctl(const std::vector<std::string>& arguments) {
    return runProgram(ruvoctlLine(arguments));
}

}  // namespace TestSupport
