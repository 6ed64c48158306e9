#include <support/ComesTrue.h>
#include <support/Event.h>
#include <support/ProcessState.h>
#include <xalutil/TaskExecutor.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using cdxtest::Event;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using xalutil::ILogger;
using xalutil::SingleThreadAsyncTaskExecutor;

/// Keeps the errors that it is given, beyond its own life. Says that it wants none: it is told all the same.
class ErrorKeeper : public ILogger {
public:
    struct Errors {
        std::mutex mutex;
        std::vector<std::string> texts;

        std::vector<std::string> get() {
            const std::lock_guard<std::mutex> lock(mutex);
            return texts;
        }
    };

    explicit ErrorKeeper(std::shared_ptr<Errors> errors) : m_errors(std::move(errors)) {}
    void trace(const std::string&) override {}
    void debug(const std::string&) override {}
    void info(const std::string&) override {}
    void warning(const std::string&) override {}
    void error(const std::string& text) override {
        const std::lock_guard<std::mutex> lock(m_errors->mutex);
        m_errors->texts.push_back(text);
    }
    void system(const std::string&) override {}
    bool isTrace() const override { return false; }
    bool isDebug() const override { return false; }
    bool isInfo() const override { return false; }
    bool isWarning() const override { return false; }
    bool isError() const override { return false; }
    bool isSystem() const override { return false; }
    std::shared_ptr<ILogger> getSubFacilityLogger(const std::string&) const override { return nullptr; }

private:
    std::shared_ptr<Errors> m_errors;
};

class TaskExecutorTest : public testing::Test {
protected:
    std::unique_ptr<SingleThreadAsyncTaskExecutor> makeExecutor(const std::string& name = "tested") const {
        return std::make_unique<SingleThreadAsyncTaskExecutor>(name, std::make_unique<ErrorKeeper>(m_errors));
    }

    /// Runs until everything queued before it has run.
    static void drain(SingleThreadAsyncTaskExecutor& executor) {
        Event isReached;
        executor.execute([&] { isReached.set(); });
        EXPECT_TRUE(isReached.await());
    }

    const std::shared_ptr<ErrorKeeper::Errors> m_errors = std::make_shared<ErrorKeeper::Errors>();
};

/// Calls a function when the last copy of it goes.
std::shared_ptr<void> whenGone(std::function<void()> call) {
    return std::shared_ptr<void>(nullptr, [call = std::move(call)](void*) { call(); });
}

TEST_F(TaskExecutorTest, RunsTasksInTheirOrderOnOneThreadOfItsOwn) {
    const auto executor = makeExecutor();
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    for (int i = 0; i < 100; ++i)
        executor->execute([&, i] {
            order.push_back(i);
            threads.push_back(std::this_thread::get_id());
        });
    drain(*executor);
    std::vector<int> expected(100);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(order, expected);
    EXPECT_THAT(threads, testing::Each(threads.front()));
    EXPECT_NE(threads.front(), std::this_thread::get_id());
}

TEST_F(TaskExecutorTest, TasksOfSeveralThreadsNeverRunAtOnce) {
    const auto executor = makeExecutor();
    int counter = 0; // unguarded: the executor is what keeps the tasks apart
    const auto give = [&] {
        for (int i = 0; i < 500; ++i)
            executor->execute([&] { ++counter; });
    };
    std::thread other(give);
    give();
    other.join();
    drain(*executor);
    EXPECT_EQ(counter, 1000);
}

TEST_F(TaskExecutorTest, ThreadBearsTheFirstFifteenCharactersOfTheName) {
    const auto executor = makeExecutor("cdxHTTPXalExecutor");
    EXPECT_TRUE(cdxtest::hasThread("cdxHTTPXalExecu"));
    executor->stop();
    EXPECT_TRUE(cdxtest::comesTrue([] { return !cdxtest::hasThread("cdxHTTPXalExecu"); }));
}

TEST_F(TaskExecutorTest, TaskThatThrowsIsLoggedAsAnErrorAndTheNextOneRuns) {
    const auto executor = makeExecutor();
    executor->execute([] { throw std::runtime_error("out of paper"); });
    executor->execute([] { throw 42; });
    drain(*executor);
    EXPECT_THAT(m_errors->get(), ElementsAre(HasSubstr("out of paper"), HasSubstr("no std::exception")));
}

TEST_F(TaskExecutorTest, EmptyTaskIsAnErrorLikeOneThatThrows) {
    const auto executor = makeExecutor();
    executor->execute({});
    drain(*executor);
    EXPECT_EQ(m_errors->get().size(), 1U);
}

TEST_F(TaskExecutorTest, WithoutALoggerTheDefaultFactorysIsUsed) {
    testing::internal::CaptureStderr();
    SingleThreadAsyncTaskExecutor executor("lonely", nullptr);
    executor.execute([] { throw std::runtime_error("out of paper"); });
    drain(executor);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::MatchesRegex("ERROR: lonely: .*out of paper\n"));
}

TEST_F(TaskExecutorTest, ExecuteNeitherBlocksNorRunsTheTaskItself) {
    const auto executor = makeExecutor();
    Event mayGoOn;
    std::atomic<int> done{0};
    executor->execute([&] { EXPECT_TRUE(mayGoOn.await()); });
    for (int i = 0; i < 1000; ++i)
        executor->execute([&] { ++done; });
    EXPECT_EQ(done, 0);
    mayGoOn.set();
    drain(*executor);
    EXPECT_EQ(done, 1000);
}

TEST_F(TaskExecutorTest, TaskMayGiveTheNextOne) {
    const auto executor = makeExecutor();
    Event isReached;
    executor->execute([&] { executor->execute([&] { isReached.set(); }); });
    EXPECT_TRUE(isReached.await());
}

