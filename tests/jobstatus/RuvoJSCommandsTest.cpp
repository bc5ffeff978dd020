#include "jobstatus/RuvoJSCommands.h"

#include "runtime/net/VornNetLimits.h"
#include "runtime/support/VornException.h"
#include "tests/jobstatus/JobStatusFixture.h"
#include "tests/support/LogCapture.h"

#include <limits>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

using TestSupport::LogCapture;
using VornSupport::VornException;

namespace {

constexpr int kMost = std::numeric_limits<int>::max();
constexpr int kLeast = std::numeric_limits<int>::min();

class RuvoJSCommands : public JobStatusFixture {};

}  // namespace

// ---- RUVO_JS_CREATE and RUVO_JS_LOOKUP ---------------------------------------------

TEST_F(RuvoJSCommands, CreateReadsTheDescriptionBeforeTheName) {
    Connection connection;
    connection.sendString("RUVO_JS_CREATE").sendString("nightly").sendString("backup");
    EXPECT_EQ(serve(connection), Texts{"int 1"});
    EXPECT_EQ(connection.reads(), (Texts{"string", "string", "string"}));
    EXPECT_EQ(lookup("backup"), 1);
    EXPECT_EQ(lookup("nightly"), -1);
    EXPECT_EQ(events(), Texts{"VornJSEvent:backup=2"});
}

TEST_F(RuvoJSCommands, CreateRefusesANameThatIsTaken) {
    EXPECT_EQ(create("a"), 1);
    EXPECT_EQ(create("a"), -1);
    EXPECT_EQ(create("a", "another description"), -1);
    EXPECT_EQ(engine_.size(), 1u);
    EXPECT_EQ(events(), Texts{"VornJSEvent:a=2"});
}

TEST_F(RuvoJSCommands, CreateFillsTheLowestGap) {
    for (const char* name : {"a", "b", "c", "d"}) create(name);
    ask("RUVO_JS_DELETE", {3});
    EXPECT_EQ(create("e"), 3);
    EXPECT_EQ(ask("RUVO_JS_DELETE", {3}), 3);
    EXPECT_EQ(create("e"), 3);
}

TEST_F(RuvoJSCommands, CreateKeepsAJobWhoseAnswerIsLost) {
    Connection connection;
    connection.sendString("RUVO_JS_CREATE").sendString("d").sendString("a").failWritesAfter(0);
    EXPECT_THROW(serve(connection), VornException);
    EXPECT_EQ(lookup("a"), 1);
    EXPECT_EQ(events(), Texts{"VornJSEvent:a=2"});
}

TEST_F(RuvoJSCommands, CreateMakesNothingOfATruncatedRequest) {
    Connection connection;
    connection.sendString("RUVO_JS_CREATE").sendString("d").sendBytes(std::string("\0\0\0\5a", 5));
    EXPECT_THROW(serve(connection), VornException);
    EXPECT_TRUE(connection.written().empty());
    EXPECT_EQ(engine_.size(), 0u);
}

TEST_F(RuvoJSCommands, LookupFindsTheExactName) {
    EXPECT_EQ(lookup("a"), -1);
    create("a");
    create("b");
    EXPECT_EQ(lookup("b"), 2);
    EXPECT_EQ(lookup("B"), -1);
    ask("RUVO_JS_DELETE", {2});
    EXPECT_EQ(lookup("b"), -1);
    EXPECT_EQ(lookup("a"), 1);
}

// ---- RUVO_JS_MAP_JOB ---------------------------------------------------------------

TEST_F(RuvoJSCommands, MapJobReplacesTheListInTheOrderRead) {
    create("a");
    EXPECT_EQ(ask("RUVO_JS_MAP_JOB", {1, 3, 30, -1, 30}), 1);
    EXPECT_EQ(engine_.getMappedIds(1), (std::vector<std::int32_t>{30, -1, 30}));
    EXPECT_EQ(ask("RUVO_JS_MAP_JOB", {1, 1, 7}), 1);
    EXPECT_EQ(engine_.getMappedIds(1), std::vector<std::int32_t>{7});
    EXPECT_EQ(events(), Texts{"VornJSEvent:a=2"});  // of the creation alone
}

TEST_F(RuvoJSCommands, MapJobReadsNoNumbersForACountOfZeroOrLess) {
    create("a");
    for (const int count : {0, -1, kLeast}) {
        ask("RUVO_JS_MAP_JOB", {1, 2, 8, 9});
        EXPECT_EQ(ask("RUVO_JS_MAP_JOB", {1, count}), 1) << count;
        EXPECT_TRUE(engine_.getMappedIds(1).empty()) << count;
    }
}

TEST_F(RuvoJSCommands, MapJobReadsTheNumbersOfAnUnknownJobToo) {
    EXPECT_EQ(ask("RUVO_JS_MAP_JOB", {1, 2, 8, 9}), -1);
    EXPECT_TRUE(engine_.getMappedIds(1).empty());
}

