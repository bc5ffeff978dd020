#pragma once

#include "tests/support/ClientLauncher.h"
#include "tests/support/DaemonLauncher.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

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
    std::string file(std::string_view name) const { return folder_.file(name); }
    WireClient client() const { return daemon_.client(); }

private:
    const TemporaryDirectory folder_;
    const Daemon daemon_{Daemon::Options{.properties = "ruvod.load-monitors=SchedulerFollow\n"}};
};

}  // namespace IntegrationTests
