#include "benchmarks/figures/RequestFigures.h"

#include "benchmarks/harness/BlockingSocket.h"
#include "benchmarks/harness/Requests.h"

namespace RuvoBench {
namespace {

std::string progressRequestOfNewJob(const Daemon& daemon) {
    const auto job = Conversation(daemon.port()).ask(createJobRequest("a benchmark", "bench"));
    return getProgressRequest(job);
}

}  // namespace

ProgressClients::ProgressClients(const Settings& settings, std::size_t count)
    : daemon_(settings),
      request_(progressRequestOfNewJob(daemon_)),
      batch_(batchOf(request_, 1)),
      server_(settings, {"ping", std::to_string(batch_.size()), std::to_string(kResultBytes)}) {
    for (std::size_t i = 0; i < count; ++i) {
        conversations_.emplace_back(daemon_.port());
        conversations_.back().expect(request_, 0);
        ours_.push_back(conversations_.back().socket());
        clients_.push_back(connectToLoopback(server_.port()));
        bare_.push_back(clients_.back().get());
    }
}

}  // namespace RuvoBench
