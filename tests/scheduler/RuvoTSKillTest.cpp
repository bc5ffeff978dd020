// The service is killed at random moments, again and again: what a client was
// told stands in the store.
//
// A child, this program itself, is the service: it reads the store back, and
// schedules and cancels as a client would have it, through the engine's
// commands. Before each request it notes what it is about to do, and after each
// answer that it was answered.

#include "runtime/monitor/VornEventMonitorManager.h"
#include "runtime/platform/AppendFile.h"
#include "runtime/platform/Environment.h"
#include "runtime/platform/Process.h"
#include "scheduler/RuvoTSEngine.h"
#include "scheduler/RuvoTSRecord.h"
#include "scheduler/RuvoTSStore.h"
#include "scheduler/RuvoTSTaskSet.h"
#include "tests/scheduler/SchedulerTestTools.h"
#include "tests/scheduler/KillHard.h"
#include "tests/support/FakeConnection.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using namespace RuvoService;
using TestSupport::FakeConnection;

namespace {

constexpr int kKills = 210;
constexpr std::size_t kTasks = 25;

// What belongs to a name: found again, it is whole.
std::string contentOf(const std::string& name) { return std::string(2000, name.back()) + name; }

// ---- the child -------------------------------------------------------------------

class Notes {
public:
    explicit Notes(const std::string& file) {
        if (file_.open(file)) std::abort();
    }
    void add(const std::string& line) {
        std::size_t written = 0;
        if (file_.write(line + '\n', written) || written != line.size() + 1) std::abort();
    }

private:
    VornPlatform::AppendFile file_;
};

std::int32_t answerOf(FakeConnection& connection) {
    VornMonitor::VornEventMonitorManager::getInstance().handleClient("Scheduler", connection);
    return std::stoi(connection.written().at(0).substr(4));
}

void schedule(Notes& notes, const std::string& name, bool blob) {
    FakeConnection connection;
    notes.add("?+" + name);
    if (blob) {
        connection.sendString("RUVO_TS_SCHEDULE_BLOB").sendString(name);
        connection.sendInt(static_cast<int>(contentOf(name).size())).sendBytes(contentOf(name));
    } else {
        connection.sendString("RUVO_TS_SCHEDULE").sendString(name).sendString(contentOf(name));
        connection.sendString("").sendString("");
    }
    for (const int value : {0, 1, 2, 2037, 3, 4, 5}) connection.sendInt(value);
    if (!blob) connection.sendString("");
    if (answerOf(connection) < 0) std::abort();
    notes.add("!+" + name);
}

void cancel(Notes& notes, const std::string& name, std::int32_t handle) {
    FakeConnection connection;
    notes.add("?-" + name);
    connection.sendString("RUVO_TS_CANCEL").sendInt(handle);
    if (answerOf(connection) != handle) std::abort();
    notes.add("!-" + name);
}

// Works until it is killed.
[[noreturn]] void serve(const std::string& notesFile, unsigned life) {
    Notes notes(notesFile);
    RuvoTSEngine engine(nullptr);
    engine.start();
    std::mt19937 random(life);
    std::set<std::string> names;
    std::string reason;
    RuvoTSStore::read(
        RuvoTSStore::names().current,
        [&](std::string_view line) { names.insert(readRecord(line).name); }, reason);
    for (unsigned n = 0;; ++n) {
        if (names.size() < kTasks / 2 || (names.size() < kTasks && random() % 2 == 0)) {
            const std::string name = "t" + std::to_string(life) + "n" + std::to_string(n);
            schedule(notes, name, random() % 3 == 0);
            names.insert(name);
        } else {
            auto victim = names.begin();
            std::advance(victim, static_cast<std::ptrdiff_t>(random() % names.size()));
            const auto task = RuvoTSTaskSet::getInstance().find(std::string_view(*victim));
            cancel(notes, *victim, task->getHandle());
            names.erase(victim);
        }
    }
}

// ---- the parent ------------------------------------------------------------------

struct Expected {
    std::set<std::string> names;
    std::string inFlight;  // "+name", "-name" or nothing

    void read(const std::string& notes) {
        std::istringstream lines(notes);
        inFlight.clear();
        for (std::string line; std::getline(lines, line);) {
            const std::string what = line.substr(1);
            inFlight = line[0] == '?' ? what : "";
            if (line[0] == '?') continue;
            if (what[0] == '+') {
                names.insert(what.substr(1));
            } else {
                names.erase(what.substr(1));
            }
        }
    }
    // What was in flight counts as done or as not done, whichever is found.
    void settle(const std::set<std::string>& found) {
        if (inFlight.empty()) return;
        const std::string name = inFlight.substr(1);
        if (found.contains(name)) {
            names.insert(name);
        } else {
            names.erase(name);
        }
    }
};

class RuvoTSKillTest : public testing::Test {
protected:
    std::set<std::string> stored() const {
        std::set<std::string> names;
        std::string reason;
        EXPECT_TRUE(RuvoTSStore::read(
            RuvoTSStore::names().current,
            [&](std::string_view line) {
                const RuvoTSRecord record = readRecord(line);
                const bool blob = record.kind == RuvoTSRecord::Kind::Blob;
                EXPECT_EQ(blob ? record.blob : record.appName, contentOf(record.name));
                EXPECT_TRUE(names.insert(record.name).second);
            },
            reason))
            << reason;
        return names;
    }

    // The children inherit where it is.
    TestSupport::StoreFolder folder_;
};

TEST_F(RuvoTSKillTest, LosesNothingThatAClientWasTold) {
    const std::string notes = folder_.file("notes");
    std::mt19937 random(std::random_device{}());
    Expected expected;
    std::size_t answers = 0;
    for (int life = 1; life <= kKills; ++life) {
        VornPlatform::ProcessHandle service;
        ASSERT_FALSE(VornPlatform::startProcess('"' + VornPlatform::executablePath() +
                                                    "\" --serve \"" + notes + "\" " +
                                                    std::to_string(life),
                                                service));
        // After some answers, and then some moment more; now and then at once.
        const std::size_t enough = random() % 20;
        const auto noted = [&] {
            const std::string text = TestSupport::readFile(notes);
            return static_cast<std::size_t>(std::count(text.begin(), text.end(), '!'));
        };
        ASSERT_TRUE(TestSupport::waitUntil([&] { return noted() >= enough; })) << life;
        const auto moment = std::chrono::steady_clock::now() +
                            std::chrono::microseconds(random() % 4000);
        while (std::chrono::steady_clock::now() < moment) {
        }
        TestSupport::killHard(service);
        ASSERT_TRUE(service.wait(20'000));
        answers += noted();

        const std::set<std::string> before = expected.names;
        expected.read(TestSupport::readFile(notes));
        if (!expected.names.empty()) {
            ASSERT_TRUE(TestSupport::exists(RuvoTSStore::names().current)) << life;
        }
        const std::set<std::string> found = stored();
        expected.settle(found);
        ASSERT_EQ(found, expected.names) << "life " << life << ", in flight "
                                         << expected.inFlight;
        TestSupport::writeFile(notes, "");
    }
    EXPECT_GT(answers, static_cast<std::size_t>(kKills));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::string_view(argv[1]) == "--serve") {
        serve(argv[2], static_cast<unsigned>(std::atoi(argv[3])));
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
