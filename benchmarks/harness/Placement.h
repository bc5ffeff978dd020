#pragma once

#include <sys/types.h>

#include <optional>
#include <vector>

namespace RuvoBench {

// The processors this process may use, in ascending order.
std::vector<int> allowedProcessors();

// Keeps the calling thread, and the threads and processes it starts meanwhile,
// on one processor. The destructor puts the earlier set back.
class Pinned {
public:
    explicit Pinned(int processor);
    ~Pinned();
    Pinned(const Pinned&) = delete;
    Pinned& operator=(const Pinned&) = delete;

private:
    std::vector<int> before_;
};

// Server and load of one measurement. The server always runs on the first
// allowed processor, so the same server serves both placements.
struct Placement {
    const char* name;  // "one-core", "two-cores"
    int load;          // the load's processor
};

// One entry on a machine with one processor, else two.
std::vector<Placement> placements();
// The second placement where there is one.
Placement widestPlacement();
int serverProcessor();

// Lets a running process, with all its threads and what it starts from then on,
// use every processor of the program's.
void useAllProcessors(pid_t process);
// The same, back to the one where servers begin.
void useServerProcessor(pid_t process);

// Asks for a scheduling priority above that of ordinary programs for this
// process and everything it starts; false where that needs a privilege.
bool raisePriority();

}  // namespace RuvoBench
