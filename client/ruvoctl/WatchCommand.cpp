#include "client/RuvoListener.h"
#include "client/RuvoNotifier.h"
#include "client/ruvoctl/Commands.h"
#include "client/ruvoctl/Numbers.h"
#include "client/ruvoctl/Output.h"

#include <chrono>
#include <limits>
#include <memory>

namespace Ruvoctl {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// How soon an interrupt, or that the daemon has gone, is noticed. Events do not
// wait for it.
constexpr milliseconds kLookInterval(200);
// For taking the registration back when the program ends.
constexpr milliseconds kLastWords(2000);

struct WatchOptions {
    std::string pattern;
    std::int64_t count = 0;  // 0: no end
    milliseconds timeout{0};  // 0: no end
    std::string delivery = "tcp";
};

// One registration, from the first event to the end.
class Watch {
public:
    Watch(Session& session, const WatchOptions& options)
        : session_(session), options_(options),
          listener_({.useUdp = options.delivery == "udp"}), handle_(listener_.newHandle()) {}

    int run();

private:
    int wait();
    int finish(int status, const std::string& why);
    void tellLosses();
    void showReady();
    bool isDaemonGone();
    void unregister();

    Session& session_;
    const WatchOptions& options_;
    Ruvo::RuvoListener listener_;
    const std::int32_t handle_;
    std::optional<Ruvo::RuvoClient> client_;
    std::int64_t seen_ = 0;
    std::uint64_t toldLosses_ = 0;
    Clock::time_point lastSign_ = Clock::now();
};

void Watch::showReady() {
    session_.surroundings.err << "ruvoctl: watching " << options_.pattern << " at "
                              << client_->address() << ", deliveries to "
                              << listener_.remoteName() << std::endl;
}

bool Watch::isDaemonGone() {
    if (session_.useUdp && Clock::now() - lastSign_ >= session_.surroundings.signOfLife) {
        lastSign_ = Clock::now();
        try {
            client_->acknowledge();
        } catch (const Ruvo::RuvoClientError&) {
            return true;
        }
    }
    return client_->isDaemonGone();
}

int Watch::finish(int status, const std::string& why) {
    if (!why.empty()) session_.surroundings.err << "ruvoctl: " << why << std::endl;
    return status;
}

void Watch::tellLosses() {
    while (toldLosses_ < listener_.lost()) {
        ++toldLosses_;
        session_.surroundings.err
            << "ruvoctl: lost an event: a text or its data is larger than 64 MiB; events right "
               "after it may be lost too"
            << std::endl;
    }
}

int Watch::wait() {
    const bool endsInTime = options_.timeout.count() > 0;
    const auto end = Clock::now() + options_.timeout;
    bool gone = false;
    for (;;) {
        // A daemon that has gone may have left deliveries behind.
        milliseconds patience = gone ? milliseconds(0) : kLookInterval;
        if (endsInTime) {
            const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
            patience = std::clamp(left, milliseconds(0), patience);
        }
        const auto delivery = listener_.next(patience);
        tellLosses();
        if (delivery) {
            session_.out() << (session_.json ? textOf(jsonOf(*delivery)) : lineOf(*delivery))
                           << std::endl;
            if (!session_.out()) return kIncomplete;  // nobody reads any more
            if (++seen_ == options_.count) return kDone;
        } else if (gone) {
            client_.reset();
            return finish(kUnreachable, "the daemon has gone");
        }
        if (session_.surroundings.isInterrupted()) return options_.count == 0 ? kDone : kRefused;
        if (endsInTime && Clock::now() >= end) {
            return finish(kRefused, "the time is over after " + std::to_string(seen_) + " events");
        }
        gone = gone || isDaemonGone();
    }
}

// An orphaned registration would stay in the daemon for as long as it runs.
void Watch::unregister() {
    if (!client_) return;
    try {
        client_->setTimeout(kLastWords);
        Ruvo::RuvoNotifier(*client_).unregister(listener_.remoteName(), handle_);
    } catch (const Ruvo::RuvoClientError& error) {
        session_.surroundings.err << "ruvoctl: could not unregister: " << error.what()
                                  << std::endl;
    }
}

int Watch::run() {
    session_.surroundings.catchInterrupts();
    client_.emplace(session_.connect());
    Ruvo::RuvoNotifier(*client_).registerFor(options_.pattern, listener_.remoteName(), handle_);
    showReady();
    try {
        const int status = wait();
        unregister();
        return status == kDone && listener_.lost() > 0 ? kIncomplete : status;
    } catch (...) {
        unregister();
        throw;
    }
}

}  // namespace

void addWatchCommand(CLI::App& app, Session& session) {
    auto options = std::make_shared<WatchOptions>();
    CLI::App* const command =
        app.add_subcommand("watch", "Print each event whose name a pattern matches");
    command->add_option("pattern", options->pattern, "A regular expression")->required();
    addNumber(*command, "--count", options->count, "End after so many events; 0: no end", 0,
              std::numeric_limits<std::int64_t>::max());
    addDuration(*command, "--timeout", options->timeout, "End after so long, with status 1");
    command->add_option("--delivery", options->delivery, "How the daemon delivers: tcp or udp")
        ->check(CLI::IsMember({"tcp", "udp"}))
        ->capture_default_str();
    command->footer(
        "Ends at --count, --timeout, Ctrl-C, or when the daemon goes (status 3). A line on\n"
        "standard error tells when the registration stands, another of each event that was\n"
        "lost because it was too large; the status is then 4. A pattern that is no regular\n"
        "expression is accepted and matches nothing.\n\n"
        "Examples:\n"
        "  ruvoctl watch '^VornJSEvent:'\n"
        "  ruvoctl watch '^disk\\.' --count 1 --timeout 60 --json");
    command->callback([&session, options] {
        session.command = [&session, options] {
            if (options->pattern.empty()) throw UsageError("a pattern must not be empty");
            return Watch(session, *options).run();
        };
    });
}

}  // namespace Ruvoctl
