#include "jobstatus/RuvoJSEngine.h"

#include "tests/jobstatus/JobStatusFixture.h"
#include "tests/support/LogCapture.h"

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

using RuvoService::RuvoJSEngine;
using TestSupport::LogCapture;
using VornSupport::makeCounted;

namespace {

using Job = RuvoJSEngine::VornJSEJob;

class VornJSEJob : public JobStatusFixture {};
class RuvoJSEngineTable : public JobStatusFixture {};

}  // namespace

// ---- the job -----------------------------------------------------------------------

TEST_F(VornJSEJob, BeginsAsItWasMade) {
    const auto job = makeCounted<Job>("nightly", "backup", 17, nullptr);
    EXPECT_EQ(job->getID(), 17);
    EXPECT_EQ(job->getDescription(), "nightly");
    EXPECT_EQ(job->getName(), "backup");
    EXPECT_EQ(job->getText(), " ");
    EXPECT_EQ(job->getProgress(), 0);
    EXPECT_EQ(job->getEventCode(), 2);
    EXPECT_TRUE(job->getMappedIds().empty());
    EXPECT_EQ(job->getClassName(), "VornJSEJob");
}

TEST_F(VornJSEJob, KeepsTheCodeOfItsLastEvent) {
    const auto job = makeCounted<Job>("d", "j", 1, &notifier_);
    job->setProgress(50);
    EXPECT_EQ(job->getEventCode(), 3);
    EXPECT_EQ(job->getProgress(), 50);
    job->cancel();
    EXPECT_EQ(job->getEventCode(), 1);
    EXPECT_EQ(job->getProgress(), 50);
    job->complete();
    EXPECT_EQ(job->getEventCode(), 0);
    job->setID(9);
    EXPECT_EQ(job->getEventCode(), 2);
    EXPECT_EQ(job->getID(), 9);
    EXPECT_EQ(events(), (Texts{"VornJSEvent:j=2", "VornJSEvent:j=3", "VornJSEvent:j=1",
                               "VornJSEvent:j=0", "VornJSEvent:j=2"}));
}

TEST_F(VornJSEJob, SendsNothingWhenItIsDestroyed) {
    makeCounted<Job>("d", "j", 1, &notifier_);
    EXPECT_EQ(events(), Texts{"VornJSEvent:j=2"});
}

TEST_F(VornJSEJob, AnnouncesItselfWithNameSenderAndMessage) {
    class Whole : public RecordingDependent {
    public:
        bool checkEvent(const VornSupport::VornNotification& notification) override {
            const auto* event = RuvoService::RuvoNNEventNotification::from(notification);
            text = std::string(event->getSender()) + "|" + event->getEventName() + "|" +
                   std::string(event->getMessage()) + "|" + std::to_string(event->getDataSize());
            return false;
        }
        std::string text;
    };
    const auto whole = makeCounted<Whole>();
    VornNet::VornProxyDependentContainer::getInstance().add(whole);
    makeCounted<Job>("d", "", 1, &notifier_);
    events();
    EXPECT_EQ(whole->text, "udp:127.0.0.1|VornJSEvent:||4");
    makeCounted<Job>("d", "my job", 1, &notifier_);
    events();
    EXPECT_EQ(whole->text, "udp:127.0.0.1|VornJSEvent:my job|my job|4");
    VornNet::VornProxyDependentContainer::getInstance().remove(*whole);
}

TEST_F(VornJSEJob, TracesItsOperations) {
    const LogCapture log(9);
    const auto job = makeCounted<Job>("d", "j", 4, nullptr);
    job->setProgress(-50);
    job->cancel();
    job->complete();
    EXPECT_EQ(log.texts(9), (Texts{"RuvoJSEngine::VornJSEJob::setID(j): enter, jobid=4",
                                   "RuvoJSEngine::VornJSEJob::setID(j): exit",
                                   "RuvoJSEngine::VornJSEJob::setProgress(j): enter, progress=-50",
                                   "RuvoJSEngine::VornJSEJob::setProgress(j): exit",
                                   "RuvoJSEngine::VornJSEJob::cancel(j): enter",
                                   "RuvoJSEngine::VornJSEJob::cancel(j): exit",
                                   "RuvoJSEngine::VornJSEJob::complete(j): enter",
                                   "RuvoJSEngine::VornJSEJob::complete(j): exit"}));
}

