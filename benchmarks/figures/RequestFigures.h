#pragma once

#include "benchmarks/harness/Conversation.h"
#include "benchmarks/harness/Servers.h"

#include <cstddef>
#include <string>
#include <vector>

namespace RuvoBench {

// Open conversations that ask for the progress of one job, and bare clients
// that move the same bytes: what the figures about requests have in common.
class ProgressClients {
public:
    // `count` of either kind, connected.
    ProgressClients(const Settings& settings, std::size_t count);

    const std::string& batch() const { return batch_; }  // one request by itself
    const std::string& request() const { return request_; }
    const std::vector<int>& ours() const { return ours_; }
    const std::vector<int>& bare() const { return bare_; }

private:
    Daemon daemon_;
    std::string request_;
    std::string batch_;
    BareServer server_;
    std::vector<Conversation> conversations_;
    std::vector<Fd> clients_;
    std::vector<int> ours_;
    std::vector<int> bare_;
};

}  // namespace RuvoBench
