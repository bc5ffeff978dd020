// Events of VornEventMonitorManager: posted ones, the timer that tells of them,
// and the spool file.

#include "runtime/monitor/EventQueue.h"
#include "runtime/monitor/EventSpool.h"
#include "runtime/monitor/VornEventMonitorManager.h"
#include "runtime/support/VornException.h"
#include "tests/runtime/monitor/TestMonitor.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

using TestSupport::exists;
using TestSupport::LogCapture;
using TestSupport::TemporaryDirectory;
using TestSupport::waitUntil;
using TestSupport::writeFile;
using VornMonitor::EventSpool;
using VornMonitor::VornEventData;
using VornMonitor::VornEventMonitorManager;

namespace {

using Lines = std::vector<std::string>;

VornEventMonitorManager& manager() { return VornEventMonitorManager::getInstance(); }

// A dependent of the manager, as the service is one.
class Listener : public VornSupport::VornDependent {
public:
    Listener() { manager().addDependent(*this); }
    ~Listener() override { manager().removeDependent(*this); }
    void handleNotification(VornSupport::VornCollaborator&,
                            const VornSupport::VornNotification& notification) override {
        if (notification.getClassName() == "TimerNotification") ++told;
    }
    std::atomic<int> told{0};
};

class EventProcessing : public testing::Test {
protected:
    EventProcessing() : spool_(directory_.file("trapinfo.txt")) {
        manager().startMonitors(nullptr);
        journal_.take();
    }
    ~EventProcessing() override {
        manager().processEvents(spool_);
        manager().stopMonitors();
    }

    TemporaryDirectory directory_;
    const std::string spool_;
    Journal journal_;
    TestMonitor monitor_{"A", &journal_};
};

Lines textsOf(const std::string& fileName) {
    Lines texts;
    EventSpool::process(fileName, [&](const VornEventData& event) {
        EXPECT_EQ(event.source, fileName);
        texts.push_back(event.text);
    });
    return texts;
}

}  // namespace

TEST_F(EventProcessing, TellsItsDependentsThatEventsWait) {
    Listener listener;
    manager().postEvent({"test", "one"});
    EXPECT_TRUE(waitUntil([&] { return listener.told > 0; }));
    manager().processEvents(spool_);
    EXPECT_EQ(journal_.take(), Lines{"A event test one"});

    const int before = listener.told;
    manager().postEvent({"test", "two"});
    EXPECT_TRUE(waitUntil([&] { return listener.told > before; }));
}

TEST_F(EventProcessing, TellsOfManyEventsThatComeTogetherOnlyAFewTimes) {
    std::atomic<int> told{0};
    VornMonitor::EventQueue queue([&] { ++told; });
    for (int i = 0; i < 1000; ++i) queue.post({"test", std::to_string(i)});
    EXPECT_TRUE(waitUntil([&] { return told > 0; }));
    EXPECT_EQ(queue.take().size(), 1000u);
    EXPECT_LT(told, 100);
}

TEST_F(EventProcessing, OffersEachEventOnceInTheOrderOfPosting) {
    manager().postEvent({"test", "one"});
    manager().postEvent({"test", "two"});
    manager().processEvents(spool_);
    manager().processEvents(spool_);
    EXPECT_EQ(journal_.take(), (Lines{"A event test one", "A event test two"}));
}

TEST_F(EventProcessing, OffersEventsToEveryStartedMonitorAsTheyCame) {
    TestMonitor b("B", &journal_);
    TestMonitor c("C", &journal_);
    c.onInitialize = [] { return false; };
    manager().startMonitors(nullptr);
    journal_.take();
    manager().postEvent({"test", "one"});
    manager().processEvents(spool_);
    // What A changed in it is A's own.
    EXPECT_EQ(journal_.take(), (Lines{"A event test one", "B event test one"}));
    b.stop();
}

TEST_F(EventProcessing, GoesOnWhenAMonitorFailsOverAnEvent) {
    TestMonitor b("B", &journal_);
    manager().startMonitors(nullptr);
    journal_.take();
    monitor_.onEvent = [] { throw VornSupport::VornException("cannot"); };
    manager().postEvent({"test", "one"});
    const LogCapture log(2);
    manager().processEvents(spool_);
    EXPECT_EQ(journal_.take(), (Lines{"A event test one", "B event test one"}));
    EXPECT_EQ(log.texts(2), Lines{"VornEventMonitorManager::processEvents: A: cannot"});
    monitor_.onEvent = nullptr;
    b.stop();
}

TEST_F(EventProcessing, OffersPostedEventsBeforeThoseOfTheFile) {
    writeFile(spool_, "from the file\n");
    manager().postEvent({"test", "posted"});
    manager().processEvents(spool_);
    EXPECT_EQ(journal_.take(),
              (Lines{"A event test posted", "A event " + spool_ + " from the file"}));
    EXPECT_FALSE(exists(spool_));
}

