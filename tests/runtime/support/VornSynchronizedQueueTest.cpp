#include "runtime/support/VornSynchronizedQueue.h"

#include "runtime/support/VornObjectBase.h"
#include "runtime/support/VornSmartPointer.h"
#include "tests/runtime/support/CoreTestTools.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace VornSupport;

namespace {

TEST(VornSynchronizedQueue, GivesNothingWhileEmpty) {
    VornSynchronizedQueue<std::string> queue;
    std::string element = "untouched";
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(queue.size(), 0u);
    EXPECT_FALSE(queue.pop(element));
    EXPECT_EQ(element, "untouched");
    EXPECT_FALSE(queue.take());
}

TEST(VornSynchronizedQueue, GivesFirstWhatCameFirst) {
    VornSynchronizedQueue<int> queue;
    for (int i = 0; i < 1000; ++i) queue.push(i);
    EXPECT_EQ(queue.size(), 1000u);
    EXPECT_FALSE(queue.empty());
    int element = -1;
    for (int i = 0; i < 1000; i += 2) {
        ASSERT_TRUE(queue.pop(element));
        EXPECT_EQ(element, i);
        EXPECT_EQ(queue.take(), i + 1);
    }
    EXPECT_TRUE(queue.empty());
}

TEST(VornSynchronizedQueue, KeepsNoElementThatItGaveAway) {
    class Thing : public VornObjectBase {};
    VornSynchronizedQueue<VornSmartPointer<Thing>> queue;
    auto thing = makeCounted<Thing>();
    queue.push(thing);
    EXPECT_EQ(thing->refCount(), 2u);
    VornSmartPointer<Thing> popped;
    EXPECT_TRUE(queue.pop(popped));
    EXPECT_EQ(thing->refCount(), 2u);
    popped = nullptr;
    EXPECT_EQ(thing->refCount(), 1u);
}

TEST(VornSynchronizedQueue, TakesTypesWithoutAnEmptyValue) {
    struct Pair {
        explicit Pair(int n) : number(n) {}
        int number;
    };
    VornSynchronizedQueue<Pair> queue;
    queue.push(Pair(4));
    Pair pair(0);
    EXPECT_TRUE(queue.pop(pair));
    EXPECT_EQ(pair.number, 4);
}

TEST(VornSynchronizedQueue, LosesNothingBetweenThreads) {
    VornSynchronizedQueue<int> queue;
    std::atomic<long> sum{0};
    std::atomic<int> taken{0};
    CoreTest::onThreads(8, [&](int i) {
        if (i % 2 == 0) {
            for (int n = 1; n <= 5000; ++n) queue.push(n);
            return;
        }
        int element = 0;
        while (taken < 20'000) {
            if (!queue.pop(element)) {
                std::this_thread::yield();
                continue;
            }
            sum += element;
            ++taken;
        }
    });
    EXPECT_EQ(sum, 4L * 5000 * 5001 / 2);
    EXPECT_TRUE(queue.empty());
}

struct Exchange {
    VornSynchronizedQueue<int> queue;
    VornProducerConsumer<int> exchange{queue};
};

TEST(VornProducerConsumer, ConsumesInTheOrderOfProducing) {
    Exchange e;
    for (int i = 0; i < 100; ++i) e.exchange.produce(i);
    EXPECT_FALSE(e.exchange.isEmpty());
    int element = -1;
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(e.exchange.consume(element));
        EXPECT_EQ(element, i);
    }
    EXPECT_TRUE(e.exchange.isEmpty());
}

TEST(VornProducerConsumer, WorksOnTheQueueItWasGiven) {
    Exchange e;
    e.queue.push(1);
    e.exchange.produce(2);
    int element = 0;
    EXPECT_TRUE(e.exchange.consume(element));
    EXPECT_EQ(element, 1);
    EXPECT_EQ(e.queue.take(), 2);
}

TEST(VornProducerConsumer, WaitsForAnElement) {
    Exchange e;
    int element = 0;
    bool got = false;
    std::thread consumer([&] { got = e.exchange.consume(element); });
    e.exchange.produce(9);
    consumer.join();
    EXPECT_TRUE(got);
    EXPECT_EQ(element, 9);
}

