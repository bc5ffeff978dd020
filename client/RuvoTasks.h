#pragma once

#include "client/RuvoClient.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Ruvo {

// Any other number is taken as well: such a task runs once and stays.
enum class RuvoFrequency : std::int32_t {
    Daily = 0,
    Weekly = 1,
    Monthly = 2,  // every 28 days
    Once = 3,
    Soon = 4  // once, 121 seconds from now, whatever the time
};

// UTC. The daemon carries what is out of range: month 13 is January. It keeps 32
// bits of seconds, from 1901-12-13 20:45:52 to 2038-01-19 03:14:07; a time beyond
// these becomes one within, 2^32 seconds (136 years) or a multiple of them away: of
// June 2040 comes April 1904, which is past, of June 2170 comes April 2034, which may
// be yet to come. All zero where the daemon tells of a time before 1970.
struct RuvoTaskTime {
    std::int32_t year = 0;
    std::int32_t month = 0;
    std::int32_t day = 0;
    std::int32_t hour = 0;
    std::int32_t minute = 0;
    std::int32_t second = 0;

    bool operator==(const RuvoTaskTime&) const = default;
};

// When a task runs first, and whether again. A time that is past, or less than a
// second ahead, becomes 121 seconds from now.
struct RuvoTaskPlan {
    RuvoTaskTime time;
    RuvoFrequency frequency = RuvoFrequency::Once;

    bool operator==(const RuvoTaskPlan&) const = default;
};

// What a task runs. All texts go into a batch file as they stand: quote what has
// blanks.
struct RuvoTaskCommand {
    std::string program{};
    std::string parameters{};
    std::string directory{};  // empty: the daemon's
    std::string logFile{};    // receives the output; empty: none
};

// The tasks of the monitors "Scheduler" and "SchedulerFollow", over a borrowed
// conversation. Where the daemon's answer is no, the calls throw RuvoClientError
// (Declined) with its answer as the code: -9, there is no such task, unless
// something else is said. Handles end with the daemon's life, names do not.
class RUVO_API RuvoTasks {
public:
    enum State : std::int32_t { Finished = -1, Running = 0, Ended = 1, Waiting = 2 };
    static constexpr std::int32_t kNeverRun = -999;  // the exit status before the first run

    explicit RuvoTasks(RuvoClient& client) : client_(client) {}

    // The new task's handle. -11: there is a task of that name.
    std::int32_t schedule(std::string_view name, const RuvoTaskCommand& command,
                          const RuvoTaskPlan& plan);
    // The daemon keeps the bytes and tells when their time has come. Bytes of 2
    // GiB or more: Argument.
    std::int32_t scheduleBlob(std::string_view name, std::string_view bytes,
                              const RuvoTaskPlan& plan);
    // Empty when no task has that name.
    std::optional<std::int32_t> lookup(std::string_view name);
    // A command that runs already is not stopped.
    void cancel(std::int32_t task);
    std::int32_t state(std::int32_t task);  // a State
    // Of a task with a command. A status of -9 is taken for no such task.
    std::int32_t exitCode(std::int32_t task);
    // When the last run of a task with a command ended, "2024-02-29 12:00:00 UTC";
    // before the first one the beginning of 1970.
    std::string lastRun(std::int32_t task);
    RuvoTaskPlan nextRun(std::int32_t task);
    // This and the lists take answers of up to RuvoClientOptions::maxLongBytes.
    std::string retrieve(std::int32_t task);
    // Names of the tasks with commands, and of those with bytes.
    std::vector<std::string> list();
    std::vector<std::string> listBlobs();

    // From now on each change of the task's state is delivered to `remoteName`,
    // where a RuvoListener with `taskChanges` listens. After Finished nothing more
    // comes. These need a daemon that loads "SchedulerFollow"; another one ends the
    // conversation (Closed).
    void follow(std::string_view remoteName, std::int32_t handle, std::int32_t task);
    // Content when there is nothing to be taken back.
    void unfollow(std::string_view remoteName, std::int32_t handle, std::int32_t task);
    // The exit status of the last run of any task, also of one that is gone since
    // not too long.
    std::int32_t lastStatus(std::int32_t task);

    static RuvoRequest scheduleRequest(std::string_view name, const RuvoTaskCommand& command,
                                       const RuvoTaskPlan& plan);
    static RuvoRequest scheduleBlobRequest(std::string_view name, std::string_view bytes,
                                           const RuvoTaskPlan& plan);

private:
    std::int32_t expectTask(std::int32_t answer, std::int32_t task, const char* kind);
    std::int32_t expectHandle(const RuvoRequest& request, std::string_view name);
    std::int32_t ask(std::string_view command, std::int32_t task, const char* kind);
    std::vector<std::string> readNames(std::string_view command);
    void changeFollowing(std::string_view command, std::string_view remoteName,
                         std::int32_t handle, std::int32_t task);

    RuvoClient& client_;
};

}  // namespace Ruvo
