// Monitors that VornEventMonitorManager makes on demand, from announcements and
// from libraries.

#include "runtime/monitor/VornEventMonitorManager.h"
#include "runtime/platform/ModuleFolder.h"
#include "runtime/support/VornEvent.h"
#include "runtime/support/VornException.h"
#include "tests/runtime/monitor/TestMonitor.h"
#include "tests/support/FakeConnection.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

using namespace std::chrono_literals;
using TestSupport::FakeConnection;
using TestSupport::LogCapture;
using TestSupport::waitUntil;
using VornMonitor::VornEventMonitor;
using VornMonitor::VornEventMonitorManager;
using VornSupport::VornException;
using VornSupport::VornPropertyNotFound;

namespace {

using Lines = std::vector<std::string>;
using Properties = VornEventMonitor::Properties;
using PropertiesPointer = VornSupport::VornSmartPointer<Properties>;

const char somewhereInThisProgram = 0;

VornEventMonitorManager& manager() { return VornEventMonitorManager::getInstance(); }

std::string messageOf(const std::function<void()>& body) {
    try {
        body();
    } catch (const VornException& e) {
        EXPECT_TRUE(typeid(e) == typeid(VornException)) << e.getMessage();
        return e.getMessage();
    }
    return "nothing was thrown";
}

class MonitorLoading : public testing::Test {
protected:
    MonitorLoading() {
        manager().setModuleFolder(VornPlatform::folderOfModuleAt(&somewhereInThisProgram));
        properties_->setProperty("key", "value");
    }
    ~MonitorLoading() override { manager().setModuleFolder(""); }

    void load(const std::string& name) { manager().loadMonitor(name, properties_); }

    const PropertiesPointer properties_ = VornSupport::makeCounted<Properties>();
    Journal journal_;
};

// Announces a monitor for a scope.
class Announced {
public:
    Announced(const std::string& name, VornEventMonitorManager::Creator creator) : name_(name) {
        manager().announce(name_, std::move(creator));
    }
    ~Announced() { manager().withdraw(name_); }

private:
    const std::string name_;
};

std::string ask(const std::string& monitor, const std::string& what) {
    FakeConnection connection;
    connection.sendString(what);
    manager().handleClient(monitor, connection);
    return connection.written().at(0);
}

}  // namespace

// ---- announced monitors ------------------------------------------------------------

TEST_F(MonitorLoading, MakesAnAnnouncedMonitorOnDemand) {
    const Announced announced(
        "A", [&] { return std::make_unique<TestMonitor>("A", &journal_); });
    EXPECT_FALSE(manager().isKnown("A"));
    load("A");
    EXPECT_TRUE(manager().isKnown("A"));
    EXPECT_TRUE(journal_.take().empty());  // not started yet
    load("A");                             // nothing more to do
    EXPECT_TRUE(manager().startMonitors(properties_));
    manager().unloadMonitor("A");
    EXPECT_FALSE(manager().isKnown("A"));
    EXPECT_EQ(journal_.take(), (Lines{"A initialize", "A cleanup", "A end"}));
}

TEST_F(MonitorLoading, GivesTheMonitorItsPropertiesBeforeItsFirstClient) {
    const Announced announced("A", [] {
        auto monitor = std::make_unique<TestMonitor>("A");
        TestMonitor* const self = monitor.get();
        monitor->onClient = [self](VornNet::VornConnection& connection) {
            connection.writeString(self->requireProperty("key"));
        };
        return monitor;
    });
    load("A");
    EXPECT_EQ(ask("A", ""), "string value");
}

TEST_F(MonitorLoading, TakesNoClientBeforeTheMonitorIsFullyMade) {
    std::string early;
    class Slow : public TestMonitor {
    public:
        explicit Slow(std::string& answer) : TestMonitor("A") {
            std::jthread([&] { answer = messageOf([] { ask("A", ""); }); }).join();
        }
    };
    const Announced announced("A", [&] { return std::make_unique<Slow>(early); });
    load("A");
    EXPECT_EQ(early, "VornEventMonitorManager::handleClient: unknown monitor A");
    EXPECT_TRUE(manager().isKnown("A"));
}

TEST_F(MonitorLoading, LeavesNothingOfAMonitorThatCannotBeMade) {
    bool works = false;
    const Announced announced("A", [&] {
        auto monitor = std::make_unique<TestMonitor>("A", &journal_);
        if (!works) throw VornException("no device", 19);
        return monitor;
    });
    EXPECT_EQ(messageOf([&] { load("A"); }), "no device");
    EXPECT_FALSE(manager().isKnown("A"));
    EXPECT_EQ(journal_.take(), Lines{"A end"});
    works = true;
    load("A");
    EXPECT_TRUE(manager().isKnown("A"));
}

TEST_F(MonitorLoading, RefusesACreatorThatMakesSomethingElse) {
    const Announced none("None", [] { return nullptr; });
    EXPECT_EQ(messageOf([&] { load("None"); }),
              "VornEventMonitorManager::loadMonitor: no monitor None was made");
    const Announced other("One", [] { return std::make_unique<TestMonitor>("Other"); });
    EXPECT_EQ(messageOf([&] { load("One"); }),
              "VornEventMonitorManager::loadMonitor: no monitor One was made");
    EXPECT_FALSE(manager().isKnown("Other"));
}