TEST(VornProducerConsumer, LetsAConsumerSleepOnOverWhatIsProducedQuietly) {
    Exchange e;
    std::atomic<int> got{0};
    std::thread consumer([&] {
        int element = 0;
        while (e.exchange.consume(element)) ++got;
    });
    const auto gets = [&](int count) {
        return TestSupport::waitUntil([&] { return got == count; });
    };
    e.exchange.produce(1);
    ASSERT_TRUE(gets(1));
    // Unless it has not fallen asleep yet, which it does sooner or later.
    int quiet = 1;
    ASSERT_TRUE(TestSupport::waitUntil([&] {
        e.exchange.produceQuietly(++quiet);
        return !TestSupport::waitUntil([&] { return got == quiet; }, std::chrono::milliseconds(50));
    }));
    e.exchange.wakeConsumer();
    EXPECT_TRUE(gets(quiet));
    e.exchange.wakeConsumer();
    e.exchange.produceQuietly(0);
    e.exchange.produce(0);
    EXPECT_TRUE(gets(quiet + 2)) << "another one wakes it as well";
    e.exchange.produceQuietly(0);
    e.exchange.produceSentinel(true);
    consumer.join();
    EXPECT_EQ(got, quiet + 3);
}

TEST(VornProducerConsumer, WaitsUntilASentinelWhenNothingComes) {
    Exchange e;
    int element = 7;
    std::atomic<bool> over{false};
    bool got = true;
    std::thread consumer([&] {
        got = e.exchange.consume(element);
        over = true;
    });
    EXPECT_FALSE(
        TestSupport::waitUntil([&] { return over.load(); }, std::chrono::milliseconds(50)));
    e.exchange.produceSentinel(true);
    consumer.join();
    EXPECT_FALSE(got);
    EXPECT_EQ(element, 7);
}

TEST(VornProducerConsumer, DeliversWhatCameBeforeTheSentinel) {
    Exchange e;
    e.exchange.produce(1);
    e.exchange.produce(2);
    e.exchange.produceSentinel(true);
    int element = 0;
    EXPECT_TRUE(e.exchange.consume(element));
    EXPECT_TRUE(e.exchange.consume(element));
    EXPECT_EQ(element, 2);
    EXPECT_FALSE(e.exchange.consume(element));
    EXPECT_FALSE(e.exchange.consume(element)) << "the mark stays";
    EXPECT_EQ(element, 2);
}

TEST(VornProducerConsumer, DeliversWhatCameAfterTheSentinelToo) {
    Exchange e;
    e.exchange.produceSentinel(true);
    e.exchange.produce(3);
    int element = 0;
    EXPECT_TRUE(e.exchange.consume(element));
    EXPECT_EQ(element, 3);
    EXPECT_FALSE(e.exchange.consume(element));
}

TEST(VornProducerConsumer, StartsAnewWhenTheSentinelIsTakenAway) {
    Exchange e;
    e.exchange.produceSentinel(true);
    int element = 0;
    EXPECT_FALSE(e.exchange.consume(element));
    e.exchange.produceSentinel(false);
    std::thread consumer([&] { EXPECT_TRUE(e.exchange.consume(element)); });
    e.exchange.produce(5);
    consumer.join();
    EXPECT_EQ(element, 5);
}

TEST(VornProducerConsumer, EndsEveryWaitingConsumerWithOneSentinel) {
    Exchange e;
    std::atomic<int> ended{0};
    std::vector<std::thread> consumers;
    for (int i = 0; i < 4; ++i) {
        consumers.emplace_back([&] {
            int element = 0;
            if (!e.exchange.consume(element)) ++ended;
        });
    }
    e.exchange.produceSentinel(true);
    for (auto& consumer : consumers) consumer.join();
    EXPECT_EQ(ended, 4);
}

TEST(VornProducerConsumer, KeepsTheOrderOfEveryOneOfManyProducers) {
    Exchange e;
    constexpr int kEach = 5000;
    std::vector<int> next(8, 0);
    int consumed = 0;
    std::atomic<int> producing{8};
    CoreTest::onThreads(9, [&](int i) {
        if (i < 8) {
            for (int n = 0; n < kEach; ++n) e.exchange.produce(i * kEach + n);
            if (--producing == 0) e.exchange.produceSentinel(true);
            return;
        }
        int element = 0;
        while (e.exchange.consume(element)) {
            const auto producer = static_cast<std::size_t>(element / kEach);
            EXPECT_EQ(element % kEach, next[producer]);
            ++next[producer];
            ++consumed;
        }
    });
    EXPECT_EQ(consumed, 8 * kEach);
    EXPECT_EQ(next, std::vector<int>(8, kEach));
}