TEST_F(RuvoJSCommands, MapJobAllocatesNothingNearAHostileCount) {
    create("a");
    ask("RUVO_JS_MAP_JOB", {1, 1, 5});
    const auto most = static_cast<int>(VornNet::VornNetLimits::getInstance().blockBytes / 4);
    for (const int count : {kMost, most + 1}) {
        Connection connection;
        connection.sendString("RUVO_JS_MAP_JOB").sendInt(1).sendInt(count).sendInt(6);
        EXPECT_THROW(serve(connection), VornException);
        EXPECT_EQ(connection.unread(), 4u);
        EXPECT_TRUE(connection.written().empty());
    }
    // A count within the limit that the client does not keep.
    Connection connection;
    connection.sendString("RUVO_JS_MAP_JOB").sendInt(1).sendInt(most).sendInt(6);
    EXPECT_THROW(serve(connection), VornException);
    EXPECT_EQ(engine_.getMappedIds(1), std::vector<std::int32_t>{5});
}

TEST_F(RuvoJSCommands, MapJobTakesALongList) {
    create("a");
    std::vector<int> numbers(10002);
    std::iota(numbers.begin(), numbers.end(), 0);
    numbers[0] = 1;
    numbers[1] = 10000;
    EXPECT_EQ(ask("RUVO_JS_MAP_JOB", numbers), 1);
    EXPECT_EQ(engine_.getMappedIds(1).size(), 10000u);
    EXPECT_EQ(engine_.getMappedIds(1).back(), 10001);
}

// ---- progress ----------------------------------------------------------------------

TEST_F(RuvoJSCommands, SetProgressStoresAnyValue) {
    create("a");
    Texts expected{"VornJSEvent:a=2"};
    for (const int progress : {0, 50, 100, 101, -1, kMost, kLeast}) {
        EXPECT_EQ(ask("RUVO_JS_SET_PROGRESS", {1, progress}), 1);
        EXPECT_EQ(ask("RUVO_JS_GET_PROGRESS", {1}), progress);
        expected.push_back("VornJSEvent:a=3");
    }
    EXPECT_EQ(events(), expected);
}

TEST_F(RuvoJSCommands, ProgressOfAnUnknownJobIsAnsweredInTwoWays) {
    for (const int id : {1, 0, -1, 10000, kMost, kLeast}) {
        EXPECT_EQ(ask("RUVO_JS_SET_PROGRESS", {id, 5}), -1);
        EXPECT_EQ(ask("RUVO_JS_GET_PROGRESS", {id}), 0);
    }
    EXPECT_TRUE(events().empty());
}

TEST_F(RuvoJSCommands, GetAllProgressAnswersNothingAtAll) {
    create("a");
    Connection connection;
    connection.sendString("RUVO_JS_GET_ALL_PROGRESS").sendInt(1);
    const LogCapture log(9);
    EXPECT_TRUE(serve(connection).empty());
    EXPECT_EQ(connection.unread(), 4u);  // and reads nothing
    EXPECT_EQ(log.beginning("RUVO_JS_"),
              (Texts{"RUVO_JS_GET_ALL_PROGRESS::handleClient: enter",
                     "RUVO_JS_GET_ALL_PROGRESS::handleClient: exit"}));
}

// ---- the end of a job --------------------------------------------------------------

TEST_F(RuvoJSCommands, CancelLeavesTheJobInTheTable) {
    create("a");
    ask("RUVO_JS_SET_PROGRESS", {1, 30});
    EXPECT_EQ(ask("RUVO_JS_CANCEL", {1}), 1);
    EXPECT_EQ(lookup("a"), 1);
    EXPECT_EQ(ask("RUVO_JS_GET_PROGRESS", {1}), 30);
    EXPECT_EQ(ask("RUVO_JS_SET_PROGRESS", {1, 40}), 1);
    EXPECT_EQ(ask("RUVO_JS_CANCEL", {1}), 1);
    EXPECT_EQ(ask("RUVO_JS_DELETE", {1}), 1);
    EXPECT_EQ(events(), (Texts{"VornJSEvent:a=2", "VornJSEvent:a=3", "VornJSEvent:a=1",
                               "VornJSEvent:a=3", "VornJSEvent:a=1", "VornJSEvent:a=0"}));
}

TEST_F(RuvoJSCommands, CancelAndDeleteAnswerAnUnknownJob) {
    for (const int id : {1, 0, -1, 10000, kMost, kLeast}) {
        EXPECT_EQ(ask("RUVO_JS_CANCEL", {id}), -1);
        EXPECT_EQ(ask("RUVO_JS_DELETE", {id}), -1);
    }
    EXPECT_TRUE(events().empty());
}

