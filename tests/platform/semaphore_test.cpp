#include "platform/http/semaphore.h"

#include "support/virtual_clock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace orvane::test {

namespace {

using namespace std::chrono_literals;

TEST(SemaphoreTest, TheInitialCountCanBeTakenAtOnce) {
    Semaphore semaphore(2);
    semaphore.wait();
    EXPECT_TRUE(semaphore.waitFor(0ms));
    EXPECT_FALSE(semaphore.waitFor(0ms));
}

TEST(SemaphoreTest, ASignalBeforeTheWaitIsKept) {
    Semaphore semaphore(0);
    semaphore.signal();
    semaphore.signal();
    semaphore.wait();
    EXPECT_TRUE(semaphore.waitFor(0ms));
    EXPECT_FALSE(semaphore.waitFor(0ms));
}

TEST(SemaphoreTest, WaitForGivesUpWhenItsTimeIsOver) {
    Semaphore semaphore(0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(semaphore.waitFor(50ms));
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(elapsed, 50ms);
    EXPECT_LT(elapsed, 5s);
}

TEST(SemaphoreTest, WaitUntilGivesUpAtItsDeadlineHoweverTheClockGetsThere) {
    Semaphore semaphore(0);
    const auto deadline = clock::monotonicNow() + 1h;
    std::thread time([] { virtual_clock::advance(1h); });
    EXPECT_FALSE(semaphore.waitUntil(deadline));
    EXPECT_GE(clock::monotonicNow(), deadline);
    time.join();
    EXPECT_FALSE(semaphore.waitUntil(deadline)) << "it has passed";
    semaphore.signal();
    EXPECT_TRUE(semaphore.waitUntil(deadline)) << "there is one available";
    EXPECT_FALSE(semaphore.waitUntil(deadline)) << "and no more";
    virtual_clock::reset();
}

TEST(SemaphoreTest, ASignalEndsAWaitUntil) {
    Semaphore semaphore(0);
    std::thread signaller([&] { semaphore.signal(); });
    EXPECT_TRUE(semaphore.waitUntil(clock::monotonicNow() + 1h));
    signaller.join();
}

TEST(SemaphoreTest, AWaitThatTimedOutTakesNothing) {
    Semaphore semaphore(0);
    EXPECT_FALSE(semaphore.waitFor(1ms));
    semaphore.signal();
    EXPECT_TRUE(semaphore.waitFor(0ms));
}

TEST(SemaphoreTest, ASignalReleasesTheWaiter) {
    Semaphore ready(0);
    Semaphore released(0);
    int written = 0;
    std::thread waiter([&] {
        ready.wait();
        EXPECT_EQ(written, 1);
        released.signal();
    });
    written = 1;
    ready.signal();
    EXPECT_TRUE(released.waitFor(20s));
    waiter.join();
}

TEST(SemaphoreTest, WithoutASignalTheWaiterStays) {
    Semaphore ready(0);
    Semaphore released(0);
    std::thread waiter([&] {
        ready.wait();
        released.signal();
    });
    EXPECT_FALSE(released.waitFor(50ms));
    ready.signal();
    EXPECT_TRUE(released.waitFor(20s));
    waiter.join();
}

TEST(SemaphoreTest, ASignalReleasesTheWaiterWithALimit) {
    Semaphore asleep(0);
    Semaphore ready(0);
    std::thread waiter([&] {
        asleep.signal();
        const auto start = std::chrono::steady_clock::now();
        EXPECT_TRUE(ready.waitFor(20s));
        EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
    });
    asleep.wait();
    ready.signal();
    waiter.join();
}

TEST(SemaphoreTest, TwoSignalsInARowReleaseTwoWaiters) {
    std::atomic<bool> tooLate = false;
    // Whether both waiters are asleep by then is up to the scheduler.
    for (int round = 0; round < 200 && !tooLate; ++round) {
        Semaphore asleep(0);
        Semaphore ready(0);
        const auto waitForASignal = [&] {
            asleep.signal();
            const auto start = std::chrono::steady_clock::now();
            EXPECT_TRUE(ready.waitFor(20s));
            if (std::chrono::steady_clock::now() - start >= 10s) {
                tooLate = true;
            }
        };
        std::thread first(waitForASignal);
        std::thread second(waitForASignal);
        asleep.wait();
        asleep.wait();
        ready.signal();
        ready.signal();
        first.join();
        second.join();
    }
    EXPECT_FALSE(tooLate);
}

TEST(SemaphoreTest, EverySignalReleasesOneOfManyWaiters) {
    constexpr int threadCount = 8;
    constexpr int rounds = 500;
    Semaphore semaphore(0);
    std::atomic<int> taken = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                if (round % 2 == 0) {
                    semaphore.wait();
                } else {
                    EXPECT_TRUE(semaphore.waitFor(60s));
                }
                ++taken;
            }
        });
        threads.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                semaphore.signal();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(taken, threadCount * rounds);
    EXPECT_FALSE(semaphore.waitFor(0ms));
}

}  // namespace

}  // namespace orvane::test
