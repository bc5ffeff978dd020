// What only a native client and daemon can be asked: signals and other users.

#include "client/RuvoJobs.h"
#include "tests/support/ClientLauncher.h"
#include "tests/support/DaemonLauncher.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/fsuid.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <thread>

namespace IntegrationTests {

using namespace TestSupport;

namespace {

// How often the last registration was taken back.
int unregistrations(const Daemon& daemon) {
    const std::string log = daemon.log();
    const std::string text = "RUVO_NN_UNREGISTER::handleClient: nconsumers=0\n";
    int count = 0;
    for (auto at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) ++count;
    return count;
}

}  // namespace

TEST(RuvoctlNative, UnregistersWhenItIsInterrupted) {
    Daemon daemon({.logLevel = 9});
    const std::string port = std::to_string(daemon.tcpPort());
    int rounds = 0;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        ++rounds;
        ClientProcess watcher(ruvoctlLine({"--port", port, "watch", "."}));
        ASSERT_TRUE(watcher.complains("watching")) << watcher.errors();
        watcher.signal(number);
        EXPECT_EQ(watcher.waitForExit(), 0) << watcher.errors();
        EXPECT_TRUE(waitUntil([&] { return unregistrations(daemon) == rounds; }));
    }
}

TEST(RuvoctlNative, UnregistersWhenNobodyReadsItsOutput) {
    Daemon daemon({.logLevel = 9});
    const std::string port = std::to_string(daemon.tcpPort());
    std::string line;
    for (const std::string& word : ruvoctlLine({"--port", port, "watch", "."})) line += word + " ";
    ClientProcess shell({"sh", "-c", line + "| read -r first"});
    ASSERT_TRUE(shell.complains("watching")) << shell.errors();
    // The second event meets nobody.
    EXPECT_TRUE(waitUntil([&] {
        EXPECT_EQ(runRuvoctl({"--port", port, "notify", "event"}).status, 0);
        return shell.waitForExit(std::chrono::milliseconds(0)).has_value();
    }));
    EXPECT_TRUE(waitUntil([&] { return unregistrations(daemon) == 1; }));
}

TEST(RuvoctlNative, TellsWhenItsOutputCannotBeWritten) {
    Daemon daemon;
    const std::string port = std::to_string(daemon.tcpPort());
    ASSERT_EQ(runRuvoctl({"--port", port, "job", "create", "a"}).status, 0);
    const auto runInto = [&](const std::string& output, const std::vector<std::string>& arguments) {
        std::vector<std::string> line = {"sh", "-c", "\"$@\" " + output, "sh"};
        for (const std::string& word : ruvoctlLine({"--port", port})) line.push_back(word);
        line.insert(line.end(), arguments.begin(), arguments.end());
        return runProgram(line);
    };
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"job", "lookup", "a"}, {"job", "get", "a"},
          {"job", "progress", "a", "5"}, {"job", "get", "a", "--json"},
          {"raw", "JobStatus", "RUVO_JS_LOOKUP", "s:a", "--expect", "i"},
          {"raw", "JobStatus", "RUVO_JS_LOOKUP", "s:a"}, {"--help"}, {"--version"}}) {
        for (const std::string output : {">/dev/full", ">&-"}) {
            const ClientRun run = runInto(output, arguments);
            EXPECT_EQ(run.status, 4) << arguments[0] << output;
            EXPECT_EQ(run.errors, "ruvoctl: cannot write to standard output\n");
        }
    }
    EXPECT_EQ(runInto(">/dev/full", {"notify", "e"}).status, 0);  // prints nothing
}

