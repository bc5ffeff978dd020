#include "client/RuvoLocks.h"
#include "client/ruvoctl/Commands.h"
#include "client/ruvoctl/HeldLock.h"
#include "client/ruvoctl/Numbers.h"
#include "client/ruvoctl/Output.h"

#include <algorithm>
#include <limits>
#include <memory>

namespace Ruvoctl {
namespace {

using Ruvo::RuvoLocks;
using std::chrono::milliseconds;

constexpr int kInterrupt = 2;

struct LockOptions {
    std::string path;
    milliseconds wait = RuvoLocks::kForever;
    // As the parser took them apart; only their number counts.
    std::vector<std::string> parsedWords;
};

milliseconds waitOf(const std::string& text) {
    if (text == "forever") return RuvoLocks::kForever;
    return milliseconds(numberOf("--wait, where it is not \"forever\",", text, 0,
                                 std::numeric_limits<std::int32_t>::max()));
}

// The command, if there is one; `count` is how many words the parser found of it.
std::vector<std::string> commandOf(const Session& session, const LockOptions& options,
                                   std::size_t count) {
    const auto& all = session.arguments;
    if (count == 0 && all.back() != "--") return {};
    auto words = commandWords(session, options.path);
    if (words.size() == count) return words;
    throw UsageError(
        "only the command's own words stand behind \"--\", and none of them before it");
}

// The status of a program that was asked to end: of the first request's signal.
int interruptedStatus(Session& session) {
    const auto request = session.surroundings.nextRequest();
    return kSignalBase + (request ? request->signal : kInterrupt);
}

bool tryToObtain(Session& session, HeldLock& held, const LockOptions& options) {
    if (held.obtain(milliseconds(0))) return true;
    if (session.surroundings.isInterrupted()) return false;
    if (!held.isConversationOpen()) throw Failure(kUnreachable, "the daemon does not answer");
    if (options.wait.count() == 0) return false;
    session.surroundings.err << "ruvoctl: waiting for the lock of \"" << shown(options.path) << '"'
                             << std::endl;
    return held.obtain(options.wait);
}

// What goes wrong with the daemon after somebody has asked for our end is told, but
// is not why we end.
bool obtain(Session& session, HeldLock& held, const LockOptions& options) {
    try {
        return tryToObtain(session, held, options);
    } catch (const Ruvo::RuvoClientError& error) {
        session.surroundings.settleRequests();
        if (!session.surroundings.isInterrupted()) throw;
        session.surroundings.err << "ruvoctl: " << error.what() << std::endl;
        return false;
    }
}

// Gives the lock to whoever reads the handle.
int hand(Session& session, HeldLock& held, const std::string& path) {
    const std::int32_t handle = held.handle();
    const std::string text = session.json ? textOf({{"path", path}, {"handle", handle}})
                                          : std::to_string(handle);
    session.out() << text << std::endl;
    if (session.out()) held.hand();  // else nobody knows it
    return kDone;
}

int lock(Session& session, const LockOptions& options, const std::vector<std::string>& words) {
    HeldLock held(session, session.connect(), options.path);
    // From here on there may be something to be undone.
    session.surroundings.catchInterrupts();
    const bool obtained = obtain(session, held, options);
    // Who asks for our end before the handle is printed gets neither.
    session.surroundings.settleRequests();
    if (session.surroundings.isInterrupted()) return interruptedStatus(session);
    if (!obtained) {
        throw Failure(kNotObtained,
                      "somebody else holds the lock of \"" + shown(options.path) + '"');
    }
    return words.empty() ? hand(session, held, options.path) : held.run(words);
}

constexpr const char* kLockFooter =
    "With a command: runs it while the lock is held, unlocks when it has ended, however\n"
    "it did, and ends with its status. What asks it to end (Ctrl-C, SIGTERM, SIGUSR1) goes to\n"
    "the command; its end is waited for all the same. The command finds the handle in the\n"
    "variable RUVO_LOCK_HANDLE. Without a command: prints the handle; the lock stays until\n"
    "'ruvoctl unlock', or until the daemon stops. PATH is a name, or several separated by\n"
    "':' or ','; a lock of store does not cover store:shelf-3.\n\n"
    "Exit status, where it is not the command's: 75 somebody else holds the lock, 126 the\n"
    "command cannot be run, 127 there is no such command, 128 and a signal's number when\n"
    "that ended the command or the wait; else as of the other commands.\n\n"
    "Examples:\n"
    "  ruvoctl lock store:shelf-3 -- tar -cf shelf-3.tar /srv/shelf-3\n"
    "  ruvoctl lock nightly --wait 0 -- ./backup.sh || echo \"it runs already, or failed\"\n"
    "  handle=$(ruvoctl lock store --wait 5000) && { ./sort.sh; ruvoctl unlock \"$handle\"; }";

}  // namespace

void addLockCommand(CLI::App& app, Session& session) {
    auto options = std::make_shared<LockOptions>();
    CLI::App* const command =
        app.add_subcommand("lock", "Hold a lock while a command runs, or until it is unlocked");
    command->add_option("path", options->path, "What to lock")->required();
    command
        ->add_option_function<std::string>(
            "--wait", [options](const std::string& text) { options->wait = waitOf(text); },
            "How long to wait for it, in milliseconds, 0: not at all")
        ->type_name("MS|forever")
        ->default_str("forever");
    CLI::Option* const words =
        command->add_option("command", options->parsedWords, "COMMAND ARGS..., behind --");
    command->footer(kLockFooter);
    command->callback([&session, options, command, words] {
        const auto order = command->parse_order();
        const auto count = std::count(order.begin(), order.end(), words);
        session.command = [&session, options, count] {
            if (options->path.empty()) throw UsageError("a path must not be empty");
            return lock(session, *options,
                        commandOf(session, *options, static_cast<std::size_t>(count)));
        };
    });
}

void addUnlockCommand(CLI::App& app, Session& session) {
    auto handle = std::make_shared<std::int64_t>(0);
    CLI::App* const command = app.add_subcommand("unlock", "Unlock what was locked");
    addNumber(*command, "handle", *handle, "What 'ruvoctl lock' printed",
              std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max())
        ->required();
    command->footer(
        "Done as well when there is no such lock: the daemon does not tell them apart. A\n"
        "daemon that starts anew counts its handles from 1 again.\n\n"
        "Example:\n  ruvoctl unlock 17");
    command->callback([&session, handle] {
        session.command = [&session, handle] {
            auto client = session.connect();
            RuvoLocks(client).unlock(static_cast<std::int32_t>(*handle));
            session.out() << (session.json ? textOf({{"handle", *handle}, {"unlocked", true}})
                                           : "lock " + std::to_string(*handle) + ": unlocked")
                          << '\n';
            return kDone;
        };
    });
}

}  // namespace Ruvoctl
