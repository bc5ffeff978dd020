#include "client/RuvoNotifier.h"
#include "client/ruvoctl/Commands.h"
#include "client/ruvoctl/FileBytes.h"
#include "client/ruvoctl/Output.h"

#include <memory>

namespace Ruvoctl {
namespace {

struct NotifyOptions {
    std::string event;
    std::string message;
    std::string sender = "ruvoctl";
    std::string data;
    std::string dataFile;
};

int notify(Session& session, const NotifyOptions& options) {
    if (options.event.empty()) throw UsageError("an event's name must not be empty");
    const std::string data =
        options.dataFile.empty() ? options.data : readFile(options.dataFile);
    auto client = session.connect();
    Ruvo::RuvoNotifier(client).notify(options.sender, options.event, options.message, data);
    if (session.json) {
        const Json json = {{"event", options.event}, {"dataSize", data.size()}, {"queued", true}};
        session.out() << textOf(json) << '\n';
    }
    return kDone;
}

}  // namespace

void addNotifyCommand(CLI::App& app, Session& session) {
    auto options = std::make_shared<NotifyOptions>();
    CLI::App* const command = app.add_subcommand("notify", "Raise an event");
    command->add_option("name", options->event, "The event's name")->required();
    command->add_option("--message", options->message, "A text for the receivers");
    command->add_option("--sender", options->sender, "Who raises it")->capture_default_str();
    auto* const data = command->add_option("--data", options->data, "The event's data, a text");
    command->add_option("--data-file", options->dataFile, "A file whose bytes are the data")
        ->excludes(data);
    command->footer(
        "Done when the event is queued, which is before anybody is told.\n\n"
        "Examples:\n"
        "  ruvoctl notify disk.failed --message \"bay 3\"\n"
        "  echo 12 machines > ready.txt\n"
        "  ruvoctl notify inventory.ready --data-file ready.txt");
    command->callback(
        [&session, options] {
            session.command = [&session, options] { return notify(session, *options); };
        });
}

}  // namespace Ruvoctl
