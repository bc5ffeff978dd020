// The program of the bare servers: ruvobare MODE ARGUMENT ..., see BareServers.h.

#include "benchmarks/bare/BareServers.h"

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <sstream>
#include <string>
#include <string_view>

namespace RuvoBench {

void announcePort(std::uint16_t port) {
    std::printf("%u\n", static_cast<unsigned>(port));
    std::fflush(stdout);
}

namespace {

std::vector<std::uint16_t> portsOf(const std::string& list) {
    std::vector<std::uint16_t> ports;
    std::istringstream fields(list);
    for (std::string field; std::getline(fields, field, ',');) {
        ports.push_back(static_cast<std::uint16_t>(std::stoul(field)));
    }
    return ports;
}

int run(const std::vector<std::string>& arguments) {
    const auto number = [&arguments](std::size_t i) { return std::stoul(arguments.at(i)); };
    const std::string mode = arguments.empty() ? "" : arguments[0];
    if (mode == "ping") servePing(number(1), number(2), false);
    if (mode == "greet") servePing(number(1), number(2), true);
    if (mode == "conversation") serveConversations();
    if (mode == "hop") {
        serveHop(number(1), number(2), number(3), static_cast<std::uint16_t>(number(4)));
    }
    if (mode == "fan") serveFan(number(1), portsOf(arguments.at(2)));
    std::fputs("ruvobare ping|greet|conversation|hop|fan NUMBER ...: started by ruvobench\n", stderr);
    return 2;
}

}  // namespace
}  // namespace RuvoBench

int main(int argc, char** argv) {
    ::signal(SIGTERM, [](int) { ::_exit(0); });
    try {
        return RuvoBench::run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ruvobare: %s\n", error.what());
        return 1;
    }
}
