#include <oru/Mutex.h>
#include <oru/ThreadCondition.h>
#include <support/Event.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>

namespace {

using cdxtest::Event;
using oru::Mutex;

TEST(MutexTest, IsNotLockedTwice) {
    Mutex mutex;
    mutex.lock();
    std::thread([&] { EXPECT_FALSE(mutex.try_lock()); }).join();
    mutex.unlock();
}

TEST(MutexTest, CanBeLockedAgainOnceUnlocked) {
    Mutex mutex;
    mutex.lock();
    mutex.unlock();
    std::thread([&] {
        EXPECT_TRUE(mutex.try_lock());
        mutex.unlock();
    }).join();
}

TEST(MutexTest, KeepsThreadsApart) {
    constexpr int rounds = 10'000;
    Mutex mutex;
    int counter = 0;
    const auto count = [&] {
        for (int i = 0; i < rounds; ++i) {
            const std::lock_guard<Mutex> lock(mutex);
            ++counter;
        }
    };
    std::thread other(count);
    count();
    other.join();
    EXPECT_EQ(counter, 2 * rounds);
}

TEST(MutexTest, DestructorWaitsForItsHolder) {
    auto mutex = std::make_unique<Mutex>();
    Event isHeld;
    Event mayUnlock;
    std::atomic<bool> isUnlocking{false};
    std::thread holder([&, raw = mutex.get()] {
        raw->lock();
        isHeld.set();
        EXPECT_TRUE(mayUnlock.await());
        isUnlocking = true;
        raw->unlock();
    });
    ASSERT_TRUE(isHeld.await());
    std::thread destroyer([&] {
        mutex.reset();
        EXPECT_TRUE(isUnlocking);
    });
    mayUnlock.set();
    destroyer.join();
    holder.join();
}

TEST(MutexTest, DestructorWaitsForThoseOnTheirWayBackFromAWait) {
    constexpr int rounds = 200;
    for (int i = 0; i < rounds; ++i) {
        auto condition = std::make_unique<oru::ThreadCondition>();
        auto mutex = std::make_unique<Mutex>();
        Event isWaiting;
        std::atomic<bool> isBack{false};
        std::thread waiter([&, rawMutex = mutex.get(), rawCondition = condition.get()] {
            const std::lock_guard<Mutex> lock(*rawMutex);
            isWaiting.set();
            rawCondition->wait(*rawMutex);
            isBack = true;
        });
        ASSERT_TRUE(isWaiting.await());
        { const std::lock_guard<Mutex> lock(*mutex); } // it waits once this can be had
        condition->broadcast();
        mutex.reset();
        ASSERT_TRUE(isBack);
        condition.reset();
        waiter.join();
    }
}

} // namespace
