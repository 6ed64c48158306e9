#include <support/Event.h>
#include <xalutil/StopCallback.h>
#include <xalutil/TaskExecutor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

namespace {

using cdxtest::Event;
using xalutil::SingleThreadAsyncTaskExecutor;
using xalutil::StopCallback;

class StopCallbackTest : public testing::Test {
protected:
    SingleThreadAsyncTaskExecutor m_executor{"tested", nullptr};
};

TEST_F(StopCallbackTest, TellsTheRunningTaskOfTheStopOnTheThreadThatStops) {
    Event isReady;
    Event isTold;
    std::thread::id teller;
    m_executor.execute([&] {
        const StopCallback onStop([&] {
            teller = std::this_thread::get_id();
            isTold.set();
        });
        isReady.set();
        EXPECT_TRUE(isTold.await());
    });
    ASSERT_TRUE(isReady.await());
    m_executor.stop();
    EXPECT_EQ(teller, std::this_thread::get_id());
}

TEST_F(StopCallbackTest, IsNotCalledOnceItIsGone) {
    Event isGone;
    std::atomic<bool> isCalled{false};
    m_executor.execute([&] {
        {
            const StopCallback onStop([&] { isCalled = true; });
        }
        isGone.set();
    });
    ASSERT_TRUE(isGone.await());
    m_executor.stop();
    EXPECT_FALSE(isCalled);
}

TEST_F(StopCallbackTest, IsCalledAtOnceWhereTheStopWasAskedForBefore) {
    bool isCalled = false;
    bool isRequested = false;
    Event isOver;
    m_executor.execute([&] {
        m_executor.stop();
        const StopCallback onStop([&] { isCalled = true; });
        isRequested = StopCallback::isStopRequested();
        isOver.set();
    });
    ASSERT_TRUE(isOver.await());
    EXPECT_TRUE(isCalled);
    EXPECT_TRUE(isRequested);
}

TEST_F(StopCallbackTest, StopIsNotRequestedWhileTheExecutorRuns) {
    bool isRequested = true;
    Event isOver;
    m_executor.execute([&] {
        isRequested = StopCallback::isStopRequested();
        isOver.set();
    });
    ASSERT_TRUE(isOver.await());
    EXPECT_FALSE(isRequested);
}

TEST_F(StopCallbackTest, OutsideOfTasksItDoesNothing) {
    bool isCalled = false;
    const StopCallback onStop([&] { isCalled = true; });
    m_executor.stop();
    EXPECT_FALSE(isCalled);
    EXPECT_FALSE(StopCallback::isStopRequested());
}

TEST_F(StopCallbackTest, DestructorWaitsForARunningCall) {
    Event isReady;
    Event isInside;
    Event mayReturn;
    std::atomic<bool> hasReturned{false};
    m_executor.execute([&] {
        {
            const StopCallback onStop([&] {
                isInside.set();
                EXPECT_TRUE(mayReturn.await());
                hasReturned = true;
            });
            isReady.set();
            EXPECT_TRUE(isInside.await());
            mayReturn.set();
        }
        EXPECT_TRUE(hasReturned);
    });
    ASSERT_TRUE(isReady.await());
    m_executor.stop();
    EXPECT_TRUE(hasReturned);
}

TEST_F(StopCallbackTest, CallMayDestroyItsOwnObject) {
    auto onStop = std::make_unique<std::unique_ptr<StopCallback>>();
    Event isReady;
    Event isTold;
    m_executor.execute([&] {
        *onStop = std::make_unique<StopCallback>([&] {
            onStop->reset();
            isTold.set();
        });
        isReady.set();
        EXPECT_TRUE(isTold.await());
    });
    ASSERT_TRUE(isReady.await());
    m_executor.stop();
    EXPECT_EQ(*onStop, nullptr);
}

TEST_F(StopCallbackTest, RegisteringAndStoppingMeetWithoutARace) {
    for (int i = 0; i < 200; ++i) {
        SingleThreadAsyncTaskExecutor executor("meeting", nullptr);
        Event hasBegun;
        std::atomic<bool> isTold{false};
        executor.execute([&] {
            hasBegun.set();
            while (!isTold) {
                int local = 0;
                const StopCallback onStop([&] {
                    ++local;
                    isTold = true;
                });
            }
        });
        ASSERT_TRUE(hasBegun.await());
        executor.stop();
        ASSERT_TRUE(isTold);
    }
}

} // namespace