TEST(RuvoctlNative, GoesOnWhenAnotherWatcherIsKilled) {
    Daemon daemon;
    const std::string port = std::to_string(daemon.tcpPort());
    ClientProcess killed(ruvoctlLine({"--port", port, "watch", "."}));
    ASSERT_TRUE(killed.complains("watching")) << killed.errors();
    ClientProcess watcher(ruvoctlLine({"--port", port, "watch", ".", "--count", "2"}));
    ASSERT_TRUE(watcher.complains("watching")) << watcher.errors();
    EXPECT_EQ(runRuvoctl({"--port", port, "notify", "first"}).status, 0);
    EXPECT_TRUE(killed.outputs("first"));
    killed.signal(SIGKILL);
    EXPECT_EQ(killed.waitForExit(), 128 + SIGKILL);
    EXPECT_EQ(runRuvoctl({"--port", port, "notify", "second"}).status, 0);
    EXPECT_EQ(watcher.waitForExit(), 0) << watcher.errors();
}

TEST(RuvoctlNative, ShowsItselfInADemonstration) {
    const std::string demo = std::string(std::getenv("RUVO_SOURCE_DIR")) + "/client/demo.sh";
    const ClientRun shown = runProgram({demo, std::getenv("RUVO_BIN")});
    EXPECT_EQ(shown.status, 0) << shown.errors;
    for (const char* line :
         {"VornJSEvent:nightly-backup created", "VornJSEvent:nightly-backup progress",
          "VornJSEvent:nightly-backup cancelled", "VornJSEvent:nightly-backup completed",
          "disk.failed", "VornRAEvent:store:shelf-3 locked", "(status 75)",
          "the second client's command says: the shelf is mine", "the daemon has gone", "Everything happened as it should."}) {
        EXPECT_NE(shown.output.find(line), std::string::npos) << line << '\n' << shown.output;
    }
}

TEST(RuvoctlNative, SaysWhatWentWrongInADemonstration) {
    const std::string demo = std::string(std::getenv("RUVO_SOURCE_DIR")) + "/client/demo.sh";
    const TemporaryDirectory bin;
    for (const char* name : {"ruvohost", "ruvoctl"}) {
        writeFile(bin.file(name), "#!/bin/sh\nexit 1\n");
        std::filesystem::permissions(bin.path() / name, std::filesystem::perms::owner_all);
    }
    const ClientRun failed = runProgram({demo, bin.text()});
    EXPECT_EQ(failed.status, 1);
    EXPECT_NE(failed.errors.find("demo: FAILED: the daemon does not listen"), std::string::npos)
        << failed.errors;
    EXPECT_EQ(runProgram({demo}).status, 2);
    EXPECT_EQ(runProgram({demo, "/no/such/folder"}).status, 2);
}

TEST(RuvoctlNative, NoticesADaemonThatIsKilled) {
    Daemon daemon;
    const std::string port = std::to_string(daemon.tcpPort());
    ClientProcess watcher(ruvoctlLine({"--port", port, "watch", "."}));
    ASSERT_TRUE(watcher.complains("watching")) << watcher.errors();
    daemon.kill();
    EXPECT_EQ(watcher.waitForExit(), 3);
}

TEST(RuvoctlNative, AdmitsTheOwnerAndRefusesOtherUsers) {
    Daemon daemon;
    Ruvo::RuvoClientOptions options;
    options.port = daemon.tcpPort();
    std::optional<Ruvo::RuvoProblem> problem;
    const bool asNobody = ::geteuid() == 0;
    std::thread user([&] {
        // The system notes the owner of a socket from an id that each thread has.
        if (asNobody) ::setfsuid(65534);
        try {
            Ruvo::RuvoClient client(options);
            EXPECT_FALSE(Ruvo::RuvoJobs(client).lookup("none"));
        } catch (const Ruvo::RuvoClientError& error) {
            problem = error.problem();
        }
    });
    user.join();
    if (asNobody) {
        EXPECT_EQ(problem, Ruvo::RuvoProblem::AccessRefused);
    } else {
        EXPECT_EQ(problem, std::nullopt);
    }
    EXPECT_TRUE(daemon.serves());
}

}  // namespace IntegrationTests