TEST_F(TaskExecutorTest, TaskIsDestroyedBeforeTheNextOneRuns) {
    const auto executor = makeExecutor();
    std::atomic<bool> isGone{false};
    bool wasGone = false;
    executor->execute([kept = whenGone([&] { isGone = true; })] {});
    executor->execute([&] { wasGone = isGone; });
    drain(*executor);
    EXPECT_TRUE(wasGone);
}

TEST_F(TaskExecutorTest, StopLetsTheRunningTaskEndAndDropsTheRest) {
    const auto executor = makeExecutor();
    Event isRunning;
    Event isDropped;
    std::atomic<bool> hasEnded{false};
    std::atomic<bool> hasRun{false};
    executor->execute([&] {
        isRunning.set();
        EXPECT_TRUE(isDropped.await());
        hasEnded = true;
    });
    executor->execute([&, kept = whenGone([&] { isDropped.set(); })] { hasRun = true; });
    ASSERT_TRUE(isRunning.await());
    executor->stop();
    EXPECT_TRUE(hasEnded);
    EXPECT_FALSE(hasRun);
}

TEST_F(TaskExecutorTest, TaskGivenAfterTheStopIsGoneWhenExecuteReturns) {
    const auto executor = makeExecutor();
    executor->stop();
    bool isGone = false;
    executor->execute([kept = whenGone([&] { isGone = true; })] { FAIL() << "it ran"; });
    EXPECT_TRUE(isGone);
}

TEST_F(TaskExecutorTest, DroppedTaskMayUseTheExecutorWhileItIsDestroyed) {
    const auto executor = makeExecutor();
    Event isRunning;
    Event isDropped;
    executor->execute([&] {
        isRunning.set();
        EXPECT_TRUE(isDropped.await());
    });
    executor->execute([kept = whenGone([&] {
                           executor->execute([] { FAIL() << "it ran"; });
                           isDropped.set();
                       })] {});
    ASSERT_TRUE(isRunning.await());
    executor->stop();
}

TEST_F(TaskExecutorTest, StopMayBeRepeated) {
    const auto executor = makeExecutor();
    executor->stop();
    executor->stop();
    EXPECT_THAT(m_errors->get(), IsEmpty());
}

TEST_F(TaskExecutorTest, TwoThreadsMayStopAtOnceAndBothWait) {
    const auto executor = makeExecutor();
    Event isRunning;
    Event mayEnd;
    std::atomic<bool> hasEnded{false};
    executor->execute([&] {
        isRunning.set();
        EXPECT_TRUE(mayEnd.await());
        hasEnded = true;
    });
    ASSERT_TRUE(isRunning.await());
    const auto stopAndLook = [&] {
        executor->stop();
        EXPECT_TRUE(hasEnded);
    };
    std::thread one(stopAndLook);
    std::thread two(stopAndLook);
    mayEnd.set();
    one.join();
    two.join();
}

TEST_F(TaskExecutorTest, StopFromItsOwnTaskReturnsAtOnceAndTheThreadEndsAfterThatTask) {
    const auto executor = makeExecutor("stopsItself");
    Event hasReturned;
    std::atomic<bool> hasRun{false};
    executor->execute([&] {
        executor->execute([&] { hasRun = true; });
        executor->stop();
        hasReturned.set();
    });
    EXPECT_TRUE(hasReturned.await());
    executor->stop();
    EXPECT_TRUE(cdxtest::comesTrue([] { return !cdxtest::hasThread("stopsItself"); }));
    EXPECT_FALSE(hasRun);
}

TEST_F(TaskExecutorTest, DestructorStops) {
    auto executor = makeExecutor("destroyed");
    Event isRunning;
    std::atomic<bool> hasEnded{false};
    executor->execute([&] {
        isRunning.set();
        hasEnded = true;
    });
    ASSERT_TRUE(isRunning.await());
    executor.reset();
    EXPECT_TRUE(hasEnded);
    EXPECT_TRUE(cdxtest::comesTrue([] { return !cdxtest::hasThread("destroyed"); }));
}

TEST_F(TaskExecutorTest, DestructorMayRunOnItsOwnThread) {
    std::shared_ptr<SingleThreadAsyncTaskExecutor> executor = makeExecutor();
    Event mayGoOn;
    Event isOver;
    SingleThreadAsyncTaskExecutor& used = *executor;
    used.execute([&, kept = std::move(executor)]() mutable {
        EXPECT_TRUE(mayGoOn.await());
        kept.reset();
        isOver.set();
    });
    mayGoOn.set();
    EXPECT_TRUE(isOver.await());
}

TEST_F(TaskExecutorTest, TaskThatHoldsTheLastReferenceMayBeDropped) {
    std::shared_ptr<SingleThreadAsyncTaskExecutor> executor = makeExecutor();
    Event isRunning;
    Event mayEnd;
    SingleThreadAsyncTaskExecutor& used = *executor;
    used.execute([&] {
        isRunning.set();
        EXPECT_TRUE(mayEnd.await());
    });
    ASSERT_TRUE(isRunning.await());
    const std::weak_ptr<SingleThreadAsyncTaskExecutor> watched = executor;
    used.execute([kept = std::move(executor)] {});
    mayEnd.set();
    if (const auto last = watched.lock())
        last->stop();
    EXPECT_TRUE(watched.expired());
}

TEST_F(TaskExecutorTest, ManyExecutorsComeAndGo) {
    std::atomic<int> ran{0};
    for (int i = 0; i < 200; ++i) {
        const auto executor = makeExecutor();
        executor->execute([&] { ++ran; });
        drain(*executor);
    }
    EXPECT_EQ(ran, 200);
}

} // namespace