TEST(VornProducerConsumer, SharesAmongSeveralConsumers) {
    Exchange e;
    std::atomic<long> sum{0};
    std::atomic<int> producing{4};
    CoreTest::onThreads(8, [&](int i) {
        if (i % 2 == 0) {
            for (int n = 1; n <= 3000; ++n) e.exchange.produce(n);
            if (--producing == 0) e.exchange.produceSentinel(true);
            return;
        }
        int element = 0;
        while (e.exchange.consume(element)) sum += element;
    });
    EXPECT_EQ(sum, 4L * 3000 * 3001 / 2);
}

// Letting go of the element of before may call anybody, the queue included.
TEST(VornProducerConsumer, HoldsNoLockWhenItLetsGoOfTheOldElement) {
    struct Element;
    using Queue = VornSynchronizedQueue<std::shared_ptr<Element>>;
    using Exchanger = VornProducerConsumer<std::shared_ptr<Element>>;
    struct Element {
        Exchanger* heir = nullptr;
        ~Element() {
            if (heir != nullptr) heir->produce(std::make_shared<Element>());
        }
    };
    Queue queue;
    Exchanger exchange(queue);
    auto held = std::make_shared<Element>();
    held->heir = &exchange;
    exchange.produce(std::make_shared<Element>());
    EXPECT_TRUE(exchange.consume(held));
    EXPECT_EQ(queue.size(), 1u);

    held->heir = &exchange;
    EXPECT_TRUE(queue.pop(held));
    EXPECT_EQ(queue.size(), 1u);
}

TEST(VornProducerConsumer, StaysUsableWhenCopyingAnElementFails) {
    struct Moody {
        bool fails = false;
        Moody() = default;
        explicit Moody(bool f) : fails(f) {}
        Moody(const Moody& other) : fails(other.fails) {
            if (fails) throw std::runtime_error("no copy");
        }
        Moody& operator=(const Moody&) = default;
    };
    VornSynchronizedQueue<Moody> queue;
    VornProducerConsumer<Moody> exchange(queue);
    EXPECT_THROW(exchange.produce(Moody(true)), std::runtime_error);
    exchange.produce(Moody());
    Moody element;
    EXPECT_TRUE(exchange.consume(element));
    EXPECT_TRUE(exchange.isEmpty());
}

std::vector<std::string> traces(const CoreTest::LogCapture& log) {
    std::vector<std::string> texts;
    for (const auto& record : CoreTest::recordsWith(log, "VornProducerConsumer")) {
        EXPECT_EQ(record.level, 9);
        texts.push_back(record.text);
    }
    return texts;
}

const std::string kWaiting = "VornProducerConsumer::produce: waiting for lock";
const std::string kAdding = "VornProducerConsumer::produce: adding element";
const std::string kChecking = "VornProducerConsumer::consume: checking queue";
const std::string kChecked = "VornProducerConsumer::consume: check completed";
const std::string kPopping = "VornProducerConsumer::consume: popping element";
const std::string kSentinel = "VornProducerConsumer::consume: found sentinel";

TEST(VornProducerConsumer, TracesEachStepAtLevelNine) {
    const CoreTest::LogCapture log(9);
    Exchange e;
    int element = 0;
    e.exchange.produce(1);
    EXPECT_EQ(traces(log), (std::vector{kWaiting, kAdding}));
    e.exchange.produceSentinel(true);
    e.exchange.consume(element);
    EXPECT_EQ(traces(log), (std::vector{kWaiting, kAdding, kChecking, kChecked, kPopping}));
    e.exchange.consume(element);
    EXPECT_EQ(traces(log), (std::vector{kWaiting, kAdding, kChecking, kChecked, kPopping,
                                        kChecking, kChecked, kSentinel}));
}

TEST(VornProducerConsumer, TracesACheckThatWaitsOnce) {
    const CoreTest::LogCapture log(9);
    Exchange e;
    std::thread consumer([&] {
        int element = 0;
        e.exchange.consume(element);
    });
    ASSERT_TRUE(TestSupport::waitUntil([&] { return traces(log).size() == 1; }));
    EXPECT_EQ(traces(log), std::vector{kChecking});
    e.exchange.produce(1);
    consumer.join();
    EXPECT_EQ(traces(log), (std::vector{kChecking, kWaiting, kAdding, kChecked, kPopping}));
}

TEST(VornProducerConsumer, TracesNothingBelowLevelNine) {
    const CoreTest::LogCapture log(8);
    Exchange e;
    int element = 0;
    e.exchange.produce(1);
    e.exchange.produceSentinel(true);
    e.exchange.consume(element);
    e.exchange.consume(element);
    EXPECT_TRUE(traces(log).empty());
}

}  // namespace
