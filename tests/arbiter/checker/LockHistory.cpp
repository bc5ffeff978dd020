#include "tests/arbiter/checker/LockHistory.h"

#include <algorithm>
#include <map>
#include <utility>

namespace ArbiterCheck {
namespace {

using Texts = std::vector<std::string>;

double msBetween(Time begin, Time end) {
    return std::chrono::duration<double, std::milli>(end - begin).count();
}

std::string nameOf(const Attempt& attempt) {
    return "client " + std::to_string(attempt.client) + " on node " + std::to_string(attempt.node) +
           (attempt.end == Attempt::End::Granted ? " with handle " + std::to_string(attempt.handle)
                                                 : std::string());
}

template <class Key>
std::vector<Attempt> sortedBy(std::vector<Attempt> attempts, Key key) {
    std::sort(attempts.begin(), attempts.end(),
              [key](const Attempt& a, const Attempt& b) { return a.*key < b.*key; });
    return attempts;
}

std::vector<Attempt> grantedOf(const std::vector<Attempt>& attempts) {
    std::vector<Attempt> granted;
    std::copy_if(attempts.begin(), attempts.end(), std::back_inserter(granted),
                 [](const Attempt& a) { return a.end == Attempt::End::Granted; });
    return granted;
}

}  // namespace

Texts LockHistory::complaints() const {
    Texts found;
    std::map<int, Attempts> byNode;
    for (const Attempt& attempt : attempts_) {
        checkTimes(attempt, found);
        byNode[attempt.node].push_back(attempt);
    }
    checkHandles(found);
    for (const auto& [node, all] : byNode) {
        const Attempts granted = sortedBy(grantedOf(all), &Attempt::ended);
        checkHolders(granted, found);
        if (wild_.contains(node)) continue;
        checkWakes(all, granted, found);
        checkRefusals(all, granted, found);
    }
    return found;
}

double LockHistory::longestWakeMs() const {
    std::map<int, Attempts> byNode;
    for (const Attempt& attempt : grantedOf(attempts_)) byNode[attempt.node].push_back(attempt);
    double longest = 0;
    for (auto& [node, granted] : byNode) {
        granted = sortedBy(std::move(granted), &Attempt::ended);
        for (std::size_t i = 1; i < granted.size(); ++i) {
            const Time freed = granted[i - 1].unlockAnswered;
            if (freed == kNever || granted[i].sent >= freed) continue;
            longest = std::max(longest, msBetween(freed, granted[i].ended));
        }
    }
    return longest;
}

void LockHistory::checkTimes(const Attempt& attempt, Texts& found) const {
    const bool granted = attempt.end == Attempt::End::Granted;
    if (attempt.ended < attempt.sent || attempt.sent < begun_ ||
        (granted &&
         (attempt.unlockSent < attempt.ended || attempt.unlockAnswered < attempt.unlockSent))) {
        found.push_back("times are not in order: " + nameOf(attempt));
    }
    if (granted != (attempt.handle > 0)) {
        found.push_back("not a handle: " + nameOf(attempt));
    }
    if (attempt.end != Attempt::End::Refused) return;
    if (attempt.waitMs < 0) {
        found.push_back("refused although it waits without limit: " + nameOf(attempt));
    } else if (attempt.ended - attempt.sent < milliseconds(attempt.waitMs)) {
        found.push_back("refused after " + std::to_string(msBetween(attempt.sent, attempt.ended)) +
                        " of " + std::to_string(attempt.waitMs) + " ms: " + nameOf(attempt));
    }
}

// Handles are given out once each and in order: who was told one before somebody
// else asked has the lower one.
void LockHistory::checkHandles(Texts& found) const {
    const Attempts granted = grantedOf(attempts_);
    const Attempts byHandle = sortedBy(granted, &Attempt::handle);
    for (std::size_t i = 1; i < byHandle.size(); ++i) {
        if (byHandle[i].handle != byHandle[i - 1].handle) continue;
        found.push_back("one handle for two: " + nameOf(byHandle[i - 1]) + ", " +
                        nameOf(byHandle[i]));
    }
    const Attempts bySent = sortedBy(granted, &Attempt::sent);
    const Attempts byEnd = sortedBy(granted, &Attempt::ended);
    std::int32_t highest = 0;
    auto told = byEnd.begin();
    for (const Attempt& attempt : bySent) {
        for (; told != byEnd.end() && told->ended < attempt.sent; ++told) {
            highest = std::max(highest, told->handle);
        }
        if (attempt.handle >= highest) continue;
        found.push_back("a handle after " + std::to_string(highest) + ": " + nameOf(attempt));
    }
}

// From the moment when a client has read its handle to the one before it gives
// it back, it surely holds the lock.
void LockHistory::checkHolders(const Attempts& granted, Texts& found) const {
    const Attempt* holder = nullptr;
    for (const Attempt& next : granted) {
        if (holder != nullptr && next.ended < holder->unlockSent) {
            found.push_back("two holders: " + nameOf(*holder) + ", " + nameOf(next) + " for " +
                            std::to_string(msBetween(
                                next.ended, std::min(holder->unlockSent, next.unlockSent))) +
                            " ms");
        }
        if (holder == nullptr || next.unlockSent > holder->unlockSent) holder = &next;
    }
}

Clock::duration LockHistory::stalledWithin(Time begin, Time end) const {
    Clock::duration sum{};
    for (const Span& stall : stalls_) {
        const Time from = std::max(begin, stall.begin);
        const Time to = std::min(end, stall.end);
        if (from < to) sum += to - from;
    }
    return sum;
}

// From the answer to an unlock to the next handle that somebody is told, nobody
// has anything of the node.
void LockHistory::checkWakes(const Attempts& all, const Attempts& granted, Texts& found) const {
    Time freeFrom = begun_;
    for (const Attempt& next : granted) {
        if (next.ended > freeFrom) checkGap({freeFrom, next.ended}, &next, all, found);
        if (next.unlockAnswered == kNever) return;
        freeFrom = std::max(freeFrom, next.unlockAnswered);
    }
    checkGap({freeFrom, kNever}, nullptr, all, found);
}

Clock::duration LockHistory::boundWithin(Time begin, Time end) const {
    constexpr int kSomewhat = 3;
    Clock::duration longest{};
    for (const Span& stall : stalls_) longest = std::max(longest, stall.end - stall.begin);
    return bound_ + stalledWithin(begin, end) + kSomewhat * longest;
}

void LockHistory::checkGap(Span gap, const Attempt* next, const Attempts& all, Texts& found) const {
    if (gap.end - gap.begin <= bound_) return;
    for (const Attempt& waiter : all) {
        const Time from = std::max(gap.begin, waiter.sent);
        const Time to = std::min(gap.end, waiter.ended);
        if (to <= from || waiter.waitMs == 0 || to - from <= bound_) continue;
        const bool isNext = next != nullptr && waiter.handle == next->handle;
        if (to - from <= boundWithin(from, to) * (isNext ? kLate : 1)) continue;
        found.push_back((isNext ? "a late wake-up: " : "a lost wake-up: ") + nameOf(waiter) +
                        " waits for " + std::to_string(msBetween(from, to)) +
                        " ms for a free node");
    }
}

// Where clients go away untold, the node may have been given to one of them for
// a moment, so nothing can be said there.
void LockHistory::checkRefusals(const Attempts& all, const Attempts& granted, Texts& found) const {
    if (std::any_of(all.begin(), all.end(),
                    [](const Attempt& a) { return a.end == Attempt::End::Closed; })) {
        return;
    }
    // The latest moment at which one of the first n to ask may have had the lock.
    const Attempts bySent = sortedBy(granted, &Attempt::sent);
    std::vector<Time> latest{begun_};
    for (const Attempt& holder : bySent) {
        latest.push_back(std::max(latest.back(), holder.unlockAnswered));
    }
    for (const Attempt& refused : all) {
        if (refused.end != Attempt::End::Refused) continue;
        const auto after =
            std::lower_bound(bySent.begin(), bySent.end(), refused.ended,
                             [](const Attempt& holder, Time time) { return holder.sent < time; });
        if (latest[static_cast<std::size_t>(after - bySent.begin())] > refused.sent) continue;
        found.push_back("refused although nobody had it: " + nameOf(refused));
    }
}

}  // namespace ArbiterCheck
