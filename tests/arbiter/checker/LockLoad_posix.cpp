#include "tests/arbiter/checker/LockLoad.h"

#include "tests/support/ArbiterWire.h"

#include <signal.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <optional>
#include <thread>
#include <utility>

namespace ArbiterCheck {

using namespace TestSupport;

namespace {

constexpr int kQuiet = 20;
constexpr int kBusy = 10;
constexpr int kLeaving = 15;
constexpr int kWild = 5;
constexpr milliseconds kAway{150};  // how long a client stays away from a quiet node
constexpr milliseconds kHold{100};  // how long it is kept until somebody wants it
constexpr milliseconds kLate{5};    // a pair that takes longer tells of a busy machine
constexpr int kTidyMs = 20'000;
constexpr const char* kPrivate = "check:private";

}  // namespace

// ---- one client ------------------------------------------------------------------

// Its thread goes on until the round is over; what it saw is read afterwards.
class LockLoad::Client {
public:
    Client(LockLoad& load, int number, unsigned seed)
        : load_(load), number_(number), random_(seed), thread_([this] { run(); }) {}
    void join() { thread_.join(); }

    std::vector<Attempt> attempts;
    std::vector<std::string> found;
    Totals totals;

private:
    bool chance(unsigned percent) { return random_() % 100 < percent; }
    Node& nodeOf(Kind kind, unsigned salt) const;
    int chooseNode();
    int chooseWait(Kind kind);
    WireClient& connection() {
        if (!connection_) connection_.emplace(load_.daemon_.client());
        return *connection_;
    }

    void run();
    void step();
    void breakOff();
    void attempt();
    bool leavesUntold(Node& node, Attempt& attempt);
    void hold(Node& node);
    void giveBack(Node& node, Attempt& attempt);
    void end(bool arrived);