TEST_F(EventProcessing, TakesEventsOfManyThreads) {
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 250; ++i) manager().postEvent({"test", "x"});
        });
    }
    threads.clear();
    manager().processEvents(spool_);
    EXPECT_EQ(journal_.take().size(), 1000u);
}

TEST_F(EventProcessing, DropsWhatNobodyFetches) {
    VornMonitor::EventQueue queue([] {});
    const LogCapture log(2);
    for (std::size_t i = 0; i < VornMonitor::EventQueue::kMaxWaiting + 10; ++i) {
        queue.post({"test", std::to_string(i)});
    }
    EXPECT_EQ(log.texts(2), Lines{"VornEventMonitorManager::postEvent: 10000 events wait; "
                                  "further ones are dropped"});
    EXPECT_EQ(queue.take().size(), VornMonitor::EventQueue::kMaxWaiting);
    queue.post({"test", "again"});
    EXPECT_EQ(queue.take().size(), 1u);
}

// ---- the spool file --------------------------------------------------------------

TEST(EventSpool, OffersTheLinesAndDeletesTheFile) {
    const TemporaryDirectory directory;
    const std::string file = directory.file("trapinfo.txt");
    writeFile(file, "one\r\n\n\r\ntwo\n three \nlast");
    EXPECT_EQ(textsOf(file), (Lines{"one", "two", " three ", "last"}));
    EXPECT_FALSE(exists(file));
    EXPECT_FALSE(exists(file + ".taken"));
}

TEST(EventSpool, FindsNothingInAMissingOrEmptyFile) {
    const TemporaryDirectory directory;
    const std::string file = directory.file("trapinfo.txt");
    const LogCapture log(2);
    EXPECT_TRUE(textsOf(file).empty());
    writeFile(file, "");
    EXPECT_TRUE(textsOf(file).empty());
    EXPECT_FALSE(exists(file));
    EXPECT_TRUE(textsOf(directory.file("no-folder/trapinfo.txt")).empty());
    EXPECT_TRUE(log.records().empty());
}

TEST(EventSpool, ReadsFirstWhatAnEarlierLifeLeftUnread) {
    const TemporaryDirectory directory;
    const std::string file = directory.file("trapinfo.txt");
    writeFile(file + ".taken", "old\n");
    writeFile(file, "new\n");
    EXPECT_EQ(textsOf(file), (Lines{"old", "new"}));
    EXPECT_FALSE(exists(file));
    EXPECT_FALSE(exists(file + ".taken"));
}

TEST(EventSpool, LeavesAFileThatComesMeanwhileForTheNextTime) {
    const TemporaryDirectory directory;
    const std::string file = directory.file("trapinfo.txt");
    writeFile(file, "one\n");
    Lines texts;
    EventSpool::process(file, [&](const VornEventData& event) {
        texts.push_back(event.text);
        writeFile(file, "two\n");
    });
    EXPECT_EQ(texts, Lines{"one"});
    EXPECT_EQ(textsOf(file), Lines{"two"});
}

TEST(EventSpool, CutsALineThatNeverEnds) {
    const TemporaryDirectory directory;
    const std::string file = directory.file("trapinfo.txt");
    std::string content(EventSpool::kMaxLine + 100, 'x');
    content.append("\nshort\n").append(1 << 20, 'y');
    writeFile(file, content);
    const Lines texts = textsOf(file);
    ASSERT_EQ(texts.size(), 3u);
    EXPECT_EQ(texts[0], std::string(EventSpool::kMaxLine, 'x'));
    EXPECT_EQ(texts[1], "short");
    EXPECT_EQ(texts[2], std::string(EventSpool::kMaxLine, 'y'));
}

TEST(EventSpool, KeepsBytesThatAreNoText) {
    const TemporaryDirectory directory;
    const std::string file = directory.file("trapinfo.txt");
    const std::string line("a\0b\xff\x1a\x01", 6);
    writeFile(file, line + "\nc");
    EXPECT_EQ(textsOf(file), (Lines{line, "c"}));
}

TEST(EventSpool, LogsWhatItCannotTakeAndLeavesTheEventsThere) {
    const TemporaryDirectory directory;
    const std::string file = directory.file("trapinfo.txt");
    writeFile(file, "one\n");
    // In the place of the taken file stands something that cannot go.
    std::filesystem::create_directories(TestSupport::toPath(file + ".taken") / "occupied");
    const LogCapture log(2);
    EXPECT_TRUE(textsOf(file).empty());
    EXPECT_TRUE(exists(file));
    ASSERT_EQ(log.texts(2).size(), 1u);
    EXPECT_TRUE(log.texts(2)[0].starts_with("VornEventMonitorManager::processEvents: cannot "));

    std::filesystem::remove_all(TestSupport::toPath(file + ".taken"));
    EXPECT_EQ(textsOf(file), Lines{"one"});
}
