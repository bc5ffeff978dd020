#pragma once

#include "client/ruvoctl/EndRequests.h"
#include "client/ruvoctl/Ruvoctl.h"
#include "tests/client/ScriptedDaemon.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

namespace ClientTest {

// A stream's memory that another thread may look at while it is written.
class SharedText : public std::streambuf {
public:
    std::string text() const {
        const std::lock_guard lock(mutex_);
        return text_;
    }
    // From then on every write fails, as to a pipe that nobody reads.
    void breakOff() { broken_ = true; }

protected:
    int_type overflow(int_type c) override {
        if (broken_) return traits_type::eof();
        const std::lock_guard lock(mutex_);
        text_ += static_cast<char>(c);
        return c;
    }
    std::streamsize xsputn(const char* text, std::streamsize size) override {
        if (broken_) return 0;
        const std::lock_guard lock(mutex_);
        text_.append(text, static_cast<std::size_t>(size));
        return size;
    }

private:
    mutable std::mutex mutex_;
    std::string text_;
    std::atomic<bool> broken_{false};
};

// One run of ruvoctl without a process.
struct RuvoctlRun {
    int run(const std::vector<std::string>& arguments) {
        std::ostream outStream(&out);
        std::ostream errStream(&err);
        Ruvoctl::Surroundings surroundings{
            outStream, errStream,
            [this](const char* name) -> std::optional<std::string> {
                const auto found = variables.find(name);
                if (found == variables.end()) return std::nullopt;
                return found->second;
            },
            [this] {
                if (cannotCatch) throw Ruvoctl::Failure(Ruvoctl::kRefused, "no signals");
                catching = true;
            },
            [this] { return interrupted.load() || requests.any(); },
            signOfLife,
            [this] {
                const auto request = requests.next();
                if (!request) ++idleLooks;
                return request;
            },
            [this] { settle(++settled); }};
        return Ruvoctl::run(arguments, surroundings);
    }

    SharedText out;
    SharedText err;
    std::map<std::string, std::string> variables;
    std::atomic<bool> interrupted{false};
    Ruvoctl::EndRequests requests;
    std::atomic<bool> catching{false};
    bool cannotCatch = false;
    // Called before each look that must miss nothing, with how many there were.
    std::function<void(int)> settle = [](int) {};
    int settled = 0;
    // How often there was no request: once right before the command is started, once
    // right after, and then while it runs.
    std::atomic<int> idleLooks{0};
    std::chrono::milliseconds signOfLife{10000};
};

// Has `run` run a client against a daemon that goes through these steps and is silent
// from then on, with a time-out of this many seconds. A short one may be over before
// the steps are, on a busy machine: then once more, with a longer one.
inline int runIntoSilence(
    const ScriptedDaemon::Script& steps,
    const std::function<int(const ScriptedDaemon::Script&, const std::string& seconds)>& run) {
    int status = -1;
    std::atomic<bool> silent{false};
    const ScriptedDaemon::Script script = [&](ScriptedPeer& peer) {
        try {
            steps(peer);
        } catch (const std::runtime_error&) {
            return;
        }
        silent = true;
        peer.awaitClose();
    };
    for (const char* const seconds : {"0.3", "2", "10"}) {
        status = run(script, seconds);
        if (silent) return status;
    }
    ADD_FAILURE() << "the client does not come so far";
    return status;
}

}  // namespace ClientTest
