#include "benchmarks/harness/Servers.h"

#include "benchmarks/harness/BlockingSocket.h"
#include "benchmarks/harness/Placement.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace RuvoBench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kMemory = "/dev/shm";

double msSince(Clock::time_point begin) {
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

// Another program may take it before the daemon does; then the figure fails.
std::uint16_t freePort() {
    std::uint16_t port = 0;
    listenOnLoopback(port);
    return port;
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void writeProperties(const std::string& path, const Daemon::Values& values) {
    std::ofstream file(path);
    for (const auto& [key, value] : values) file << key << '=' << value << '\n';
    if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

std::vector<std::string> bareCommand(const Settings& settings,
                                     const std::vector<std::string>& arguments) {
    std::vector<std::string> command{settings.bareProgram};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

}  // namespace

TemporaryFolder::TemporaryFolder(Place place) {
    std::filesystem::path parent = std::filesystem::temp_directory_path();
    if (place == Place::Memory && ::access(kMemory, W_OK) == 0) parent = kMemory;
    std::string name = (parent / "ruvobench-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throwErrno("mkdtemp");
    folder_ = name;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

Daemon::Daemon(const Settings& settings, const Values& values) : port_(freePort()) {
    Values all{{"ruvod.operating-directory", folder_.path("")},
               {"ruvod.tcp-server.port", std::to_string(port_)},
               {"ruvod.udp-server.port", std::to_string(freePort())},
               {"ruvod.pipe-server.name", folder_.path("administrators")},
               {"ruvod.local-access", "any"},
               {"logging.level", "0"},
               {"logging.file", folder_.path("ruvod.log")}};
    all.insert(all.end(), values.begin(), values.end());
    const std::string file = folder_.path("ruvod.properties");
    const std::string errors = folder_.path("errors");
    writeProperties(file, all);

    const auto begin = Clock::now();
    process_.emplace(
        std::vector<std::string>{settings.programs + "/ruvohost", "run", "--properties", file},
        serverProcessor(), errors);
    try {
        while (process_->readLine() != "ruvohost: ready") continue;
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(std::string(error.what()) + ": " + contentOf(errors));
    }
    startMs_ = msSince(begin);
}

BareServer::BareServer(const Settings& settings, const std::vector<std::string>& arguments)
    : process_(bareCommand(settings, arguments), serverProcessor(), folder_.path("errors")) {
    const std::string line = process_.readLine();
    startMs_ = msSince(begin_);
    port_ = static_cast<std::uint16_t>(std::stoul(line));
}

}  // namespace RuvoBench
