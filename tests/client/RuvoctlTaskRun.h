#pragma once

#include "tests/client/RuvoctlRun.h"
#include "tests/client/ScriptedDaemon.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Runs of "ruvoctl task" against a daemon that follows a script.
namespace ClientTest {

using Arguments = std::vector<std::string>;
using Exchange = std::pair<std::string, std::string>;

inline constexpr std::int64_t kNext = 1'795'314'605;  // 2026-11-22T02:30:05Z
inline const std::string kNextAnswer = i32(0) + str("2026 11 22 02 30 05");

inline std::string task(std::string_view command, const std::string& arguments = "") {
    return engineRequest("Scheduler", command, arguments);
}

struct Result {
    int status = -1;
    std::string out;
    std::string err;
};

inline Result run(const Arguments& arguments) {
    RuvoctlRun ruvoctl;
    Result result;
    result.status = ruvoctl.run(arguments);
    result.out = ruvoctl.out.text();
    result.err = ruvoctl.err.text();
    return result;
}

inline Result runAgainst(const std::vector<Exchange>& exchanges, Arguments arguments) {
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        for (const auto& [request, answer] : exchanges) peer.serve(request, answer);
        peer.awaitClose();
    });
    arguments.insert(arguments.begin(), {"--port", std::to_string(daemon.port()), "task"});
    return run(arguments);
}

inline bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

inline Exchange lookup(std::int32_t handle = 5) {
    return {task("RUVO_TS_SCHEDULED_TASK_LOOKUP", str("backup")), i32(handle)};
}

inline Exchange next(std::int32_t frequency) {
    return {task("RUVO_TS_GET_NEXT_TIME", i32(5)), kNextAnswer + i32(frequency)};
}

}  // namespace ClientTest