    LockLoad& load_;
    const int number_;
    std::mt19937 random_;
    std::optional<WireClient> connection_;
    Time lastQuiet_{};
    std::thread thread_;
};

void LockLoad::Client::run() {
    try {
        while (!load_.isOver()) step();
    } catch (const std::exception& e) {
        found.push_back("client " + std::to_string(number_) + ": " + e.what());
    }
}

void LockLoad::Client::step() {
    if (chance(1)) breakOff();
    attempt();
}

// Between two requests, or within one.
void LockLoad::Client::breakOff() {
    const std::string request = batchOf(lockRequest("check:cut", 1000)).text();
    connection().send(request.substr(0, random_() % request.size()));
    end(false);
    ++totals.broken;
}

// Closes the connection in one of the ways there are; with `arrived` the daemon
// is sure to be able to see it at the end.
void LockLoad::Client::end(bool arrived) {
    if (arrived || chance(50)) {
        connection_->finishSending();
        if (arrived && !connection_->hasArrived()) found.push_back("a close does not arrive");
    }
    if (chance(50)) {
        connection_->reset();
    } else {
        connection_->close();
    }
    connection_.reset();
}

int LockLoad::Client::chooseNode() {
    if (chance(20) && Clock::now() - lastQuiet_ > kAway) {
        lastQuiet_ = kNever - kAway;  // until it has been given back
        return number_ % kQuiet;
    }
    return kQuiet + static_cast<int>(random_() % (kBusy + kLeaving + kWild));
}

int LockLoad::Client::chooseWait(Kind kind) {
    if (kind == Kind::Wild) return static_cast<int>(random_() % 60);
    if (kind == Kind::Quiet) return chance(50) ? -1 : 5000;
    switch (random_() % 4) {
        case 0: return 0;
        case 1: return 1 + static_cast<int>(random_() % 20);
        case 2: return 5000;
        default: return -1;
    }
}

// Whether the client goes away before it has read an answer.
bool LockLoad::Client::leavesUntold(Node& node, Attempt& attempt) {
    const bool wild = node.kind == Kind::Wild;
    if (attempt.waitMs == 0 || !(wild ? chance(10) : node.kind == Kind::Leaving && chance(3))) {
        return false;
    }
    connection_->hasInput(milliseconds(random_() % 3));
    std::unique_lock gate(node.gate, std::defer_lock);
    if (!wild) {
        gate.lock();
        if (!node.held) return false;
    }
    if (connection_->hasInput(milliseconds(0))) return false;
    end(!wild);
    attempt.ended = Clock::now();
    attempt.end = Attempt::End::Closed;
    ++totals.left;
    return true;
}

void LockLoad::Client::attempt() {
    const int number = chooseNode();
    Node& node = *load_.nodes_[static_cast<std::size_t>(number)];
    Attempt attempt{.client = number_, .node = number, .waitMs = chooseWait(node.kind)};
    std::string path = node.path;
    if (chance(50)) std::replace(path.begin(), path.end(), ':', ',');
    const WireText request = batchOf(lockRequest(path, attempt.waitMs));
    WireClient& connection = this->connection();
    if (node.kind == Kind::Quiet) {
        const std::lock_guard gate(node.gate);
        ++node.wanted;
        node.wantedMore.notify_all();
    }
    attempt.sent = Clock::now();
    connection.send(request);
    if (!leavesUntold(node, attempt)) {
        attempt.handle = connection.readNumber();
        attempt.ended = Clock::now();
        if (attempt.handle != 0) {
            attempt.end = Attempt::End::Granted;
            {
                const std::lock_guard gate(node.gate);
                node.held = true;
            }
            hold(node);
            giveBack(node, attempt);
            ++totals.pairs;
            --load_.pairsLeft_;
        } else {
            ++totals.refused;
        }
    }
    if (node.kind == Kind::Quiet) lastQuiet_ = Clock::now();
    attempts.push_back(attempt);
}

void LockLoad::Client::hold(Node& node) {
    if (node.kind == Kind::Quiet) {
        std::unique_lock gate(node.gate);
        const int before = node.wanted;
        node.wantedMore.wait_for(gate, kHold, [&] { return node.wanted != before; });
        return;
    }
    if (chance(80)) return;
    // Nothing comes, so this is time that passes.
    connection_->hasInput(milliseconds(chance(90) ? 0 : 1 + random_() % 4));
    if (chance(10)) end(chance(20));  // its handle outlives the connection
}

void LockLoad::Client::giveBack(Node& node, Attempt& attempt) {
    WireClient& connection = this->connection();
    const WireText request = batchOf(unlockRequest(attempt.handle));
    {
        const std::lock_guard gate(node.gate);
        node.held = false;
    }
    attempt.unlockSent = Clock::now();
    connection.send(request);
    const std::int32_t answer = connection.readNumber();
    attempt.unlockAnswered = Clock::now();
    if (answer != 0) found.push_back("an unlock is answered " + std::to_string(answer));
}

// ---- the round -------------------------------------------------------------------

LockLoad::LockLoad(Daemon& daemon, int clients, milliseconds bound, unsigned seed)
    : daemon_(daemon), clients_(clients), bound_(bound), random_(seed) {
    const auto add = [this](Kind kind, int count, const char* group) {
        for (int i = 0; i < count; ++i) {
            nodes_.push_back(std::make_unique<Node>());
            nodes_.back()->kind = kind;
            nodes_.back()->path = std::string("check:") + group + ':' + std::to_string(i);
        }
    };
    add(Kind::Quiet, kQuiet, "quiet");
    add(Kind::Busy, kBusy, "busy");
    add(Kind::Leaving, kLeaving, "leaving");
    add(Kind::Wild, kWild, "wild");
}

std::vector<std::string> LockLoad::run(milliseconds duration, std::uint64_t pairs) {
    LockHistory history(Clock::now(), bound_);
    for (std::size_t i = 0; i < nodes_.size(); ++i) {
        if (nodes_[i]->kind == Kind::Wild) history.setWild(static_cast<int>(i));
    }
    end_ = Clock::now() + duration;
    pairsLeft_ = static_cast<std::int64_t>(pairs);
    clientsRun_ = true;
    std::thread watcher([&] { watch(history); });
    std::thread killer([&] { leaveProcesses(); });
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < clients_; ++i) {
        clients.push_back(std::make_unique<Client>(*this, i, random_()));
    }
    std::vector<std::string> found;
    for (const auto& client : clients) {
        client->join();
        history.add(client->attempts);
        found.insert(found.end(), client->found.begin(), client->found.end());
        totals_.pairs += client->totals.pairs;
        totals_.refused += client->totals.refused;
        totals_.left += client->totals.left;
        totals_.broken += client->totals.broken;
    }
    clientsRun_ = false;
    watcher.join();
    killer.join();
    const auto complaints = history.complaints();
    found.insert(found.end(), complaints.begin(), complaints.end());
    tidyUp(history, found);
    totals_.longestWakeMs = std::max(totals_.longestWakeMs, history.longestWakeMs());
    return found;
}