// ---- the table ---------------------------------------------------------------------

TEST_F(RuvoJSEngineTable, BelongsToTheMonitorJobStatus) {
    EXPECT_EQ(engine_.getMonitorName(), "JobStatus");
    EXPECT_TRUE(engine_.initialize());
    engine_.createJob("d", "a");
    EXPECT_TRUE(engine_.cleanup());
    EXPECT_EQ(engine_.lookupJob("a"), 1);  // a stop forgets nothing
}

TEST_F(RuvoJSEngineTable, FillsGapsFromTheLowestIdOn) {
    for (const char* name : {"a", "b", "c", "d"}) engine_.createJob("", name);
    engine_.deleteJob(3);
    EXPECT_EQ(engine_.createJob("", "e"), 3);
    engine_.deleteJob(3);
    EXPECT_EQ(engine_.createJob("", "f"), 3);
    EXPECT_EQ(engine_.createJob("", "g"), 5);
    engine_.deleteJob(1);
    engine_.deleteJob(4);
    EXPECT_EQ(engine_.createJob("", "h"), 1);
    EXPECT_EQ(engine_.createJob("", "i"), 4);
}

TEST_F(RuvoJSEngineTable, ReplacesTheLastJobWhenAllIdsAreTaken) {
    for (int id = 1; id <= 10000; ++id) {
        ASSERT_EQ(engine_.createJob("", "job " + std::to_string(id)), id);
    }
    EXPECT_EQ(engine_.size(), 10000u);
    engine_.setProgress(10000, 55);
    EXPECT_EQ(engine_.createJob("", "one more"), 10000);
    EXPECT_EQ(engine_.size(), 10000u);
    EXPECT_EQ(engine_.lookupJob("one more"), 10000);
    EXPECT_EQ(engine_.lookupJob("job 10000"), -1);
    EXPECT_EQ(engine_.getProgress(10000), 0);
    EXPECT_EQ(engine_.createJob("", "one more"), -1);
    EXPECT_EQ(engine_.createJob("", "job 10000"), 10000);  // its name is free again
    EXPECT_EQ(engine_.lookupJob("one more"), -1);
    EXPECT_EQ(engine_.lookupJob("job 9999"), 9999);

    engine_.deleteJob(10000);
    EXPECT_EQ(engine_.size(), 9999u);
    EXPECT_EQ(engine_.lookupJob("job 10000"), -1);
    engine_.deleteJob(77);
    EXPECT_EQ(engine_.createJob("", "x"), 77);
    EXPECT_EQ(engine_.createJob("", "y"), 10000);
}

TEST_F(RuvoJSEngineTable, ReleasesTheReplacedJobWithoutAnEvent) {
    for (int id = 1; id <= 10000; ++id) engine_.createJob("", "job " + std::to_string(id));
    events();
    const auto before = recorder_->names().size();
    engine_.createJob("", "one more");
    const Texts all = events();
    ASSERT_EQ(all.size(), before + 1);
    EXPECT_EQ(all.back(), "VornJSEvent:one more=2");
}

TEST_F(RuvoJSEngineTable, TakesNamesByteForByte) {
    const std::string zero("a\0b", 3);
    EXPECT_EQ(engine_.createJob("", "a"), 1);
    EXPECT_EQ(engine_.createJob("", "A"), 2);
    EXPECT_EQ(engine_.createJob("", "a "), 3);
    EXPECT_EQ(engine_.createJob("", ""), 4);
    EXPECT_EQ(engine_.createJob("", zero), 5);
    EXPECT_EQ(engine_.createJob("", ""), -1);
    EXPECT_EQ(engine_.createJob("", zero), -1);
    EXPECT_EQ(engine_.lookupJob("A"), 2);
    EXPECT_EQ(engine_.lookupJob(""), 4);
    EXPECT_EQ(engine_.lookupJob(zero), 5);
    EXPECT_EQ(engine_.lookupJob("b"), -1);
}