TEST_F(MonitorLoading, UnloadsAMonitorWithItsAnnouncement) {
    manager().announce("A", [&] { return std::make_unique<TestMonitor>("A", &journal_); });
    load("A");
    manager().startMonitors(properties_);
    manager().withdraw("A");
    EXPECT_EQ(journal_.take(), (Lines{"A initialize", "A cleanup", "A end"}));
    EXPECT_THROW(load("A"), VornException);
    manager().withdraw("A");  // once more does nothing
}

TEST_F(MonitorLoading, TakesTheLatestAnnouncementOfAName) {
    const Announced first("A", []() -> std::unique_ptr<VornEventMonitor> { throw 1; });
    const Announced second("A", [] { return std::make_unique<TestMonitor>("A"); });
    load("A");
    EXPECT_TRUE(manager().isKnown("A"));
}

TEST_F(MonitorLoading, LeavesMonitorsAloneThatItDidNotMake) {
    TestMonitor own("Own", &journal_);
    manager().startMonitors(properties_);
    const LogCapture log(3);
    manager().unloadMonitor("Own");
    manager().unloadMonitor("Unknown");
    EXPECT_EQ(log.texts(3), (Lines{"VornEventMonitorManager::unloadMonitor: Own was not loaded",
                                   "VornEventMonitorManager::unloadMonitor: Unknown was not "
                                   "loaded"}));
    EXPECT_TRUE(own.isStarted());
    load("Own");  // known already
    manager().stopMonitors();
    EXPECT_EQ(journal_.take(), (Lines{"Own initialize", "Own cleanup"}));
}

TEST_F(MonitorLoading, BreaksOffHangingClientsOfWhatItUnloads) {
    const Grace grace(20ms);
    const Announced announced("A", [] {
        auto monitor = std::make_unique<TestMonitor>("A");
        monitor->onClient = [](VornNet::VornConnection& connection) { connection.readInt(); };
        return monitor;
    });
    load("A");
    FakeConnection connection;
    connection.waitForMore();
    std::jthread client([&] {
        EXPECT_THROW(manager().handleClient("A", connection), VornException);
    });
    ASSERT_TRUE(waitUntil([&] { return connection.isWaiting(); }));
    manager().unloadMonitor("A");
    EXPECT_TRUE(connection.isAborted());
}

// ---- libraries ---------------------------------------------------------------------

TEST_F(MonitorLoading, LoadsTheLibraryOfTheName) {
    const LogCapture log(4);
    load("plugin_attached");
    EXPECT_TRUE(manager().isKnown("plugin_attached"));
    EXPECT_EQ(ask("plugin_attached", "x"), "string plugin_attached read x");
    manager().startMonitors(properties_);
    manager().unloadMonitor("plugin_attached");
    EXPECT_FALSE(manager().isKnown("plugin_attached"));
    EXPECT_EQ(log.beginning("plugin_attached"),
              (Lines{"plugin_attached: attached", "plugin_attached: initialized value",
                     "plugin_attached second: initialized value", "plugin_attached: cleaned up",
                     "plugin_attached second: cleaned up", "plugin_attached: detached",
                     "plugin_attached: destroyed", "plugin_attached second: destroyed",
                     "plugin_attached: unloaded"}));
}

TEST_F(MonitorLoading, LetsMonitorsThatWereMadeTogetherGoTogether) {
    load("plugin_attached");
    EXPECT_EQ(ask("plugin_attached second", "x"), "string plugin_attached second read x");
    const LogCapture log(4);
    manager().unloadMonitor("plugin_attached second");
    EXPECT_FALSE(manager().isKnown("plugin_attached"));
    EXPECT_TRUE(log.has(4, "plugin_attached: unloaded"));
}

TEST_F(MonitorLoading, LoadsALibraryAnyNumberOfTimes) {
    for (int round = 0; round < 3; ++round) {
        const LogCapture log(4);
        load("plugin_attached");
        EXPECT_EQ(ask("plugin_attached", "x"), "string plugin_attached read x");
        manager().unloadMonitor("plugin_attached");
        EXPECT_EQ(log.count(4, "plugin_attached: unloaded"), 1u);
    }
}

TEST_F(MonitorLoading, KeepsALibraryForAsLongAsOneOfItsMonitorsLives) {
    const LogCapture log(4);
    load("plugin_announcing");
    // What the library could not make is told by an exception of our own.
    EXPECT_EQ(messageOf([&] { load("plugin_announcing second"); }), "not the first time");
    EXPECT_FALSE(manager().isKnown("plugin_announcing second"));
    load("plugin_announcing second");
    manager().unloadMonitor("plugin_announcing");
    EXPECT_FALSE(manager().isKnown("plugin_announcing"));
    EXPECT_FALSE(log.has(4, "plugin_announcing: detached"));
    load("plugin_announcing");
    manager().unloadMonitor("plugin_announcing");
    EXPECT_EQ(ask("plugin_announcing second", "x"), "string plugin_announcing second read x");
    manager().unloadMonitor("plugin_announcing second");
    EXPECT_TRUE(log.has(4, "plugin_announcing: unloaded"));
    // Its announcements have gone with it.
    EXPECT_THROW(load("plugin_announcing second"), VornException);
}

