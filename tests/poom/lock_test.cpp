// The lock the server's objects guard their state with, taken by threads
// in turn: no update is lost, and a thread that had to wait goes on once
// the holder lets go.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "lock.h"

TEST(ObjectLock, ThreadsTakingItInTurnLoseNothing) {
    poom::ObjectLock lock;
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 50000; ++i) {
                std::lock_guard<poom::ObjectLock> hold(lock);
                long seen = counter;
                // Now and then held long enough for the others to sleep on it.
                if (i % 5000 == 0) Sleep(1);
                counter = seen + 1;
            }
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(counter, 200000);
}

TEST(ObjectLock, AWaiterGoesOnWhenTheHolderLetsGo) {
    poom::ObjectLock lock;
    std::atomic<bool> waited{false}, got{false};
    lock.lock();
    std::thread waiter([&] {
        waited = true;
        std::lock_guard<poom::ObjectLock> hold(lock);
        got = true;
    });
    while (!waited) Sleep(1);
    Sleep(50);
    EXPECT_FALSE(got) << "taken while held";
    lock.unlock();
    waiter.join();
    EXPECT_TRUE(got);
    // Free again for the next.
    lock.lock();
    lock.unlock();
}
