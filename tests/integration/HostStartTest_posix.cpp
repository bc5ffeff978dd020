// How a native host is started, and what becomes of what it prints.

#include "tests/support/ClientLauncher.h"
#include "tests/support/DaemonLauncher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

namespace IntegrationTests {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using namespace TestSupport;

using Words = std::vector<std::string>;

std::string binFolder() { return std::getenv("RUVO_BIN"); }

// A shell that runs `script`, in which $1 is the folder of the host, $2 a
// properties file and $3 an empty folder.
class HostStart : public ::testing::Test {
protected:
    HostStart() {
        writeFile(properties_, "ruvod.operating-directory=" + place_.text() +
                                   "\nruvod.tcp-server.port=0\nlogging.level=5\n");
    }
    Words line(const std::string& script) const {
        return {"bash", "-c", script, "bash", binFolder(), properties_, elsewhere_.text()};
    }
    // Whether a daemon that is started like this serves and stops.
    void expectToRun(const std::string& script) const {
        ClientProcess host(line(script));
        EXPECT_TRUE(host.outputs("ruvohost: ready\n")) << script << host.errors();
        host.signal(SIGTERM);
        EXPECT_EQ(host.waitForExit(), 0) << script;
        EXPECT_EQ(host.errors(), "") << script;
    }
    // What a daemon with this log file says on standard error until it is ready.
    std::string complaintsWithLog(const std::string& file) const {
        writeFile(properties_, "ruvod.operating-directory=" + place_.text() +
                                   "\nlogging.level=5\nlogging.file=" + file + "\n");
        ClientProcess host(line(R"(exec "$1/ruvohost" --properties "$2")"));
        EXPECT_TRUE(host.outputs("ruvohost: ready\n")) << host.errors();
        const std::string said = host.errors();
        host.signal(SIGTERM);
        EXPECT_EQ(host.waitForExit(), 0);
        return said;
    }

    const TemporaryDirectory place_;
    const TemporaryDirectory elsewhere_;
    const std::string properties_ = place_.file("d.properties");
};

TEST_F(HostStart, FindsItsModuleWhenItIsFoundThroughPath) {
    expectToRun(R"(cd "$3"; PATH=$1:$PATH; exec ruvohost --properties "$2")");
    expectToRun(R"(cd "$1/.."; PATH=${1##*/}:$PATH; exec ruvohost --properties "$2")");
}

TEST_F(HostStart, FindsItsModuleThroughASymbolicLink) {
    expectToRun(R"(ln -s "$1/ruvohost" "$3/host"; exec "$3/host" --properties "$2")");
    expectToRun(R"(cd "$3"; PATH=$3:$PATH; exec host --properties "$2")");
    expectToRun(R"(ln -s "$1" "$3/bin"; cd "$3"; exec bin/ruvohost --properties "$2")");
}

TEST_F(HostStart, FindsItsModuleWhateverNameItIsGiven) {
    for (const std::string name : {"x", "/x/y/ruvohost", "./ruvohost", "''"}) {
        expectToRun("cd \"$3\"; exec -a " + name + " \"$1/ruvohost\" --properties \"$2\"");
    }
}

TEST_F(HostStart, TellsWhenItsOutputCannotBeWritten) {
    writeFile(properties_, "ruvod.nonsense=1\n");
    for (const std::string arguments : {"--help", "--version", "check --properties \"$2\""}) {
        const ClientRun run = runProgram(line("\"$1/ruvohost\" " + arguments + " >/dev/full"));
        EXPECT_EQ(run.status, 1) << arguments;
        EXPECT_EQ(run.errors, "ruvohost: cannot write to standard output\n") << arguments;
    }
    EXPECT_EQ(runProgram(line("\"$1/ruvohost\" --nonsense >/dev/full")).status, 2);
}

TEST_F(HostStart, TellsOfALogThatCannotBeWritten) {
    const std::string fifo = elsewhere_.file("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& file : {elsewhere_.text(), std::string("/dev/full"), fifo}) {
        const std::string said = complaintsWithLog(file);
        EXPECT_THAT(said, StartsWith("VornLogging: the log file " + file + " cannot be written: "));
        EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
    }
    EXPECT_EQ(complaintsWithLog(elsewhere_.file("good.log")), "");
}

}  // namespace
}  // namespace IntegrationTests
