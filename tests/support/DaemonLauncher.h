#pragma once

#include "tests/support/SpawnedProcess.h"
#include "tests/support/TestSupport.h"
#include "tests/support/WireClient.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

// Programs of the build that RUVO_BIN names, through RUVO_EMULATOR where that is
// set. A test that uses these is a native program, also where the programs under
// test are Windows ones.

// True when the programs under test run in an emulator.
bool isEmulated();
// A path of this system as the programs under test write it.
std::string foreignPath(const std::string& path);
// The same as their command interpreter takes it.
std::string foreignShellPath(std::string path);

// A running ruvohost with its descendants.
class HostProcess : public SpawnedProcess {
public:
    // Starts it with these arguments; the output goes to files in `directory`.
    // `temp` is its folder for temporary files.
    HostProcess(const std::vector<std::string>& arguments, const std::string& directory,
                const std::string& temp);
    HostProcess(const std::vector<std::string>& arguments, const std::string& directory)
        : HostProcess(arguments, directory, directory) {}
};

// What a run of ruvohost to its end gave.
struct HostRun {
    int status = -1;
    std::string output;
    std::string errors;
};
HostRun runHost(const std::vector<std::string>& arguments);

// A real daemon in a temporary directory, ready for clients once constructed.
// It listens on free ports and logs everything of the level given.
class Daemon {
public:
    struct Options {
        std::string properties = {};  // further lines of the file; later ones count
        bool udp = false;        // listens for UDP clients too
        int logLevel = 5;
        // The folder in which it keeps its tasks; its own directory when empty.
        std::string temp = {};
    };

    Daemon() : Daemon(Options{}) {}
    // Throws std::runtime_error, with what the daemon said, when it does not get
    // ready in time.
    explicit Daemon(const Options& options);
    // Stops it unless that was done; kills it when it does not stop in time.
    ~Daemon();

    std::uint16_t tcpPort() const { return tcpPort_; }
    std::uint16_t udpPort() const { return udpPort_; }
    // A client in an open conversation.
    WireClient client() const;

    HostProcess& process() { return *process_; }
    // Asks it to stop and waits for that: the exit status, or -1 when it does
    // not come in time. A signal natively, the code 9999 in an emulator.
    int stop();
    // Ends it the hard way: one that admits nobody who could ask.
    void kill();
    // Whether it answers a request of an engine.
    bool serves() const;

    // The log so far, with line ends of LF.
    std::string log() const;
    // Whether the log has, or gets in time, a record of this level and text;
    // with `beginning`, one that begins so.
    bool logs(int level, const std::string& text) const;
    bool logsBeginning(int level, const std::string& beginning) const;

    std::string file(std::string_view name) const { return directory_.file(name); }
    // Writes the properties file anew, with these further lines.
    void writeProperties(const std::string& lines) const;

private:
    bool readAddresses();

    TemporaryDirectory directory_;
    Options options_;
    std::optional<HostProcess> process_;
    std::uint16_t tcpPort_ = 0;
    std::uint16_t udpPort_ = 0;
};

// Connects to the port as somebody whom "ruvod.local-access=owner" does not
// admit and opens with the word RUVO. Returns what the daemon answered up to the
// end of the connection.
std::string openAsStranger(Daemon& daemon);

// ---- native daemons only

int threadsOf(int process);
int descriptorsOf(int process);

}  // namespace TestSupport
