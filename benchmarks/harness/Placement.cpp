#include "benchmarks/harness/Placement.h"

#include "benchmarks/harness/BlockingSocket.h"

#include <sched.h>
#include <sys/resource.h>

#include <filesystem>
#include <string>

namespace RuvoBench {
namespace {

constexpr int kNice = -15;

void pinTo(const std::vector<int>& processors, pid_t thread = 0) {
    cpu_set_t set;
    CPU_ZERO(&set);
    for (const int processor : processors) CPU_SET(static_cast<unsigned>(processor), &set);
    if (::sched_setaffinity(thread, sizeof set, &set) != 0) throwErrno("sched_setaffinity");
}

void pinProcess(pid_t process, const std::vector<int>& processors) {
    for (const auto& thread :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        pinTo(processors, std::stoi(thread.path().filename().string()));
    }
}

// As they were when the program began: later calls may be made while pinned.
const std::vector<int>& processorsAtStart() {
    static const std::vector<int> processors = allowedProcessors();
    return processors;
}

}  // namespace

std::vector<int> allowedProcessors() {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (::sched_getaffinity(0, sizeof set, &set) != 0) throwErrno("sched_getaffinity");
    std::vector<int> processors;
    for (int processor = 0; processor < CPU_SETSIZE; ++processor) {
        if (CPU_ISSET(static_cast<unsigned>(processor), &set)) processors.push_back(processor);
    }
    return processors;
}

Pinned::Pinned(int processor) {
    processorsAtStart();
    before_ = allowedProcessors();
    pinTo({processor});
}

Pinned::~Pinned() { pinTo(before_); }

std::vector<Placement> placements() {
    const auto& processors = processorsAtStart();
    std::vector<Placement> result{{.name = "one-core", .load = processors.front()}};
    if (processors.size() > 1) result.push_back({.name = "two-cores", .load = processors[1]});
    return result;
}

Placement widestPlacement() { return placements().back(); }

int serverProcessor() { return processorsAtStart().front(); }

void useAllProcessors(pid_t process) { pinProcess(process, processorsAtStart()); }

void useServerProcessor(pid_t process) { pinProcess(process, {serverProcessor()}); }

bool raisePriority() { return ::setpriority(PRIO_PROCESS, 0, kNice) == 0; }

}  // namespace RuvoBench
