#include "tests/support/DaemonLauncher.h"

#include <signal.h>
#include <sys/fsuid.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace TestSupport {
namespace {

constexpr uid_t kNobody = 65534;

int entriesOf(const std::string& directory) {
    std::error_code failed;
    const std::filesystem::directory_iterator entries(directory, failed);
    return failed ? -1 : static_cast<int>(std::distance(begin(entries), end(entries)));
}

// A line that "ruvohost: listening on tcp:[::]:4711" ends in gives 4711.
std::uint16_t portAtEnd(const std::string& line) {
    return static_cast<std::uint16_t>(std::stoul(line.substr(line.rfind(':') + 1)));
}

}  // namespace

bool isEmulated() { return !environment("RUVO_EMULATOR").empty(); }

std::string foreignPath(const std::string& path) { return isEmulated() ? "Z:" + path : path; }

std::string foreignShellPath(std::string path) {
    path = foreignPath(path);
    if (isEmulated()) std::replace(path.begin(), path.end(), '/', '\\');
    return path;
}

// ---- HostProcess ---------------------------------------------------------------

namespace {

// The emulator has a "TEMP" of its own, and one for the program under this name.
std::string tempVariable(const std::string& folder) {
    return (isEmulated() ? "WINETEMP=" : "TEMP=") + foreignShellPath(folder);
}

std::vector<std::string> hostLine(const std::vector<std::string>& arguments) {
    std::vector<std::string> line;
    if (isEmulated()) line.push_back(environment("RUVO_EMULATOR"));
    const std::string folder = environment("RUVO_BIN");
    if (folder.empty()) throw std::runtime_error("RUVO_BIN names the folder of the programs");
    line.push_back(folder + "/ruvohost");
    line.insert(line.end(), arguments.begin(), arguments.end());
    return line;
}

}  // namespace

HostProcess::HostProcess(const std::vector<std::string>& arguments, const std::string& directory,
                         const std::string& temp)
    : SpawnedProcess(hostLine(arguments), directory + "/output.txt", directory + "/errors.txt",
                     {tempVariable(temp)}) {}

HostRun runHost(const std::vector<std::string>& arguments) {
    const TemporaryDirectory directory;
    HostProcess process(arguments, directory.text());
    HostRun run;
    run.status = process.waitForExit().value_or(-1);
    run.output = process.output();
    run.errors = process.errors();
    return run;
}

// ---- Daemon --------------------------------------------------------------------

Daemon::Daemon(const Options& options) : options_(options) {
    writeProperties(options.properties);
    process_.emplace(
        std::vector<std::string>{"--properties", foreignPath(file("daemon.properties"))},
        directory_.text(), options.temp.empty() ? directory_.text() : options.temp);
    waitUntil([this] { return readAddresses() || process_->hasExited(); });
    if (!readAddresses()) {
        throw std::runtime_error("the daemon did not get ready: " + process_->output() +
                                 process_->errors() + log());
    }
}

Daemon::~Daemon() {
    if (!process_->hasExited() && stop() == -1) {
        std::cerr << "The daemon did not stop and is killed:\n" << log();
    }
}

void Daemon::writeProperties(const std::string& lines) const {
    std::ostringstream text;
    text << "ruvod.operating-directory=" << foreignPath(directory_.text()) << '\n'
         << "logging.level=" << options_.logLevel << "\nlogging.target=2\n"
         << "ruvod.tcp-server.port=0\n";
    if (options_.udp) text << "ruvod.udp-server.port=0\n";
    // The owner of a process outside the emulator cannot be found inside.
    if (isEmulated()) text << "ruvod.local-access=any\n";
    writeFile(file("daemon.properties"), text.str() + lines);
}

// False while the daemon is not ready.
bool Daemon::readAddresses() {
    std::istringstream lines(process_->output());
    for (std::string line; std::getline(lines, line);) {
        if (line == "ruvohost: ready") return true;
        if (line.starts_with("ruvohost: listening on tcp:")) tcpPort_ = portAtEnd(line);
        if (line.starts_with("ruvohost: listening on udp:")) udpPort_ = portAtEnd(line);
    }
    return false;
}

WireClient Daemon::client() const {
    WireClient client(tcpPort_);
    client.open();
    return client;
}

int Daemon::stop() {
    if (isEmulated()) {
        try {
            client().send(WireText().shortNumber(1).shortNumber(9999));
        } catch (const std::exception& e) {
            std::cerr << "The daemon takes no request to stop: " << e.what() << '\n';
        }
    } else {
        process_->signal(SIGTERM);
    }
    return process_->waitForExit().value_or(-1);
}

void Daemon::kill() {
    process_->signal(SIGKILL);
    process_->waitForExit();
}

bool Daemon::serves() const {
    auto client = this->client();
    client.send(WireText().shortNumber(1).request("JobStatus", "RUVO_JS_LOOKUP").string("none"));
    return client.readNumber() == -1;
}

std::string Daemon::log() const { return writtenText(file("ruvod.log")); }

bool Daemon::logs(int level, const std::string& text) const {
    return logsBeginning(level, text + '\n');
}

bool Daemon::logsBeginning(int level, const std::string& beginning) const {
    const std::string wanted = "] " + std::to_string(level) + ' ' + beginning;
    return waitUntil([&] { return log().find(wanted) != std::string::npos; });
}

// ---- strangers -----------------------------------------------------------------

namespace {

// The system notes the owner of a socket when it is made, from an id that each
// thread has of its own.
std::string openAsNobody(std::uint16_t port) {
    std::string answer;
    std::thread nobody([&] {
        ::setfsuid(kNobody);
        WireClient client(port);
        client.send("RUVO\n");
        answer = client.readRest();
    });
    nobody.join();
    return answer;
}

// A socket that nobody owns any more: its process closed it while the daemon
// was kept from looking.
std::string openAndLeave(Daemon& daemon) {
    daemon.process().signal(SIGSTOP);
    {
        WireClient client(daemon.tcpPort());
        client.send("RUVO\n");
    }
    daemon.process().signal(SIGCONT);
    return "";
}

}  // namespace

std::string openAsStranger(Daemon& daemon) {
    if (isEmulated()) {
        WireClient client(daemon.tcpPort());
        client.send("RUVO\n");
        return client.readRest();
    }
    return ::geteuid() == 0 ? openAsNobody(daemon.tcpPort()) : openAndLeave(daemon);
}

int threadsOf(int process) { return entriesOf("/proc/" + std::to_string(process) + "/task"); }
int descriptorsOf(int process) { return entriesOf("/proc/" + std::to_string(process) + "/fd"); }

}  // namespace TestSupport
