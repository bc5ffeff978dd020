#include "client/ruvoctl/Commands.h"
#include "client/ruvoctl/FileBytes.h"
#include "client/ruvoctl/Numbers.h"
#include "client/ruvoctl/Output.h"

#include <charconv>
#include <memory>
#include <vector>

namespace Ruvoctl {
namespace {

struct RawOptions {
    std::string monitor;
    std::string command;
    std::vector<std::string> arguments;
    std::string expected;
    std::chrono::milliseconds quiet{500};
};

template <typename Number>
Number parse(const std::string& text) {
    Number number = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc{} || result.ptr != end) {
        throw UsageError("\"" + text + "\" is no number of 32 bits");
    }
    return number;
}

std::string parseHex(const std::string& text) {
    const auto bytes = bytesOf(text);
    if (!bytes) throw UsageError("\"" + text + "\" are no bytes in hex");
    return *bytes;
}

void addArgument(Ruvo::RuvoRequest& request, const std::string& argument) {
    if (argument.size() < 2 || argument[1] != ':') {
        throw UsageError("\"" + argument + "\" says not what it is: s:TEXT, i:NUMBER, u:NUMBER, "
                         "b:HEX, B:HEX, f:FILE or F:FILE");
    }
    const std::string value = argument.substr(2);
    switch (argument[0]) {
        case 's': request.addString(value); break;
        case 'i': request.addInt(parse<std::int32_t>(value)); break;
        case 'u': request.addUnsigned(parse<std::uint32_t>(value)); break;
        case 'b': request.addBytes(parseHex(value)); break;
        case 'B': request.addString(parseHex(value)); break;  // a size, and so many bytes
        case 'f': request.addBytes(readFile(value)); break;
        case 'F': request.addString(readFile(value)); break;
        default: throw UsageError("\"" + argument + "\" begins with no known type");
    }
}

void checkExpected(const std::string& expected) {
    if (expected.find_first_not_of("iusb") != std::string::npos) {
        throw UsageError("--expect takes the letters i, u, s and b");
    }
}

Json readExpected(Ruvo::RuvoClient& client, char type) {
    switch (type) {
        case 'i': return client.readInt();
        case 'u': return client.readUnsigned();
        case 's': return client.readString();
        default: return hexOf(client.readBytes(client.readUnsigned()));
    }
}

std::string humanText(const Json& value, char type) {
    return type == 's' ? shown(value.get<std::string>())
                       : value.is_string() ? value.get<std::string>() : value.dump();
}

void showExpected(Session& session, Ruvo::RuvoClient& client, const std::string& expected) {
    Json all = Json::array();
    for (const char type : expected) {
        const Json value = readExpected(client, type);
        if (session.json) {
            all.push_back(value);
        } else {
            session.out() << humanText(value, type) << std::endl;
        }
    }
    if (session.json) session.out() << textOf(all) << '\n';
}

void showBytes(Session& session, Ruvo::RuvoClient& client, std::chrono::milliseconds quiet) {
    std::string all;
    for (;;) {
        const std::string bytes = client.readSome(quiet);
        if (bytes.empty()) break;
        all += session.json ? bytes : std::string();
        if (!session.json) session.out() << hexOf(bytes) << std::endl;
    }
    if (session.json) session.out() << textOf({{"bytes", hexOf(all)}}) << '\n';
    if (client.isDaemonGone()) throw Failure(kRefused, "the daemon ended the conversation");
}

int run(Session& session, const RawOptions& options) {
    checkExpected(options.expected);
    refuseLists(session);
    Ruvo::RuvoRequest request(options.monitor, options.command, Ruvo::RuvoRequest::Answer::Other);
    for (const std::string& argument : options.arguments) addArgument(request, argument);
    auto client = session.connect();
    try {
        client.send(request);
        if (options.expected.empty()) {
            showBytes(session, client, options.quiet);
        } else {
            showExpected(session, client, options.expected);
        }
    } catch (const Ruvo::RuvoClientError& error) {
        // Here it is most often the request that the daemon did not understand.
        if (error.problem() == Ruvo::RuvoProblem::Closed) throw Failure(kRefused, error.what());
        throw;
    }
    return kDone;
}

}  // namespace

void addRawCommand(CLI::App& app, Session& session) {
    auto options = std::make_shared<RawOptions>();
    CLI::App* const command =
        app.add_subcommand("raw", "Send any request and print what is answered");
    command->add_option("monitor", options->monitor, "JobStatus, Notifier, ...")->required();
    command->add_option("command", options->command, "RUVO_JS_LOOKUP, ...")->required();
    command->add_option("arguments", options->arguments,
                        "s:TEXT, i:NUMBER, u:NUMBER, b:HEX or f:FILE (bytes alone), B:HEX or "
                        "F:FILE (their size before them)");
    command->add_option("--expect", options->expected,
                        "What is answered: i and u numbers, s text, b sized bytes; without it "
                        "the bytes are printed in hex until none come");
    addDuration(*command, "--quiet", options->quiet,
                "So long without bytes is the end of the answer")
        ->default_str("0.5");
    command->footer(
        "Examples:\n"
        "  ruvoctl raw JobStatus RUVO_JS_LOOKUP s:nightly-backup --expect i\n"
        "  ruvoctl raw JobStatus RUVO_JS_MAP_JOB i:1 i:2 i:11 i:12\n"
        "  ruvoctl raw Notifier RUVO_NN_NOTIFY s:me s:disk.failed s:bay3 B:0badf00d");
    command->callback(
        [&session, options] {
            session.command = [&session, options] { return run(session, *options); };
        });
}

}  // namespace Ruvoctl
