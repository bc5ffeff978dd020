// The daemon is killed at random moments while a client schedules and cancels:
// the next one has what the client was told, and at most the request under way
// besides.

#include "tests/integration/SchedulerScene.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>

namespace IntegrationTests {
namespace {

constexpr int kKills = 200;
constexpr std::size_t kMostTasks = 24;

// What belongs to a name: found again, it is whole.
std::string contentOf(const std::string& name) { return std::string(2000, name.back()) + name; }

class SchedulerKills : public Scheduler {
protected:
    void schedulesAndCancelsUntilItIsKilled(unsigned life);
    void findsWhatItWasTold();

    std::mt19937 random_{std::random_device{}()};
    int answers_ = 0;

private:
    // Until the daemon is gone. On a thread of its own, which alone talks to it.
    void work(unsigned life);
    void addOne(const std::string& name);
    void cancelOne();
    std::set<std::string> found();

    std::map<std::string, std::int32_t> tasks_;  // what the client was told: handles by name
    std::set<std::string> cancelled_;            // in this life
    std::string inFlight_;                       // the name in a request without an answer
    std::atomic<int> answered_{0};               // in this life
    std::atomic<bool> isOver_{false};
};

void SchedulerKills::addOne(const std::string& name) {
    inFlight_ = name;
    const std::int32_t task = random_() % 3 == 0
                                  ? scheduleBlob(name, contentOf(name), kIn2033, kOnce)
                                  : schedule(name, contentOf(name), "", kIn2033, kDaily);
    EXPECT_GE(task, 0) << name;
    tasks_[name] = task;
}

void SchedulerKills::cancelOne() {
    auto victim = tasks_.begin();
    std::advance(victim, static_cast<std::ptrdiff_t>(random_() % tasks_.size()));
    inFlight_ = victim->first;
    EXPECT_EQ(number(ask("RUVO_TS_CANCEL", victim->second)), victim->second) << inFlight_;
    cancelled_.insert(inFlight_);
    tasks_.erase(victim);
}

void SchedulerKills::work(unsigned life) {
    try {
        for (unsigned n = 0;; ++n) {
            if (tasks_.size() < kMostTasks / 2 ||
                (tasks_.size() < kMostTasks && random_() % 2 == 0)) {
                addOne("t" + std::to_string(life) + "n" + std::to_string(n));
            } else {
                cancelOne();
            }
            inFlight_.clear();
            ++answered_;
        }
    } catch (const std::runtime_error&) {
        // It is gone.
    }
    isOver_ = true;
}

void SchedulerKills::schedulesAndCancelsUntilItIsKilled(unsigned life) {
    cancelled_.clear();
    answered_ = 0;
    isOver_ = false;
    // After some answers, and then some moment more; now and then at once.
    const int enough = static_cast<int>(random_() % 16);
    const auto more = std::chrono::microseconds(random_() % 10'000);
    std::thread client([&] { work(life); });
    EXPECT_TRUE(waitUntil([&] { return answered_ >= enough || isOver_; }));
    const auto moment = std::chrono::steady_clock::now() + more;
    while (std::chrono::steady_clock::now() < moment) {
    }
    EXPECT_FALSE(isOver_);
    daemon().kill();
    client.join();
    answers_ += answered_;
}

// Of both lists, each task looked up and whole.
std::set<std::string> SchedulerKills::found() {
    std::set<std::string> names;
    for (const bool isBlob : {false, true}) {
        std::istringstream text(isBlob ? listBlobs() : list());
        for (std::string name; text >> name;) {
            EXPECT_TRUE(names.insert(name).second) << name;
            const std::int32_t task = lookup(name);
            EXPECT_GE(task, 0) << name;
            EXPECT_EQ(state(task), 2) << name;
            EXPECT_EQ(nextTime(task, isBlob ? kOnce : kDaily), "2033 05 18 03 33 20") << name;
            if (isBlob) {
                EXPECT_EQ(retrieve(task), contentOf(name));
            }
        }
    }
    return names;
}

void SchedulerKills::findsWhatItWasTold() {
    const std::set<std::string> names = found();
    // The request without an answer was done or was not.
    std::set<std::string> expected;
    for (const auto& [name, handle] : tasks_) expected.insert(name);
    if (!inFlight_.empty()) {
        expected.erase(inFlight_);
        if (names.contains(inFlight_)) expected.insert(inFlight_);
    }
    EXPECT_EQ(names, expected) << "in flight " << inFlight_;
    for (const std::string& name : cancelled_) EXPECT_EQ(lookup(name), -9) << name;
    inFlight_.clear();
    tasks_.clear();
    for (const std::string& name : names) tasks_[name] = lookup(name);
}

TEST_F(SchedulerKills, LoseNothingThatAClientWasTold) {
    for (unsigned life = 1; life <= kKills && !HasFailure(); ++life) {
        SCOPED_TRACE("life " + std::to_string(life));
        schedulesAndCancelsUntilItIsKilled(life);
        start();
        findsWhatItWasTold();
    }
    EXPECT_GT(answers_, kKills);
}

}  // namespace
}  // namespace IntegrationTests
