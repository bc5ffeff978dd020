#pragma once

#include "benchmarks/harness/ChildProcess.h"
#include "benchmarks/harness/Settings.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace RuvoBench {

// A folder of its own below the system's folder for such, gone with the object.
class TemporaryFolder {
public:
    // In memory, where the system has a place for that: for what a measurement itself
    // leaves behind, whose making is not to be measured.
    enum class Place { Usual, Memory };

    explicit TemporaryFolder(Place place = Place::Usual);
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string path(const std::string& name) const { return (folder_ / name).string(); }

private:
    std::filesystem::path folder_;
};

// The real daemon on the server's processor, with a configuration of its own.
// Ready when the constructor returns; stopped by the destructor.
class Daemon {
public:
    using Values = std::vector<std::pair<std::string, std::string>>;

    explicit Daemon(const Settings& settings, const Values& values = {});

    std::uint16_t port() const { return port_; }
    pid_t pid() const { return process_->pid(); }
    double startMs() const { return startMs_; }  // from its start to its being ready
    double stop() { return process_->terminate(); }

private:
    TemporaryFolder folder_;
    std::uint16_t port_ = 0;
    double startMs_ = 0;
    std::optional<ChildProcess> process_;
};

// A bare server (benchmarks/bare) of one of its modes, on the same processor.
class BareServer {
public:
    BareServer(const Settings& settings, const std::vector<std::string>& arguments);

    std::uint16_t port() const { return port_; }
    pid_t pid() const { return process_.pid(); }
    double startMs() const { return startMs_; }
    double stop() { return process_.terminate(); }

private:
    TemporaryFolder folder_;
    const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    ChildProcess process_;
    std::uint16_t port_ = 0;
    double startMs_ = 0;
};

}  // namespace RuvoBench
