#pragma once

#include "runtime/net/VornStreamConnection.h"
#include "runtime/support/VornException.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

// A stream over a channel in memory that counts what a system would be asked.
// Each element of `arrivals` is what one receive finds; behind the last one the
// stream ends.
class ScriptedConnection : public VornNet::VornStreamConnection {
public:
    explicit ScriptedConnection(std::deque<std::string> script = {})
        : arrivals(std::move(script)) {}
    ~ScriptedConnection() override { close(); }

    std::string getPeerName() const override { return "script:1"; }
    std::string wire() const {
        std::string all;
        for (const auto& piece : sent) all += piece;
        return all;
    }

    std::deque<std::string> arrivals;
    std::vector<std::string> sent;     // one element a send
    std::string firstOfLastSend;       // what was held before
    const char* secondOfLastSend = nullptr;  // where the rest was taken from
    int receives = 0;                  // that waited or brought something
    int looks = 0;                     // that found nothing and did not wait
    std::vector<std::size_t> roomOfWaits;
    bool stalled = false;              // the peer neither sends nor closes
    bool failSends = false;
    VornPlatform::OsError breaks;      // instead of the end
    bool gone = false;
    bool endsBehindArrivals = false;   // which a look shows as more to be read
    bool admits = true;
    int admissionsAsked = 0;
    int channelCloses = 0;
    int breakCalls = 0;
    bool unreadAtClose = false;
    bool failClose = false;

protected:
    Received receiveSome(char* buffer, std::size_t size, bool wait) override {
        if (isAborted()) return {Arrival::End, 0, {}};
        if (wait) roomOfWaits.push_back(size);
        if (arrivals.empty() && stalled && !wait) {
            ++looks;
            return {Arrival::NothingYet, 0, {}};
        }
        ++receives;
        if (arrivals.empty()) {
            if (breaks) return {Arrival::Broken, 0, breaks};
            return {Arrival::End, 0, {}};
        }
        std::string& next = arrivals.front();
        const std::size_t count = std::min(size, next.size());
        std::memcpy(buffer, next.data(), count);
        next.erase(0, count);
        if (next.empty()) arrivals.pop_front();
        return {Arrival::Bytes, count, {}};
    }
    void sendAll(std::string_view first, std::string_view second) override {
        if (failSends) throw VornSupport::VornException("no more sends", 32);
        firstOfLastSend = first;
        secondOfLastSend = second.data();
        sent.push_back(std::string(first) + std::string(second));
    }
    void breakChannel() override { ++breakCalls; }
    void closeChannel(std::string_view held, bool unread) override {
        ++channelCloses;
        unreadAtClose = unread;
        if (failClose) throw VornSupport::VornException("no close");
        if (!held.empty()) sendAll(held, {});
    }
    Look lookAtChannel() override {
        if (gone) return Look::Gone;
        return arrivals.empty() && !endsBehindArrivals ? Look::Quiet : Look::Bytes;
    }
    bool admitsPeer() override {
        ++admissionsAsked;
        return admits;
    }
};
