#include "tests/client/RuvoctlRun.h"
#include "tests/client/ScriptedDaemon.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>

using namespace ClientTest;
using Arguments = std::vector<std::string>;

namespace {

std::string job(std::string_view command, const std::string& arguments = "") {
    return engineRequest("JobStatus", command, arguments);
}

// What one run did.
struct Result {
    int status = -1;
    std::string out;
    std::string err;
};

Result run(const Arguments& arguments) {
    RuvoctlRun ruvoctl;
    Result result;
    result.status = ruvoctl.run(arguments);
    result.out = ruvoctl.out.text();
    result.err = ruvoctl.err.text();
    return result;
}

// Runs against a daemon that serves these requests with these answers.
using Exchange = std::pair<std::string, std::string>;
Result runAgainst(const std::vector<Exchange>& exchanges, Arguments arguments,
                  ScriptedDaemon::Transport transport = ScriptedDaemon::Transport::Tcp) {
    ScriptedDaemon daemon(
        [&](ScriptedPeer& peer) {
            peer.open();
            for (const auto& [request, answer] : exchanges) peer.serve(request, answer);
            peer.awaitClose();
        },
        transport);
    arguments.insert(arguments.begin(), {"--port", std::to_string(daemon.port())});
    return run(arguments);
}

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace

TEST(Ruvoctl, CreatesAJobAndPrintsItsId) {
    const Result result =
        runAgainst({{job("RUVO_JS_CREATE", str("at two") + str("nightly-backup")), i32(3)}},
                   {"job", "create", "nightly-backup", "--description", "at two"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "3\n");
    EXPECT_EQ(result.err, "");
}

TEST(Ruvoctl, TakesANumberForAnIdAndAnythingElseForAName) {
    EXPECT_EQ(runAgainst({{job("RUVO_JS_CANCEL", i32(17)), i32(17)}}, {"job", "cancel", "17"}).out,
              "job 17: cancelled\n");
    for (const std::string name : {"backup", "17b", "1 7", "+5", "", "-", "--5"}) {
        const Result result = runAgainst({{job("RUVO_JS_LOOKUP", str(name)), i32(17)},
                                          {job("RUVO_JS_CANCEL", i32(17)), i32(17)}},
                                         {"job", "cancel", "--", name});
        EXPECT_EQ(result.out, "job 17: cancelled\n") << name << result.err;
    }
}

TEST(Ruvoctl, TakesANumberForANameWhenToldSo) {
    const Result result = runAgainst({{job("RUVO_JS_LOOKUP", str("2024")), i32(5)},
                                      {job("RUVO_JS_DELETE", i32(5)), i32(5)}},
                                     {"job", "delete", "--name", "2024"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "job 5: deleted\n");
}

TEST(Ruvoctl, CreatesAndLooksUpNumbersAsNames) {
    EXPECT_EQ(runAgainst({{job("RUVO_JS_CREATE", str("") + str("99999999999")), i32(1)}},
                         {"job", "create", "99999999999"})
                  .out,
              "1\n");
    EXPECT_EQ(runAgainst({{job("RUVO_JS_LOOKUP", str("7")), i32(9)}}, {"job", "lookup", "7"}).out,
              "9\n");
}

TEST(Ruvoctl, TakesCommandNamesForJobNames) {
    for (const std::string name : {"watch", "stop", "job", "create"}) {
        EXPECT_EQ(runAgainst({{job("RUVO_JS_CREATE", str("") + str(name)), i32(1)}},
                             {"job", "create", name})
                      .out,
                  "1\n")
            << name;
    }
}

TEST(Ruvoctl, ReportsProgressNegativeAsWell) {
    for (const std::int32_t progress : {0, 50, 2147483647, -5, -2147483647 - 1}) {
        const std::string text = std::to_string(progress);
        const Result result =
            runAgainst({{job("RUVO_JS_SET_PROGRESS", i32(2) + i32(progress)), i32(2)}},
                       {"job", "progress", "2", text});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, "job 2: progress " + text + "\n");
    }
}

TEST(Ruvoctl, GetsProgressOfANamedJob) {
    const Result result = runAgainst({{job("RUVO_JS_LOOKUP", str("backup")), i32(4)},
                                      {job("RUVO_JS_GET_PROGRESS", i32(4)), i32(-3)}},
                                     {"job", "get", "backup"});
    EXPECT_EQ(result.out, "-3\n");
    EXPECT_EQ(result.status, 0);
}

TEST(Ruvoctl, MapsNumbersAndNone) {
    EXPECT_EQ(runAgainst({{job("RUVO_JS_MAP_JOB", i32(4) + i32(3) + i32(1) + i32(-2) + i32(3)),
                           i32(4)}},
                         {"job", "map", "4", "1", "-2", "3"})
                  .out,
              "job 4: 3 numbers mapped\n");
    EXPECT_EQ(runAgainst({{job("RUVO_JS_MAP_JOB", i32(4) + i32(0)), i32(4)}}, {"job", "map", "4"})
                  .out,
              "job 4: 0 numbers mapped\n");
}

TEST(Ruvoctl, SaysWhatTheDaemonRefused) {
    const Result taken = runAgainst({{job("RUVO_JS_CREATE", str("") + str("a")), i32(-1)}},
                                    {"job", "create", "a"});
    EXPECT_EQ(taken.status, 1);
    EXPECT_EQ(taken.out, "");
    EXPECT_EQ(taken.err, "ruvoctl: there is a job named \"a\" already\n");

    const Result missing =
        runAgainst({{job("RUVO_JS_DELETE", i32(8)), i32(-1)}}, {"job", "delete", "8"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "ruvoctl: there is no job 8\n");

    for (const std::string command : {"lookup", "get", "cancel", "delete", "map"}) {
        const Result unknown =
            runAgainst({{job("RUVO_JS_LOOKUP", str("b")), i32(-1)}}, {"job", command, "b"});
        EXPECT_EQ(unknown.status, 1) << command;
        EXPECT_EQ(unknown.err, "ruvoctl: there is no job named \"b\"\n") << command;
    }
}

TEST(Ruvoctl, WritesJson) {
    const auto json = [](const Result& result) { return nlohmann::json::parse(result.out); };
    const std::string odd = "a\"b\\\n\x1b\xff\xc3\xa9";
    const auto created = json(runAgainst({{job("RUVO_JS_CREATE", str("") + str(odd)), i32(3)}},
                                         {"job", "create", odd, "--json"}));
    EXPECT_EQ(created["id"], 3);
    EXPECT_EQ(created["name"], "a\"b\\\n\x1b\xef\xbf\xbd\xc3\xa9");  // U+FFFD for the bad byte
    EXPECT_EQ(json(runAgainst({{job("RUVO_JS_LOOKUP", str("x")), i32(3)}},
                              {"job", "lookup", "x", "--json"})),
              nlohmann::json({{"id", 3}, {"name", "x"}}));
    EXPECT_EQ(json(runAgainst({{job("RUVO_JS_GET_PROGRESS", i32(3)), i32(50)}},
                              {"--json", "job", "get", "3"})),
              nlohmann::json({{"id", 3}, {"progress", 50}}));
    EXPECT_EQ(json(runAgainst({{job("RUVO_JS_SET_PROGRESS", i32(3) + i32(50)), i32(3)}},
                              {"job", "progress", "3", "50", "--json"})),
              nlohmann::json({{"id", 3}, {"progress", 50}}));
    EXPECT_EQ(json(runAgainst({{job("RUVO_JS_MAP_JOB", i32(3) + i32(1) + i32(7)), i32(3)}},
                              {"job", "map", "3", "7", "--json"})),
              nlohmann::json({{"id", 3}, {"numbers", {7}}}));
    EXPECT_EQ(json(runAgainst({{job("RUVO_JS_CANCEL", i32(3)), i32(3)}},
                              {"job", "cancel", "3", "--json"})),
              nlohmann::json({{"id", 3}, {"cancelled", true}}));
    EXPECT_EQ(json(runAgainst({{job("RUVO_JS_DELETE", i32(3)), i32(3)}},
                              {"job", "delete", "3", "--json"})),
              nlohmann::json({{"id", 3}, {"deleted", true}}));
}

TEST(Ruvoctl, TalksOverUdp) {
    const Result result =
        runAgainst({{job("RUVO_JS_LOOKUP", str("a")), i32(3)}}, {"--udp", "job", "lookup", "a"},
                   ScriptedDaemon::Transport::Udp);
    EXPECT_EQ(result.out, "3\n") << result.err;
}

TEST(Ruvoctl, TakesThePortFromTheEnvironmentUnlessTold) {
    const auto serve = [](ScriptedPeer& peer) {
        peer.open();
        peer.serve(job("RUVO_JS_LOOKUP", str("a")), i32(3));
        peer.awaitClose();
    };
    {
        ScriptedDaemon daemon(serve);
        RuvoctlRun ruvoctl;
        ruvoctl.variables["RUVO_PORT"] = std::to_string(daemon.port());
        EXPECT_EQ(ruvoctl.run({"job", "lookup", "a"}), 0) << ruvoctl.err.text();
    }
    {
        ScriptedDaemon daemon(serve);
        RuvoctlRun ruvoctl;
        ruvoctl.variables["RUVO_PORT"] = std::to_string(unusedPort());
        EXPECT_EQ(ruvoctl.run({"job", "lookup", "a", "--port", std::to_string(daemon.port())}), 0)
            << ruvoctl.err.text();
    }
    for (const std::string bad : {"0", "65536", "x", "12x", "-1", " 1"}) {
        RuvoctlRun ruvoctl;
        ruvoctl.variables["RUVO_PORT"] = bad;
        EXPECT_EQ(ruvoctl.run({"job", "lookup", "a"}), 2) << bad;
        EXPECT_TRUE(has(ruvoctl.err.text(), "RUVO_PORT")) << bad;
    }
}

TEST(Ruvoctl, CannotReachADaemonThatIsNotThere) {
    const std::string port = std::to_string(unusedPort());
    const Result result = run({"--port", port, "job", "create", "a"});
    EXPECT_EQ(result.status, 3);
    EXPECT_TRUE(has(result.err, "cannot reach tcp:127.0.0.1:" + port)) << result.err;
    EXPECT_EQ(run({"--host", "no such host", "job", "create", "a"}).status, 3);
}

TEST(Ruvoctl, SaysThatAccessIsRefused) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.expect("RUVO\n");
        peer.close();
    });
    const Result result = run({"--port", std::to_string(daemon.port()), "job", "create", "a"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(has(result.err, "access refused")) << result.err;
}

TEST(Ruvoctl, GivesUpAfterTheTimeOut) {
    const auto steps = [](ScriptedPeer& peer) {
        peer.open();
        peer.expect(u16(1) + job("RUVO_JS_LOOKUP", str("a")));
    };
    Result result;
    runIntoSilence(steps, [&](const ScriptedDaemon::Script& script, const std::string& seconds) {
        ScriptedDaemon daemon(script);
        result = run({"--port", std::to_string(daemon.port()), "--timeout", seconds, "job",
                      "lookup", "a"});
        return result.status;
    });
    EXPECT_EQ(result.status, 3);
    EXPECT_TRUE(has(result.err, "in time")) << result.err;
}

TEST(Ruvoctl, RefusesBadUsage) {
    // No port of this test's: nothing is to be reached.
    const std::vector<Arguments> bad = {
        {},
        {"job"},
        {"jobs"},
        {"job", "create"},
        {"job", "create", "a", "b"},
        {"job", "create", "a", "--unknown"},
        {"job", "create", "a", "--description"},
        {"job", "progress", "1"},
        {"job", "progress", "1", "x"},
        {"job", "progress", "1", "2147483648"},
        {"job", "progress", "99999999999", "1"},
        {"job", "cancel", "-2147483649"},
        {"job", "map", "1", "2", "x"},
        {"job", "create", "a", "stop"},
        {"--port", "0", "job", "lookup", "a"},
        {"--port", "65536", "job", "lookup", "a"},
        {"--port", "x", "job", "lookup", "a"},
        {"--timeout", "0", "job", "lookup", "a"},
        {"--timeout", "-1", "job", "lookup", "a"},
        {"--timeout", "nan", "job", "lookup", "a"},
        {"--timeout", "1e300", "job", "lookup", "a"},
        {"notify"},
        {"notify", ""},
        {"notify", "a", "--data", "x", "--data-file", "y"},
        {"notify", "a", "--data-file", "/no/such/file"},
        {"watch"},
        {"watch", ""},
        {"watch", "a", "--count", "-1"},
        {"watch", "a", "--timeout", "-1"},
        {"watch", "a", "--delivery", "pipe"},
        {"raw", "M"},
        {"raw", "M", "C", "x"},
        {"raw", "M", "C", "x:1"},
        {"raw", "M", "C", "i:"},
        {"raw", "M", "C", "i:1x"},
        {"raw", "M", "C", "i:2147483648"},
        {"raw", "M", "C", "u:-1"},
        {"raw", "M", "C", "u:4294967296"},
        {"raw", "M", "C", "b:1"},
        {"raw", "M", "C", "b:0g"},
        {"raw", "M", "C", "f:/no/such/file"},
        {"raw", "M", "C", "--expect", "x"},
        {"raw", "M", "C", "--quiet", "0"},
        {"stop", "now"},
    };
    for (const Arguments& arguments : bad) {
        const Result result = run(arguments);
        std::string line;
        for (const std::string& argument : arguments) line += argument + " ";
        EXPECT_EQ(result.status, 2) << line;
        EXPECT_EQ(result.err.rfind("ruvoctl: ", 0), 0U) << line << result.err;
        EXPECT_EQ(result.out, "") << line;
    }
}

TEST(Ruvoctl, TakesDecimalNumbersOnly) {
    const std::vector<std::string> none = {"",    " ",   " 5",  "5 ", "0x10", "+5",  "5.0", "1e3",
                                           "1_0", "1'0", "--5", "-",  "5k",   "\t5", "{}",  "[5]",
                                           "[]",  "[1,2]", "2147483648", "-2147483649"};
    for (const std::string& text : none) {
        for (const Arguments& command :
             {Arguments{"job", "progress", "five", "--", text}, Arguments{"job", "map", "five", "--", text},
              Arguments{"job", "map", "five", "1", "--", text}}) {
            const Result result = run(command);
            EXPECT_EQ(result.status, 2) << command[1] << " \"" << text << '"';
            EXPECT_EQ(result.out, "");
            EXPECT_EQ(result.err.rfind("ruvoctl: ", 0), 0U) << result.err;
        }
    }
    for (const std::string text : {"", " 1", "0x1", "+1", "1.0", "1e3", "-1", "0", "65536"}) {
        const Result result = run({"--port=" + text, "job", "lookup", "a"});
        EXPECT_EQ(result.status, 2) << text;
    }
    for (const std::string text : {"", " 1", "0x1", "+1", "1e3", "-1", "0", "0.0", ".", "1.2.3",
                                   "inf", "nan", "1000000.1", "1,5"}) {
        for (const Arguments& command : {Arguments{"--timeout=" + text, "job", "lookup", "a"},
                                         Arguments{"watch", "a", "--timeout=" + text},
                                         Arguments{"raw", "M", "C", "--quiet=" + text}}) {
            EXPECT_EQ(run(command).status, 2) << command[0] << " \"" << text << '"';
        }
    }
    for (const std::string text : {"", " 1", "0x1", "+1", "1.0", "1e3", "-1"}) {
        EXPECT_EQ(run({"watch", "a", "--count=" + text}).status, 2) << text;
    }
}

TEST(Ruvoctl, TakesLeadingZerosForDecimals) {
    EXPECT_EQ(runAgainst({{job("RUVO_JS_SET_PROGRESS", i32(2) + i32(10)), i32(2)}},
                         {"job", "progress", "2", "010"})
                  .out,
              "job 2: progress 10\n");
    EXPECT_EQ(runAgainst({{job("RUVO_JS_MAP_JOB", i32(2) + i32(2) + i32(-8) + i32(0)), i32(2)}},
                         {"job", "map", "2", "-08", "0"})
                  .out,
              "job 2: 2 numbers mapped\n");
}

TEST(Ruvoctl, MapsAJobNamedLikeAList) {
    const Result result = runAgainst({{job("RUVO_JS_LOOKUP", str("[a]")), i32(2)},
                                      {job("RUVO_JS_MAP_JOB", i32(2) + i32(1) + i32(7)), i32(2)}},
                                     {"job", "map", "[a]", "7"});
    EXPECT_EQ(result.out, "job 2: 1 numbers mapped\n") << result.err;
    EXPECT_EQ(run({"job", "map", "[1]", "[1]"}).status, 2);
    EXPECT_EQ(run({"raw", "M", "C", "[]"}).status, 2);
    EXPECT_EQ(run({"raw", "M", "C", "[s:a,s:b]"}).status, 2);
}

TEST(Ruvoctl, SaysWhatANumberMayBe) {
    const auto complaint = [](const Arguments& arguments) {
        const std::string text = run(arguments).err;
        return text.substr(0, text.find('\n'));
    };
    EXPECT_EQ(complaint({"job", "progress", "five", ""}),
              "ruvoctl: value takes a whole number, -2147483648 to 2147483647, not \"\"");
    EXPECT_EQ(complaint({"watch", "a", "--count", "-1"}),
              "ruvoctl: --count takes a whole number, 0 or more, not \"-1\"");
    EXPECT_EQ(complaint({"--port", "0", "stop"}),
              "ruvoctl: --port takes a whole number, 1 to 65535, not \"0\"");
    for (const Arguments& arguments :
         {Arguments{"--timeout", "0", "stop"}, Arguments{"watch", "a", "--timeout", "0"}}) {
        EXPECT_EQ(complaint(arguments),
                  "ruvoctl: --timeout takes seconds, more than 0 and at most 1000000, not \"0\"");
    }
    EXPECT_LT(complaint({"--port", std::string(100000, '9'), "stop"}).size(), 300U);
    EXPECT_EQ(complaint({"--port", "\x1b[2J", "stop"}).find('\x1b'), std::string::npos);
}

TEST(Ruvoctl, NamesTheCommandThatThereIsNot) {
    EXPECT_TRUE(has(run({"foo"}).err, "there is no command \"foo\"")) << run({"foo"}).err;
    EXPECT_TRUE(has(run({"job", "foo"}).err, "there is no command \"foo\"")) << run({"job", "foo"}).err;
    EXPECT_TRUE(has(run({"job", "foo", "bar"}).err, "\"foo\"")) << run({"job", "foo", "bar"}).err;
    EXPECT_TRUE(has(run({"--foo"}).err, "there is no option \"--foo\"")) << run({"--foo"}).err;
    EXPECT_TRUE(has(run({"\x1b[2J"}).err, "\"\\x1b[2J\"")) << run({"\x1b[2J"}).err;
    for (const Arguments& arguments : {Arguments{}, Arguments{"job"}, Arguments{"--json"}}) {
        EXPECT_TRUE(has(run(arguments).err, "A subcommand is required"));
    }
}

TEST(Ruvoctl, TellsWhenItsOutputCannotBeWritten) {
    ScriptedDaemon daemon([](ScriptedPeer& peer) {
        peer.open();
        peer.serve(job("RUVO_JS_LOOKUP", str("a")), i32(3));
        peer.awaitClose();
    });
    for (const Arguments& arguments :
         {Arguments{"job", "lookup", "a", "--port", std::to_string(daemon.port())},
          Arguments{"--help"}, Arguments{"--version"}}) {
        RuvoctlRun ruvoctl;
        ruvoctl.out.breakOff();
        EXPECT_EQ(ruvoctl.run(arguments), 4) << arguments[0];
        EXPECT_EQ(ruvoctl.err.text(), "ruvoctl: cannot write to standard output\n");
    }
    RuvoctlRun failed;  // for another reason, which is the one to tell
    failed.out.breakOff();
    EXPECT_EQ(failed.run({"job", "lookup", "a", "--port", std::to_string(unusedPort())}), 3);
}

TEST(Ruvoctl, HelpsWithExamplesEverywhere) {
    const std::vector<Arguments> commands = {
        {}, {"job"}, {"job", "create"}, {"job", "lookup"}, {"job", "progress"}, {"job", "get"},
        {"job", "map"}, {"job", "cancel"}, {"job", "delete"}, {"notify"}, {"watch"}, {"raw"},
        {"stop"}};
    for (Arguments arguments : commands) {
        std::string name = "  ruvoctl";
        for (const std::string& argument : arguments) name += " " + argument;
        arguments.push_back("--help");
        const Result result = run(arguments);
        EXPECT_EQ(result.status, 0) << name;
        EXPECT_TRUE(has(result.out, "Example")) << name;
        EXPECT_TRUE(has(result.out, name)) << name << result.out;
        EXPECT_EQ(result.err, "");
    }
}

TEST(Ruvoctl, TellsItsVersion) {
    const Result result = run({"--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out.rfind("ruvoctl 1.", 0), 0U) << result.out;
}

TEST(Ruvoctl, RaisesAnEvent) {
    const Result result =
        runAgainst({{engineRequest("Notifier", "RUVO_NN_NOTIFY",
                                   str("ruvoctl") + str("disk.failed") + str("bay 3") + i32(0)),
                     i32(0)}},
                   {"notify", "disk.failed", "--message", "bay 3"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
}

TEST(Ruvoctl, RaisesAnEventWithTheBytesOfAFile) {
    const TestSupport::TemporaryDirectory directory;
    const std::string file = directory.file("d\xc3\xa4ta");  // a name outside ASCII
    std::string data("\r\n\0\xff", 4);
    data += std::string(200000, 'x');
    TestSupport::writeFile(file, data);
    const Result result = runAgainst(
        {{engineRequest("Notifier", "RUVO_NN_NOTIFY", str("me") + str("e") + str("") + str(data)),
          i32(0)}},
        {"notify", "e", "--sender", "me", "--data-file", file, "--json"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(nlohmann::json::parse(result.out)["dataSize"], 200004);
}

TEST(Ruvoctl, RefusesAFileThatIsTooLargeBeforeReadingIt) {
    const TestSupport::TemporaryDirectory directory;
    const std::string file = directory.file("large");
    TestSupport::writeFile(file, "");
    std::filesystem::resize_file(TestSupport::toPath(file), std::uintmax_t{3} << 30);
    const auto refuse = [&] {
        const Result result = run({"notify", "e", "--data-file", file});
        EXPECT_EQ(result.status, 2);
        EXPECT_TRUE(has(result.err, "has 2 GiB or more")) << result.err;
    };
    // To read so much takes many times as long.
    EXPECT_TRUE(TestSupport::oneTakesLessThan(std::chrono::seconds(1),
                                              [&] { return TestSupport::timeOf(refuse); }));
}

TEST(Ruvoctl, SaysWhatTheDaemonMayNotLikeAboutALargeBlock) {
    for (const std::size_t size : {std::size_t{64}, std::size_t{65}}) {
        const std::string data(size, 'x');
        ScriptedDaemon daemon([&](ScriptedPeer& peer) {
            peer.open();
            peer.expect(u16(1) + engineRequest("Notifier", "RUVO_NN_NOTIFY",
                                               str("ruvoctl") + str("e") + str("") + str(data)));
            peer.close();
        });
        const Result result = run(
            {"notify", "e", "--data", data, "--port", std::to_string(daemon.port())});
        EXPECT_EQ(result.status, 3);
        EXPECT_EQ(has(result.err, "\"ruvod.limits.block-bytes\" (64 MiB"), size == 65) << result.err;
    }
}

TEST(Ruvoctl, RaisesAnEventWithATextAsData) {
    const Result result = runAgainst(
        {{engineRequest("Notifier", "RUVO_NN_NOTIFY",
                        str("ruvoctl") + str("e") + str("") + str("text")),
          i32(0)}},
        {"notify", "e", "--data", "text"});
    EXPECT_EQ(result.status, 0) << result.err;
}

TEST(Ruvoctl, StopsTheDaemon) {
    for (const bool json : {false, true}) {
        ScriptedDaemon daemon([](ScriptedPeer& peer) {
            peer.open();
            peer.expect(u16(1) + u16(9999));
            peer.close();
        });
        Arguments arguments = {"stop", "--port", std::to_string(daemon.port())};
        if (json) arguments.push_back("--json");
        const Result result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, json ? "{\"stopping\":true}\n" : "the daemon stops\n");
    }
}

TEST(Ruvoctl, SendsRawRequestsOfEveryType) {
    const TestSupport::TemporaryDirectory directory;
    const std::string file = directory.file("bytes");
    TestSupport::writeFile(file, "file");
    const Result result = runAgainst(
        {{engineRequest("M", "C",
                        str("a:b") + str("") + i32(-5) + i32(4000000000) + bytes({0x0b, 0xad}) +
                            str(bytes({1, 2})) + "file" + str("file")),
          i32(-1) + i32(4000000000) + str("t\"x") + str(bytes({0, 255}))}},
        {"raw", "M", "C", "s:a:b", "s:", "i:-5", "u:4000000000", "b:0bAD", "B:01 02", "f:" + file,
         "F:" + file, "--expect", "iusb"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "-1\n4000000000\nt\\x22x\n00ff\n");
}

TEST(Ruvoctl, WritesRawAnswersAsJson) {
    const Result typed = runAgainst(
        {{engineRequest("M", "C"), i32(-1) + str("text")}},
        {"raw", "M", "C", "--expect", "is", "--json"});
    EXPECT_EQ(nlohmann::json::parse(typed.out), nlohmann::json({-1, "text"}));
    const Result untyped = runAgainst({{engineRequest("M", "C"), i32(-1)}},
                                      {"raw", "M", "C", "--quiet", "0.05", "--json"});
    EXPECT_EQ(nlohmann::json::parse(untyped.out), nlohmann::json({{"bytes", "ffffffff"}}));
}

TEST(Ruvoctl, PrintsRawBytesUntilNoneCome) {
    const Result result = runAgainst({{engineRequest("M", "C"), bytes({0, 1, 0xfe})}},
                                     {"raw", "M", "C", "--quiet", "0.05"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "0001fe\n");
}

TEST(Ruvoctl, TellsWhenTheDaemonEndsARawConversation) {
    for (const bool typed : {false, true}) {
        ScriptedDaemon daemon([](ScriptedPeer& peer) {
            peer.open();
            peer.serve(engineRequest("None", "C"), "");
            peer.close();
        });
        Arguments arguments = {"raw", "None", "C", "--port", std::to_string(daemon.port())};
        if (typed) arguments.insert(arguments.end(), {"--expect", "i"});
        const Result result = run(arguments);
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(has(result.err, "ended the conversation")) << result.err;
    }
}
