// Any client of the daemon (TextPeer.h), served by the service and all its engines
// as on a client thread. Whatever it sends, its conversation ends, memory is not
// taken for what it only announces, the next client is served as ever, and the
// tasks that it has scheduled outlive a restart. Commands of tasks are never run:
// the scheduler's clock stands still.

#include "arbiter/RuvoRAEngine.h"
#include "jobstatus/RuvoJSEngine.h"
#include "notifier/RuvoNNEngine.h"
#include "runtime/net/VornProxyDependentContainer.h"
#include "runtime/platform/AppendFile.h"
#include "tests/fuzz/Check.h"
#include "tests/fuzz/Replay.h"
#include "tests/fuzz/conversation/TextPeer.h"
#include "tests/runtime/support/AllocationCount.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/service/OpenService.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

using namespace RuvoService;
using FuzzTests::check;
using FuzzTests::TextPeer;
using VornNet::VornProxyDependentContainer;

namespace {

// More than any request of these sizes needs, less than the limits of strings and
// blocks.
constexpr std::size_t kMostAtOnce = 768 * 1024;
constexpr std::string_view kTaskKinds[] = {"Exec", "Blob"};

// What stays from input to input.
struct Surroundings {
    const TestSupport::StoreFolder store{};
    TestSupport::TestClock clock;
    const ServiceTests::Place place{"logging.level=0\nlogging.target=0\n"};
};

// The daemon's parts without its threads and listeners, fresh for each input.
class Daemon {
public:
    explicit Daemon(const std::string& properties) : service_(properties, "") {
        notifier_.start();
        arbiter_.start();
        jobs_.start();
        scheduler_.start();
    }
    ~Daemon() {
        scheduler_.stop();
        jobs_.stop();
        arbiter_.stop();
        notifier_.stop();
        forgetRegistrations();
    }
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    // All that the client is sent.
    std::string serve(std::string_view text) {
        const auto peer = VornSupport::makeCounted<TextPeer>(text);
        try {
            service_.handleClient(*peer);
        } catch (const VornSupport::VornException&) {
            // Before the conversation: the client's thread ends with a line in the log.
        }
        peer->close();
        return peer->wire();
    }
    void restartScheduler() {
        scheduler_.stop();
        scheduler_.start();
    }

private:
    static void forgetRegistrations() {
        auto& container = VornProxyDependentContainer::getInstance();
        for (;;) {
            VornProxyDependentContainer::Entry entry;
            {
                const VornSupport::VornCriticalSection section(container.getlock());
                if (container.size() == 0) return;
                entry = container[0];
            }
            container.remove(*entry);
        }
    }

    ServiceTests::OpenService service_;
    RuvoNNEngine notifier_;
    RuvoRAEngine arbiter_{&notifier_};
    RuvoJSEngine jobs_{&notifier_};
    RuvoTSEngine scheduler_{&notifier_};
};

// As the store keeps them: a zero byte ends a name.
std::vector<std::string> taskNames() {
    std::vector<std::string> all;
    for (const std::string_view kind : kTaskKinds) {
        const std::string names = RuvoTSTaskSet::getInstance().getTaskNames(kind);
        all.emplace_back(kind);
        for (std::size_t at = 0; at < names.size(); at = names.find(' ', at) + 1) {
            const std::string name = names.substr(at, names.find(' ', at) - at);
            all.push_back(name.substr(0, name.find("%00")));
        }
    }
    return all;
}

void checkNextClient(Daemon& daemon) {
    const std::string answers = daemon.serve(
        "l RUVO\n"
        "h 4\n"
        "h 7777\ns JobStatus\ns RUVO_JS_CREATE\ns of the next client\ns the next client's\n"
        "h 7777\ns JobStatus\ns RUVO_JS_LOOKUP\ns the next client's\n"
        "h 7777\ns Arbiter\ns RUVO_RA_LOCK\ns the next client's\ni 0\n"
        "h 7777\ns Notifier\ns no command\n");
    check(answers.size() == 3 + 4 * 4 && answers.starts_with("+\r\n"),
          "the next client gets all its answers");
    check(answers.substr(3, 4) == answers.substr(7, 4), "the next client finds its job");
    check(answers.substr(11, 4) != std::string(4, '\0'), "the next client gets its lock");
    check(answers.substr(15) == std::string("\xFF\xFF\xFC\x19", 4),
          "an unknown command is answered with -999");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Surroundings surroundings;
    const std::string_view input(reinterpret_cast<const char*>(data), size);

    VornPlatform::removeFile(surroundings.store.store());
    Daemon daemon(surroundings.place.properties());
    AllocationCount::forgetLargest();
    daemon.serve(input);
    check(AllocationCount::ofThisThread().largest <= kMostAtOnce,
          "memory is taken for what arrives, not for what is announced");
    checkNextClient(daemon);

    const auto before = taskNames();
    daemon.restartScheduler();
    check(taskNames() == before, "tasks outlive a restart");
    return 0;
}
