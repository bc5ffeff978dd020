#pragma once

#include "tests/support/ClientLauncher.h"
#include "tests/support/DaemonLauncher.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace IntegrationTests {

using namespace TestSupport;
using Arguments = std::vector<std::string>;

// "ruvoctl task" against a daemon of its own.
class RuvoctlTasks : public ::testing::Test {
protected:
    Arguments line(const Arguments& arguments) const {
        Arguments all = {"--port", std::to_string(daemon_.tcpPort()), "task"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }
    ClientRun run(const Arguments& arguments) const { return runRuvoctl(line(arguments)); }
    std::string done(const Arguments& arguments) const {
        const ClientRun result = run(arguments);
        EXPECT_EQ(result.status, 0) << ::testing::PrintToString(arguments) << result.errors;
        return result.output;
    }
    nlohmann::json json(Arguments arguments) const {
        arguments.push_back("--json");
        return nlohmann::json::parse(done(arguments));
    }
    // Has it run in two seconds and returns its handle: by its name it can be asked
    // for no more once it has run, which on a busy machine it may have when the
    // next program comes to it.
    std::string soon(const std::string& name, const Arguments& how) const {
        Arguments all = {"schedule", name, "--at", "+2s"};
        all.insert(all.end(), how.begin(), how.end());
        const std::string output = done(all) + ' ';
        const std::string begin = "task " + name + " has handle ";
        EXPECT_EQ(output.substr(0, begin.size()), begin);
        const std::size_t from = std::min(begin.size(), output.size());
        return output.substr(from, output.find(' ', from) - from);
    }
    // The end of "task wait" for one that soon() has run. What the daemon reads only
    // after its time it runs two minutes later.
    ClientRun waitFor(const std::string& handle) const {
        ClientProcess process(ruvoctlLine(line({"wait", "--handle", handle, "--for", "180"})));
        ClientRun result;
        result.status = process.waitForExit(std::chrono::seconds(200)).value_or(-1);
        result.output = process.output();
        result.errors = process.errors();
        return result;
    }
    std::string file(std::string_view name) const { return folder_.file(name); }
    WireClient client() const { return daemon_.client(); }
    // How many programs have come to follow a task so far.
    int followers() const {
        const std::string log = daemon_.log();
        int count = 0;
        for (auto at = log.find(kFollowed); at != log.npos; at = log.find(kFollowed, at + 1)) ++count;
        return count;
    }

private:
    static constexpr const char* kFollowed = "RUVO_TS_FOLLOW::handleClient: exit";

    const TemporaryDirectory folder_;
    const Daemon daemon_{Daemon::Options{.properties = "ruvod.load-monitors=SchedulerFollow\n",
                                        .logLevel = 9}};
};

}  // namespace IntegrationTests
