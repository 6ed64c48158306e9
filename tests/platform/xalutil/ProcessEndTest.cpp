#include <support/Event.h>
#include <xalutil/HttpSession.h>
#include <xalutil/ProcessEnd.h>
#include <xalutil/StopCallback.h>
#include <xalutil/TaskExecutor.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>

// Each test ends a process of its own, by exit() with a status that must come through. exit() does not destroy local
// objects: what stands in a test's body is what an application left running.
namespace {

using cdxtest::Event;
using testing::ExitedWithCode;
using xalutil::ProcessEndHook;
using xalutil::SingleThreadAsyncTaskExecutor;
using xalutil::StopCallback;
using Clock = std::chrono::steady_clock;

constexpr int ownStatus = 7;

void say(const char* what) {
    std::fputs(what, stderr);
}

class ProcessEndDeathTest : public testing::Test {
protected:
    ProcessEndDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

/// Says so when it is destroyed with the other static objects.
struct OlderStatic {
    ~OlderStatic() { say("older static gone;"); }
};

/// Returns once a task runs that ends, and says so, when its executor is stopped.
void runUntilStopped(SingleThreadAsyncTaskExecutor& executor) {
    Event isRunning;
    executor.execute([&isRunning] {
        Event isTold;
        const StopCallback onStop([&isTold] { isTold.set(); });
        isRunning.set();
        isTold.await();
        say("task ended;");
    });
    isRunning.await();
}

/// Returns once a task runs that no stop ends.
void runForAMinute(SingleThreadAsyncTaskExecutor& executor) {
    Event isRunning;
    executor.execute([&isRunning] {
        isRunning.set();
        Event().await(std::chrono::minutes(1));
    });
    isRunning.await();
}

TEST_F(ProcessEndDeathTest, ExecutorIsStoppedBeforeAnyOlderStaticObjectGoes) {
    EXPECT_EXIT(
        {
            static const OlderStatic older;
            SingleThreadAsyncTaskExecutor executor("left", nullptr);
            runUntilStopped(executor);
            std::exit(ownStatus);
        },
        ExitedWithCode(ownStatus), "task ended;older static gone;");
}

TEST_F(ProcessEndDeathTest, StuckTaskIsWaitedForAtMostASecond) {
    const auto begin = Clock::now();
    EXPECT_EXIT(
        {
            SingleThreadAsyncTaskExecutor executor("stuck", nullptr);
            runForAMinute(executor);
            std::exit(ownStatus);
        },
        ExitedWithCode(ownStatus), "");
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(8));
}

struct StopsWhenDestroyed {
    std::unique_ptr<SingleThreadAsyncTaskExecutor> executor;

    ~StopsWhenDestroyed() {
        const auto begin = Clock::now();
        executor->stop();
        executor.reset();
        if (Clock::now() - begin < std::chrono::milliseconds(500) && xalutil::isProcessEnding())
            say("waited for nobody;");
    }
};

TEST_F(ProcessEndDeathTest, AfterTheExitHandlerStopAndDestructorWaitForNobody) {
    EXPECT_EXIT(
        {
            static StopsWhenDestroyed older;
            older.executor = std::make_unique<SingleThreadAsyncTaskExecutor>("stuck", nullptr);
            runForAMinute(*older.executor);
            std::exit(ownStatus);
        },
        ExitedWithCode(ownStatus), "waited for nobody;");
}

TEST_F(ProcessEndDeathTest, HooksAreCalledAfterTheExecutorsStoppedYoungestFirst) {
    EXPECT_EXIT(
        {
            SingleThreadAsyncTaskExecutor executor("left", nullptr);
            const ProcessEndHook first([] { say("first hook;"); });
            const ProcessEndHook second([] { say("second hook;"); });
            runUntilStopped(executor);
            std::exit(ownStatus);
        },
        ExitedWithCode(ownStatus), "task ended;second hook;first hook;");
}

TEST_F(ProcessEndDeathTest, HookThatIsGoneIsNotCalled) {
    EXPECT_EXIT(
        {
            const ProcessEndHook kept([] { say("hook;"); });
            {
                const ProcessEndHook gone([] { std::_Exit(1); });
            }
            std::exit(ownStatus);
        },
        ExitedWithCode(ownStatus), "hook;");
}

TEST_F(ProcessEndDeathTest, ProcessIsNotEndingBefore) {
    EXPECT_FALSE(xalutil::isProcessEnding());
}

TEST_F(ProcessEndDeathTest, ExitFromATaskOfItsOwnEndsToo) {
    EXPECT_EXIT(
        {
            SingleThreadAsyncTaskExecutor executor("exits", nullptr);
            executor.execute([] { std::exit(ownStatus); });
            Event().await(std::chrono::minutes(1));
        },
        ExitedWithCode(ownStatus), "");
}

TEST_F(ProcessEndDeathTest, TasksMayUseTlsUntilTheirExecutorsAreStopped) {
    EXPECT_EXIT(
        {
            SingleThreadAsyncTaskExecutor executor("left", nullptr);
            xalutil::PocoHttpSessionFactory sessions;
            const auto first = sessions.createSession("https://localhost");
            Event isRunning;
            executor.execute([&] {
                Event isTold;
                const StopCallback onStop([&isTold] { isTold.set(); });
                isRunning.set();
                isTold.await();
                if (sessions.createSession("https://localhost"))
                    say("TLS is still there;");
            });
            isRunning.await();
            std::exit(ownStatus);
        },
        ExitedWithCode(ownStatus), "TLS is still there;");
}

struct MakesAnExecutorWhenDestroyed {
    ~MakesAnExecutorWhenDestroyed() {
        SingleThreadAsyncTaskExecutor late("late", nullptr);
        late.execute([] { std::_Exit(1); });
        say("late executor made;");
    }
};

TEST_F(ProcessEndDeathTest, ExecutorMadeAfterTheExitHandlerDropsItsTasks) {
    EXPECT_EXIT(
        {
            static const MakesAnExecutorWhenDestroyed older;
            const SingleThreadAsyncTaskExecutor first("first", nullptr);
            std::exit(ownStatus);
        },
        ExitedWithCode(ownStatus), "late executor made;");
}

TEST_F(ProcessEndDeathTest, ForkedChildEndsWithoutWaitingForThreadsThatItDoesNotHave) {
    EXPECT_EXIT(
        {
            // Whoever waited for these threads would do so for a second each. They are at rest when the child is made:
            // what one of them locks just then stays locked in the child, a sanitizer's allocator included.
            SingleThreadAsyncTaskExecutor first("first", nullptr);
            SingleThreadAsyncTaskExecutor second("second", nullptr);
            SingleThreadAsyncTaskExecutor third("third", nullptr);
            for (auto* executor : {&first, &second, &third})
                runForAMinute(*executor);
            const auto begin = Clock::now();
            const pid_t child = ::fork();
            if (child == 0)
                std::exit(ownStatus);
            int status = 0;
            ::waitpid(child, &status, 0);
            const bool isPrompt = Clock::now() - begin < std::chrono::milliseconds(2'500);
            std::_Exit(WIFEXITED(status) && isPrompt ? WEXITSTATUS(status) : 1);
        },
        ExitedWithCode(ownStatus), "");
}

} // namespace