TEST_F(RuvoJSCommands, DeleteCompletesTheJobAndFreesItsName) {
    create("a");
    EXPECT_EQ(ask("RUVO_JS_DELETE", {1}), 1);
    EXPECT_EQ(ask("RUVO_JS_DELETE", {1}), -1);
    EXPECT_EQ(ask("RUVO_JS_GET_PROGRESS", {1}), 0);
    EXPECT_EQ(create("a"), 1);
    EXPECT_EQ(events(), (Texts{"VornJSEvent:a=2", "VornJSEvent:a=0", "VornJSEvent:a=2"}));
}

TEST_F(RuvoJSCommands, DeleteKeepsItsEffectWhenTheAnswerIsLost) {
    create("a");
    Connection connection;
    connection.sendString("RUVO_JS_DELETE").sendInt(1).failWritesAfter(0);
    EXPECT_THROW(serve(connection), VornException);
    EXPECT_EQ(lookup("a"), -1);
}

// ---- all of them -------------------------------------------------------------------

TEST_F(RuvoJSCommands, AnswerNothingWhenTheirArgumentsDoNotCome) {
    create("a");
    for (const char* command : {"RUVO_JS_CREATE", "RUVO_JS_MAP_JOB", "RUVO_JS_LOOKUP",
                                "RUVO_JS_DELETE", "RUVO_JS_SET_PROGRESS", "RUVO_JS_GET_PROGRESS",
                                "RUVO_JS_CANCEL"}) {
        Connection connection;
        connection.sendString(command).sendBytes(std::string("\0\0\0", 3));
        EXPECT_THROW(serve(connection), VornException) << command;
        EXPECT_TRUE(connection.written().empty()) << command;
    }
    EXPECT_EQ(engine_.size(), 1u);
    EXPECT_EQ(events(), Texts{"VornJSEvent:a=2"});
}

TEST_F(RuvoJSCommands, HoldNoLockWhileTheyWaitForTheirArguments) {
    create("a");
    Connection slow;
    slow.sendString("RUVO_JS_MAP_JOB").sendInt(1).sendInt(2).sendInt(8).waitForMore();
    std::jthread client([&] { EXPECT_EQ(serve(slow), Texts{"int 1"}); });
    EXPECT_TRUE(TestSupport::waitUntil([&] { return slow.isWaiting(); }));
    EXPECT_EQ(create("b"), 2);
    EXPECT_TRUE(engine_.getMappedIds(1).empty());
    slow.sendInt(9);
    client.join();
    EXPECT_EQ(engine_.getMappedIds(1), (std::vector<std::int32_t>{8, 9}));
}

TEST_F(RuvoJSCommands, AreFoundUnderTheirExactNamesOnly) {
    for (const char* command : {"RUVO_JS_PROGRESS", "ruvo_js_create", "RUVO_JS_COMPLETE", ""}) {
        EXPECT_EQ(ask(command, {}), -999) << command;
    }
}

// ---- traces ------------------------------------------------------------------------

TEST_F(RuvoJSCommands, TraceWhatTheyDo) {
    const LogCapture log(9);
    create("backup", "nightly");
    lookup("backup");
    lookup("restore");
    ask("RUVO_JS_SET_PROGRESS", {1, 50});
    ask("RUVO_JS_GET_PROGRESS", {1});
    ask("RUVO_JS_MAP_JOB", {1, 2, 8, 9});
    ask("RUVO_JS_CANCEL", {1});
    ask("RUVO_JS_DELETE", {1});
    ask("RUVO_JS_DELETE", {1});
    EXPECT_EQ(log.beginning("RUVO_JS_"),
              (Texts{
                  "RUVO_JS_CREATE::handleClient: enter: jobname=|backup| description=|nightly|",
                  "RUVO_JS_CREATE::handleClient: exit",
                  "RUVO_JS_LOOKUP::handleClient: enter: jobname=|backup|",
                  "RUVO_JS_LOOKUP::handleClient: exit, jobid=1",
                  "RUVO_JS_LOOKUP::handleClient: enter: jobname=|restore|",
                  "RUVO_JS_LOOKUP::handleClient: exit, jobid=-1",
                  "RUVO_JS_PROGRESS::handleClient: enter",
                  "RUVO_JS_SET_PROGRESS::handleClient: exit, jobid=1",
                  "RUVO_JS_GET_PROGRESS::handleClient: enter",
                  "RUVO_JS_GET_PROGRESS::handleClient: exit, progress=50",
                  "RUVO_JS_MAP_JOB::handleClient: jobid=1",
                  "RUVO_JS_MAP_JOB::handleClient: jobcount=2",
                  "RUVO_JS_MAP_JOB::handleClient: exit, jobid=1",
                  "RUVO_JS_CANCEL::handleClient: enter",
                  "RUVO_JS_CANCEL::handleClient: exit, jobid=1",
                  "RUVO_JS_DELETE::handleClient: enter",
                  "RUVO_JS_DELETE::handleClient: exit, jobid=1",
                  "RUVO_JS_DELETE::handleClient: enter",
                  "RUVO_JS_DELETE::handleClient: exit, jobid=-1",
              }));
}