// Locks and unlocks something that nobody else wants. What that takes longer than
// usual, everybody else's requests take longer too.
void LockLoad::watch(LockHistory& history) {
    auto client = daemon_.client();
    while (clientsRun_) {
        const Time begin = Clock::now();
        unlockOver(client, lockOver(client, kPrivate));
        const Time end = Clock::now();
        if (end - begin > kLate) history.addStall(begin, end);
        client.hasInput(milliseconds(2));
    }
}

// Client processes that are killed, most of them while they wait.
void LockLoad::leaveProcesses() {
    const TemporaryDirectory directory;
    std::mt19937 random(4711);
    while (!isOver()) {
        const auto wild = nodes_.size() - 1 - random() % kWild;
        const std::string request = WireText()
                                        .line("RUVO")
                                        .bytes(batchOf(lockRequest(nodes_[wild]->path, 40)).text())
                                        .text();
        std::string escaped;
        for (const char byte : request) {
            char code[5];
            std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned char>(byte));
            escaped += code;
        }
        const std::string answers = directory.file("answers");
        SpawnedProcess process({"bash", "-c",
                                "exec 3<>/dev/tcp/127.0.0.1/" + std::to_string(daemon_.tcpPort()) +
                                    "; printf '" + escaped + "' >&3; exec cat <&3"},
                               answers, directory.file("errors"));
        waitUntil([&] { return !readFile(answers).empty(); }, milliseconds(1000));
        waitUntil([&] { return isOver(); }, milliseconds(random() % 30));
        process.signal(SIGKILL);
        process.waitForExit();
        writeFile(answers, "");
        ++totals_.killed;
    }
}

std::int32_t LockLoad::handlesSoFar() {
    auto client = daemon_.client();
    const std::int32_t handle = lockOver(client, kPrivate, kTidyMs);
    unlockOver(client, handle);
    return handle;
}

// Nobody wants anything any more. Handles that nobody was told belong to clients
// that went away; where these were not told for certain, the daemon has unlocked
// for them already.
void LockLoad::tidyUp(LockHistory& history, std::vector<std::string>& found) {
    auto client = daemon_.client();
    const auto isFree = [&client](const Node& node, int waitMs) {
        const std::int32_t handle = lockOver(client, node.path, waitMs);
        if (handle != 0) unlockOver(client, handle);
        return handle != 0;
    };
    const std::int32_t last = handlesSoFar();
    told_.assign(static_cast<std::size_t>(last - before_) + 1, false);
    for (const Attempt& attempt : history.attempts()) {
        if (attempt.handle <= before_ || attempt.handle > last) continue;
        told_[static_cast<std::size_t>(attempt.handle - before_)] = true;
    }
    for (const auto& node : nodes_) {
        if (node->kind != Kind::Wild && !isFree(*node, static_cast<int>(bound_.count()) + 1000)) {
            found.push_back("stays locked although nobody has it: " + node->path);
        }
        if (node->kind == Kind::Wild && !isFree(*node, 0)) ++totals_.stuck;
    }
    for (std::int32_t handle = before_ + 1; handle <= last; ++handle) {
        if (!told_[static_cast<std::size_t>(handle - before_)]) unlockOver(client, handle);
    }
    for (const auto& node : nodes_) {
        if (!isFree(*node, kTidyMs)) found.push_back("cannot be unlocked: " + node->path);
    }
    before_ = handlesSoFar();
}

}  // namespace ArbiterCheck
