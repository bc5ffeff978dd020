#pragma once

#include "tests/support/LogCapture.h"
#include "tests/support/TestSupport.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace CoreTest {

using TestSupport::kPatience;
using TestSupport::LogCapture;

// Shut until somebody opens it; then open for good.
class Gate {
public:
    void open() {
        const std::lock_guard<std::mutex> lock(mutex_);
        open_ = true;
        opened_.notify_all();
    }
    // False when nobody opened it for as long as a test waits at all.
    bool wait() {
        std::unique_lock<std::mutex> lock(mutex_);
        return opened_.wait_for(lock, kPatience, [this] { return open_; });
    }
    bool isOpen() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return open_;
    }

private:
    std::mutex mutex_;
    std::condition_variable opened_;
    bool open_ = false;
};

// Where two threads meet just before they want the same lock.
class MeetingPoint {
public:
    void arrive() { ++arrived_; }
    // Returns some time after both have arrived: the other one, which has only
    // the lock still to take, will mostly be waiting for it.
    void waitForTheOther() const {
        while (arrived_ < 2) std::this_thread::yield();
        for (int i = 0; i < 20; ++i) std::this_thread::yield();
    }

private:
    std::atomic<int> arrived_{0};
};

// Calls body(0) to body(count - 1) on as many threads at once; returns when all
// have ended.
template <class Body>
void onThreads(int count, Body body) {
    Gate go;
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&, i] {
            go.wait();
            body(i);
        });
    }
    go.open();
    for (auto& thread : threads) thread.join();
}

// The records whose text contains `part`; others log in this process too.
inline std::vector<LogCapture::Record> recordsWith(const LogCapture& log, std::string_view part) {
    auto records = log.records();
    std::erase_if(records, [&](const auto& record) {
        return record.text.find(part) == std::string::npos;
    });
    return records;
}
inline std::vector<std::string> textsWith(const LogCapture& log, std::string_view part) {
    std::vector<std::string> texts;
    for (const auto& record : recordsWith(log, part)) texts.push_back(record.text);
    return texts;
}

}  // namespace CoreTest
