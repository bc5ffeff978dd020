#pragma once

#include "runtime/platform/Export.h"
#include "runtime/platform/Process.h"
#include "scheduler/RuvoTSTask.h"

#include <cstdint>
#include <optional>
#include <string>

namespace RuvoService {

// A task that runs a command line. A run writes a batch file of two lines into
// the folder of temporary files, a change of directory and the command, and has
// the command interpreter run it.
class VORN_EXPORT RuvoTSExecTask final : public RuvoTSTask {
public:
    // The status of a run whose batch file could not be written, and not for want of
    // descriptors or memory.
    static constexpr std::int32_t kNoBatchFile = -9999;

    // `path` (the working directory), `params` and `logFile` (what receives the
    // output) may be empty. All four go into the batch file as they stand, each up to
    // its first zero byte: quotes are the client's affair. Use RuvoTSTask::make.
    RuvoTSExecTask(const std::string& name, RuvoTSSeconds nextTime, std::uint32_t frequency,
                   const std::string& appName, const std::string& path, const std::string& params,
                   const std::string& logFile);
    ~RuvoTSExecTask() override;

    std::string serialize() const override;
    // Pauses four times for 100 ms, on purpose, on the timer's thread.
    int performTask() override;
    // Waits for the end of the command, or of the service. Throws RuvoTSRefused, and
    // nothing has begun, when memory, processes or descriptors are short.
    std::optional<std::int32_t> runtaskonsystem() override;
    std::string_view kind() const override { return "RuvoTSExecTask"; }

    // The text of the batch file, line ends of the system included.
    std::string batchText() const;

    // How long a command keeps the place of its run while the system is short of means:
    // 200 ms. Commands that begin need processes of their own.
    static void setMomentForTest(int ms);

private:
    std::string commandLine() const;
    std::int32_t startCommand(const std::string& file, VornPlatform::ProcessHandle& process);
    std::optional<std::int32_t> awaitEnd(VornPlatform::ProcessHandle& process);

    const std::string appName_;
    const std::string path_;
    const std::string params_;
    const std::string logFile_;
};

}  // namespace RuvoService
