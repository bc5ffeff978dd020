#pragma once

#include "benchmarks/harness/Servers.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace RuvoBench {

// One request of the scheduler each: its code, the engine's name, the command and
// its arguments.
std::string scheduleRequest(std::string_view name, std::string_view program,
                            std::string_view logFile, std::int64_t time);
std::string taskLookupRequest(std::string_view name);
std::string taskStateRequest(std::int32_t task);
std::string cancelRequest(std::int32_t task);

// A daemon that has so many tasks, "task0" and so on, whose time is far off. It
// keeps them in a folder of its own.
class TaskDaemon {
public:
    TaskDaemon(const Settings& settings, std::size_t tasks);

    std::uint16_t port() const { return daemon_->port(); }
    pid_t pid() const { return daemon_->pid(); }
    std::string path(const std::string& name) const { return folder_.path(name); }
    std::size_t storeBytes() const { return storeBytes_; }

private:
    TemporaryFolder folder_;
    std::size_t storeBytes_ = 0;
    std::optional<Daemon> daemon_;
};

}  // namespace RuvoBench
