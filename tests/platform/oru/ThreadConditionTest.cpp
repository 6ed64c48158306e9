#include <oru/Mutex.h>
#include <oru/ThreadCondition.h>
#include <support/Event.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using cdxtest::Event;
using oru::Mutex;
using oru::ThreadCondition;

/// Threads that wait once each, without looking at anything but the wake-up.
class Waiters {
public:
    Waiters(int count, Mutex& mutex, ThreadCondition& condition) {
        for (int i = 0; i < count; ++i)
            m_threads.emplace_back([&, count] {
                const std::lock_guard<Mutex> lock(mutex);
                if (++m_entered == count)
                    m_allEntered.set();
                condition.wait(mutex);
                ++m_left;
                m_oneLeft.set();
            });
        EXPECT_TRUE(m_allEntered.await());
        const std::lock_guard<Mutex> lock(mutex); // the last one waits once this can be had
    }

    ~Waiters() { join(); }

    void join() {
        for (std::thread& thread : m_threads)
            thread.join();
        m_threads.clear();
    }

    bool awaitOneLeft() { return m_oneLeft.await(); }
    int left() const { return m_left; }

private:
    std::atomic<int> m_entered{0};
    std::atomic<int> m_left{0};
    Event m_allEntered;
    Event m_oneLeft;
    std::vector<std::thread> m_threads;
};

TEST(ThreadConditionTest, BroadcastWakesAll) {
    Mutex mutex;
    ThreadCondition condition;
    Waiters waiters(3, mutex, condition);
    condition.broadcast();
    waiters.join();
    EXPECT_EQ(waiters.left(), 3);
}

TEST(ThreadConditionTest, SignalWakesOne) {
    Mutex mutex;
    ThreadCondition condition;
    Waiters waiters(1, mutex, condition);
    condition.signal();
    EXPECT_TRUE(waiters.awaitOneLeft());
}

TEST(ThreadConditionTest, WaiterHoldsItsMutexAgain) {
    Mutex mutex;
    ThreadCondition condition;
    bool isHeldByWaiter = false;
    bool isReady = false;
    std::thread signaller;
    {
        const std::lock_guard<Mutex> lock(mutex);
        signaller = std::thread([&] {
            const std::lock_guard<Mutex> inner(mutex);
            isReady = true;
            condition.signal();
        });
        while (!isReady)
            condition.wait(mutex);
        std::thread([&] { isHeldByWaiter = !mutex.try_lock(); }).join();
    }
    signaller.join();
    EXPECT_TRUE(isHeldByWaiter);
}

TEST(ThreadConditionTest, NoSignalIsLostBetweenUnlockingAndWaiting) {
    constexpr int rounds = 2000;
    Mutex mutex;
    ThreadCondition condition;
    int turn = 0;
    const auto play = [&](int mine) {
        for (int i = 0; i < rounds; ++i) {
            const std::lock_guard<Mutex> lock(mutex);
            while (turn != mine)
                condition.wait(mutex);
            turn = 1 - mine;
            condition.signal();
        }
    };
    std::thread other(play, 1);
    play(0);
    other.join();
    EXPECT_EQ(turn, 0);
}

TEST(ThreadConditionTest, DestructorEndsTheWaitsAndReturnsWhenTheyHaveLeft) {
    Mutex mutex;
    auto condition = std::make_unique<ThreadCondition>();
    Waiters waiters(4, mutex, *condition);
    condition.reset();
    waiters.join();
    EXPECT_EQ(waiters.left(), 4);
}

TEST(ThreadConditionTest, WorkerThatWaitsLeavesSafelyWhenMutexAndConditionAreDestroyed) {
    constexpr int rounds = 300;
    struct Owner {
        Mutex mutex;
        ThreadCondition condition;
    };
    for (int i = 0; i < rounds; ++i) {
        auto owner = std::make_unique<Owner>();
        Event isWaiting;
        std::thread worker([&, raw = owner.get()] {
            raw->mutex.lock();
            isWaiting.set();
            raw->condition.wait(raw->mutex);
            raw->mutex.unlock();
        });
        ASSERT_TRUE(isWaiting.await());
        { const std::lock_guard<Mutex> lock(owner->mutex); }
        if (i % 2 == 0)
            owner->condition.signal();
        owner.reset();
        worker.join();
    }
}

} // namespace
