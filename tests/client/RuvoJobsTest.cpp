#include "client/RuvoJobs.h"
#include "tests/client/ScriptedDaemon.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

using namespace ClientTest;
using Ruvo::RuvoClient;
using Ruvo::RuvoClientError;
using Ruvo::RuvoJobs;
using Ruvo::RuvoProblem;

namespace {

std::string job(std::string_view command, const std::string& arguments = "") {
    return engineRequest("JobStatus", command, arguments);
}

// Runs a test's calls against a daemon that expects `request` and answers.
template <typename Calls>
void against(const std::string& request, const std::string& answer, Calls calls) {
    ScriptedDaemon daemon([&](ScriptedPeer& peer) {
        peer.open();
        peer.serve(request, answer);
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    RuvoJobs jobs(client);
    calls(jobs);
}

template <typename Call>
void expectDeclined(Call call, std::int32_t code, const std::string& part) {
    try {
        call();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const RuvoClientError& error) {
        EXPECT_EQ(error.problem(), RuvoProblem::Declined);
        EXPECT_EQ(error.code(), code);
        EXPECT_NE(std::string(error.what()).find(part), std::string::npos) << error.what();
    }
}

}  // namespace

TEST(RuvoJobs, CreatesWithTheDescriptionBeforeTheName) {
    against(job("RUVO_JS_CREATE", str("at two") + str("backup")), i32(12),
            [](RuvoJobs& jobs) { EXPECT_EQ(jobs.create("backup", "at two"), 12); });
}

TEST(RuvoJobs, TellsThatANameIsTaken) {
    against(job("RUVO_JS_CREATE", str("") + str("backup")), i32(-1), [](RuvoJobs& jobs) {
        expectDeclined([&] { jobs.create("backup", ""); }, -1, "\"backup\" already");
    });
}

TEST(RuvoJobs, TellsThatTheTableIsFull) {
    against(job("RUVO_JS_CREATE", str("") + str("backup")), i32(0), [](RuvoJobs& jobs) {
        expectDeclined([&] { jobs.create("backup", ""); }, 0, "full");
    });
}

TEST(RuvoJobs, MapsNumbersBehindTheirCount) {
    against(job("RUVO_JS_MAP_JOB", i32(3) + i32(2) + i32(-5) + i32(7)), i32(3),
            [](RuvoJobs& jobs) { jobs.map(3, std::vector<std::int32_t>{-5, 7}); });
}

TEST(RuvoJobs, MapsAnEmptyList) {
    against(job("RUVO_JS_MAP_JOB", i32(3) + i32(0)), i32(3),
            [](RuvoJobs& jobs) { jobs.map(3, {}); });
}

TEST(RuvoJobs, LooksUpAName) {
    against(job("RUVO_JS_LOOKUP", str("backup")), i32(4),
            [](RuvoJobs& jobs) { EXPECT_EQ(jobs.lookup("backup"), 4); });
}

TEST(RuvoJobs, FindsNoJobOfAnUnknownName) {
    against(job("RUVO_JS_LOOKUP", str("backup")), i32(-1),
            [](RuvoJobs& jobs) { EXPECT_FALSE(jobs.lookup("backup")); });
}

TEST(RuvoJobs, ChangesAJob) {
    against(job("RUVO_JS_DELETE", i32(4)), i32(4), [](RuvoJobs& jobs) { jobs.remove(4); });
    against(job("RUVO_JS_CANCEL", i32(4)), i32(4), [](RuvoJobs& jobs) { jobs.cancel(4); });
    against(job("RUVO_JS_SET_PROGRESS", i32(4) + i32(-120)), i32(4),
            [](RuvoJobs& jobs) { jobs.setProgress(4, -120); });
}

TEST(RuvoJobs, TellsThatThereIsNoSuchJob) {
    const std::string text = "no job 9";
    against(job("RUVO_JS_DELETE", i32(9)), i32(-1), [&](RuvoJobs& jobs) {
        expectDeclined([&] { jobs.remove(9); }, -1, text);
    });
    against(job("RUVO_JS_CANCEL", i32(9)), i32(-1), [&](RuvoJobs& jobs) {
        expectDeclined([&] { jobs.cancel(9); }, -1, text);
    });
    against(job("RUVO_JS_SET_PROGRESS", i32(9) + i32(1)), i32(-1), [&](RuvoJobs& jobs) {
        expectDeclined([&] { jobs.setProgress(9, 1); }, -1, text);
    });
    against(job("RUVO_JS_MAP_JOB", i32(9) + i32(0)), i32(-1), [&](RuvoJobs& jobs) {
        expectDeclined([&] { jobs.map(9, {}); }, -1, text);
    });
}

TEST(RuvoJobs, TakesMinusOneForNoJobEvenWhereItWasAskedFor) {
    against(job("RUVO_JS_DELETE", i32(-1)), i32(-1), [](RuvoJobs& jobs) {
        expectDeclined([&] { jobs.remove(-1); }, -1, "no job -1");
    });
}

TEST(RuvoJobs, TakesEveryProgressAsItIs) {
    for (const std::int32_t progress :
         {0, 50, 101, -1, -999, std::numeric_limits<std::int32_t>::min()}) {
        against(job("RUVO_JS_GET_PROGRESS", i32(4)), i32(progress),
                [&](RuvoJobs& jobs) { EXPECT_EQ(jobs.getProgress(4), progress); });
    }
}

TEST(RuvoJobs, WaitsForNoAnswerToAllProgress) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(1) + job("RUVO_JS_GET_ALL_PROGRESS"));
        peer.serve(job("RUVO_JS_LOOKUP", str("a")), i32(2));
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    RuvoJobs jobs(client);
    jobs.requestAllProgress();
    EXPECT_EQ(jobs.lookup("a"), 2);  // its answer is not taken for the other's
}

TEST(RuvoJobs, MakesABatchOfItsRequests) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(8) + job("RUVO_JS_CREATE", str("d") + str("n")) +
                    job("RUVO_JS_LOOKUP", str("n")) + job("RUVO_JS_SET_PROGRESS", i32(1) + i32(2)) +
                    job("RUVO_JS_GET_PROGRESS", i32(1)) + job("RUVO_JS_GET_ALL_PROGRESS") +
                    job("RUVO_JS_MAP_JOB", i32(1) + i32(1) + i32(6)) +
                    job("RUVO_JS_CANCEL", i32(1)) + job("RUVO_JS_DELETE", i32(1)));
        peer.send(i32(1) + i32(1) + i32(1) + i32(2) + i32(1) + i32(1) + i32(1));
        peer.awaitClose();
    });
    RuvoClient client(daemon.options());
    const std::vector<std::int32_t> numbers{6};
    const auto answers = client.call(std::vector{
        RuvoJobs::createRequest("n", "d"), RuvoJobs::lookupRequest("n"),
        RuvoJobs::setProgressRequest(1, 2), RuvoJobs::getProgressRequest(1),
        RuvoJobs::allProgressRequest(), RuvoJobs::mapRequest(1, numbers),
        RuvoJobs::cancelRequest(1), RuvoJobs::removeRequest(1)});
    EXPECT_EQ(answers, (std::vector<std::int32_t>{1, 1, 1, 2, 0, 1, 1, 1}));
}