TEST_F(RuvoJSEngineTable, WorksWithoutANotifier) {
    class Silent : public RuvoJSEngine {
    public:
        Silent() : RuvoJSEngine(nullptr) {}
    };
    engine_.retire();  // the name is free for the other
    Silent silent;
    EXPECT_EQ(silent.createJob("d", "a"), 1);
    EXPECT_EQ(silent.deleteJob(1), 1);
}

// ---- many clients at once ----------------------------------------------------------

TEST_F(RuvoJSEngineTable, GivesEachOfManyClientsAnIdOfItsOwn) {
    constexpr int kThreads = 8;
    constexpr int kJobs = 100;
    std::vector<std::vector<int>> given(kThreads);
    {
        std::vector<std::jthread> clients;
        for (int t = 0; t < kThreads; ++t) {
            clients.emplace_back([&, t] {
                for (int i = 0; i < kJobs; ++i) {
                    const std::string name = std::to_string(t) + ":" + std::to_string(i);
                    const int id = create(name);
                    given[static_cast<std::size_t>(t)].push_back(id);
                    EXPECT_EQ(lookup(name), id);
                    EXPECT_EQ(ask("RUVO_JS_SET_PROGRESS", {id, i}), id);
                    EXPECT_EQ(ask("RUVO_JS_GET_PROGRESS", {id}), i);
                    EXPECT_EQ(ask("RUVO_JS_MAP_JOB", {id, 2, t, i}), id);
                }
            });
        }
    }
    std::map<int, int> times;
    for (const auto& ids : given) {
        for (const int id : ids) ++times[id];
    }
    EXPECT_EQ(times.size(), static_cast<std::size_t>(kThreads * kJobs));
    EXPECT_EQ(times.begin()->first, 1);
    EXPECT_EQ(times.rbegin()->first, kThreads * kJobs);
    EXPECT_EQ(events().size(), static_cast<std::size_t>(kThreads * kJobs * 2));
}

TEST_F(RuvoJSEngineTable, LetsOneOfManyClientsHaveAName) {
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> winners{0};
        std::atomic<int> losers{0};
        {
            std::vector<std::jthread> clients;
            for (int t = 0; t < 8; ++t) {
                clients.emplace_back([&] { ++(create("wanted") > 0 ? winners : losers); });
            }
        }
        EXPECT_EQ(winners, 1);
        EXPECT_EQ(losers, 7);
        EXPECT_EQ(ask("RUVO_JS_DELETE", {lookup("wanted")}), 1);
    }
}

TEST_F(RuvoJSEngineTable, AnnouncesTheChangesOfAJobInTheirOrder) {
    notifier_.initialize();
    {
        std::vector<std::jthread> clients;
        for (int t = 0; t < 8; ++t) {
            clients.emplace_back([&, t] {
                const std::string name = "job " + std::to_string(t % 2);
                for (int i = 0; i < 100; ++i) {
                    const int id = create(name);
                    if (id < 1) continue;  // another one's
                    ask("RUVO_JS_SET_PROGRESS", {id, i});
                    ask("RUVO_JS_DELETE", {id});
                }
            });
        }
    }
    notifier_.cleanup();
    // Whatever the clients' order: created, progressed, completed, created ...
    std::map<std::string, std::string> next;
    for (const std::string& event : events()) {
        const auto equals = event.rfind('=');
        std::string& expected = next.try_emplace(event.substr(0, equals), "2").first->second;
        ASSERT_EQ(event.substr(equals + 1), expected) << event;
        expected = expected == "2" ? "3" : expected == "3" ? "0" : "2";
    }
    EXPECT_EQ(next.size(), 2u);
}