TEST_F(MonitorLoading, CopiesTheExceptionsOfALoadedMonitor) {
    load("plugin_attached");
    std::exception_ptr kept[4];
    const char* const requests[] = {"throw own", "throw derived", "throw property",
                                    "throw number"};
    for (int i = 0; i < 4; ++i) {
        try {
            ask("plugin_attached", requests[i]);
            FAIL() << "nothing was thrown";
        } catch (...) {
            kept[i] = std::current_exception();
        }
    }
    // They outlive the library.
    const LogCapture log(4);
    manager().unloadMonitor("plugin_attached");
    EXPECT_TRUE(log.has(4, "plugin_attached: unloaded"));
    EXPECT_EQ(messageOf([&] { std::rethrow_exception(kept[0]); }), "an own exception");
    EXPECT_EQ(messageOf([&] { std::rethrow_exception(kept[1]); }), "a derived exception");
    EXPECT_EQ(messageOf([&] { std::rethrow_exception(kept[3]); }), "unknown exception");
    try {
        std::rethrow_exception(kept[1]);
    } catch (const VornException& e) {
        EXPECT_EQ(e.getCode(), 17);
    }
    try {
        std::rethrow_exception(kept[2]);
    } catch (const VornPropertyNotFound& e) {
        EXPECT_EQ(e.getPropertyName(), "a.key");
    }
}

TEST_F(MonitorLoading, LeavesNothingOfALibraryThatCannotBeAttached) {
    const LogCapture log(4);
    EXPECT_EQ(messageOf([&] { load("plugin_throws"); }), "cannot be attached");
    EXPECT_EQ(log.beginning("plugin_throws"),
              (Lines{"plugin_throws: attached", "plugin_throws: detached",
                     "plugin_throws: destroyed", "plugin_throws: unloaded"}));
    EXPECT_TRUE(log.has(2, "VornEventMonitorManager::unloadMonitor: detaching plugin_throws: "
                           "cannot be detached either"));
    EXPECT_FALSE(manager().isKnown("plugin_throws"));
    EXPECT_THROW(load("plugin_throws second"), VornException);
}

TEST_F(MonitorLoading, KeepsALibraryWhoseMonitorOutlivesIt) {
    const LogCapture log(2);
    load("plugin_leaves");
    manager().unloadMonitor("plugin_leaves");
    EXPECT_EQ(log.texts(2), Lines{"VornEventMonitorManager::unloadMonitor: the library "
                                  "plugin_leaves left 1 monitors behind and stays loaded"});
    EXPECT_FALSE(manager().isKnown("plugin_leaves"));
    EXPECT_TRUE(manager().startMonitors(properties_));
    FakeConnection connection;
    EXPECT_THROW(manager().handleClient("plugin_leaves", connection), VornException);
}

TEST_F(MonitorLoading, RefusesALibraryWithoutAMonitorOfItsName) {
    const LogCapture log(4);
    EXPECT_EQ(messageOf([&] { load("plugin_other"); }),
              "VornEventMonitorManager::loadMonitor: the library plugin_other has no monitor of "
              "that name");
    EXPECT_FALSE(manager().isKnown("quite another"));
    EXPECT_TRUE(log.has(4, "plugin_other: unloaded"));
}

TEST_F(MonitorLoading, RefusesLibrariesThatAreNoModules) {
    EXPECT_EQ(messageOf([&] { load("plugin_nomodule"); }),
              "VornEventMonitorManager::loadMonitor: cannot load plugin_nomodule: it has no "
              "function vornModuleData");
    EXPECT_EQ(messageOf([&] { load("plugin_noobject"); }),
              "VornEventMonitorManager::loadMonitor: cannot load plugin_noobject: it has no "
              "module object");
}

TEST_F(MonitorLoading, SaysWhyALibraryCannotBeLoaded) {
    const std::string begin = "VornEventMonitorManager::loadMonitor: cannot load ";
    const std::string missing = messageOf([&] { load("plugin_missing"); });
    EXPECT_TRUE(missing.starts_with(begin + "plugin_missing: ")) << missing;
    EXPECT_NE(missing.find("plugin_missing", begin.size() + 14), std::string::npos) << missing;
}

TEST_F(MonitorLoading, StaysInTheModuleFolder) {
    for (const std::string name :
         {"", ".", "..", "../plugin_attached", "a/b", "a\\b", "c:plugin_attached"}) {
        EXPECT_EQ(messageOf([&] { load(name); }),
                  "VornEventMonitorManager::loadMonitor: cannot load " + name +
                      ": not a name of a library");
    }
}
