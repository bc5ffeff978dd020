#include "benchmarks/figures/TaskFigures.h"

#include "runtime/net/WireCodec.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace RuvoBench {
namespace {

using VornNet::append16;
using VornNet::appendInt;
using VornNet::appendString;

constexpr std::uint16_t kEngineRequest = 7777;
constexpr std::int32_t kOnce = 3;

std::string requestTo(std::string_view command) {
    std::string bytes;
    append16(bytes, kEngineRequest);
    appendString(bytes, "Scheduler");
    appendString(bytes, command);
    return bytes;
}

// The daemon's variable; nothing else of this process looks at it meanwhile.
class FolderOfTasks {
public:
    explicit FolderOfTasks(const std::string& folder) {
        if (const char* const value = std::getenv("TEMP")) before_ = value;
        ::setenv("TEMP", folder.c_str(), 1);
    }
    ~FolderOfTasks() {
        if (before_) {
            ::setenv("TEMP", before_->c_str(), 1);
        } else {
            ::unsetenv("TEMP");
        }
    }
    FolderOfTasks(const FolderOfTasks&) = delete;
    FolderOfTasks& operator=(const FolderOfTasks&) = delete;

private:
    std::optional<std::string> before_;
};

}  // namespace

std::string scheduleRequest(std::string_view name, std::string_view program,
                            std::string_view logFile, std::int64_t time) {
    using namespace std::chrono;
    const sys_seconds at{seconds(time)};
    const auto midnight = floor<days>(at);
    const year_month_day date(midnight);
    const hh_mm_ss clock(at - midnight);
    std::string bytes = requestTo("RUVO_TS_SCHEDULE");
    for (const std::string_view text : {name, program, std::string_view(), std::string_view()}) {
        appendString(bytes, text);
    }
    appendInt(bytes, kOnce);
    appendInt(bytes, static_cast<int>(static_cast<unsigned>(date.month())));
    appendInt(bytes, static_cast<int>(static_cast<unsigned>(date.day())));
    appendInt(bytes, static_cast<int>(date.year()));
    appendInt(bytes, static_cast<int>(clock.hours().count()));
    appendInt(bytes, static_cast<int>(clock.minutes().count()));
    appendInt(bytes, static_cast<int>(clock.seconds().count()));
    appendString(bytes, logFile);
    return bytes;
}

std::string taskLookupRequest(std::string_view name) {
    std::string bytes = requestTo("RUVO_TS_SCHEDULED_TASK_LOOKUP");
    appendString(bytes, name);
    return bytes;
}

std::string taskStateRequest(std::int32_t task) {
    std::string bytes = requestTo("RUVO_TS_TASK_STATE");
    appendInt(bytes, task);
    return bytes;
}

std::string cancelRequest(std::int32_t task) {
    std::string bytes = requestTo("RUVO_TS_CANCEL");
    appendInt(bytes, task);
    return bytes;
}

TaskDaemon::TaskDaemon(const Settings& settings, std::size_t tasks) {
    std::string store;
    for (std::size_t i = 0; i < tasks; ++i) {
        store += "78563412 exec task" + std::to_string(i) +
                 "%00 2037 06 15 13 00 00 3 %2Fusr%2Fbin%2Fprogram%00 %2Fvar%2Flib%00 "
                 "%2D%2Dwith%20arguments%00 %2Fvar%2Flog%2Ftask%2Elog%00\n";
    }
    storeBytes_ = store.size();
    std::ofstream file(folder_.path("RuvoTSEngineExecTasks.dat"), std::ios::binary);
    file.write(store.data(), static_cast<std::streamsize>(store.size()));
    file.close();
    if (!file) throw std::runtime_error("cannot write a store of tasks");
    const FolderOfTasks folder(folder_.path(""));
    daemon_.emplace(settings);
}

}  // namespace RuvoBench
