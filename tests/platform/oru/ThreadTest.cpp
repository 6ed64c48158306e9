#include <oru/Thread.h>
#include <support/Event.h>
#include <support/VtableLayout.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace {

using cdxtest::Event;

/// Runs a function, which is told how to ask for the stop.
class Worker : public oru::Thread {
public:
    using Body = std::function<void(Worker&)>;

    explicit Worker(Body body) : m_body(std::move(body)) {}
    ~Worker() override { join(); }
    void run() override { m_body(*this); }
    using Thread::isStopRequested;

private:
    const Body m_body;
};

void untilStopped(Worker& worker) {
    while (!worker.isStopRequested())
        std::this_thread::yield();
}

TEST(ThreadTest, RunsItsBodyOnAnotherThread) {
    std::thread::id id;
    Worker worker([&](Worker&) { id = std::this_thread::get_id(); });
    worker.start();
    worker.join();
    EXPECT_NE(id, std::thread::id());
    EXPECT_NE(id, std::this_thread::get_id());
}

TEST(ThreadTest, JoinReturnsOnceTheBodyHasReturned) {
    Event mayReturn;
    std::atomic<bool> hasReturned{false};
    Worker worker([&](Worker&) {
        EXPECT_TRUE(mayReturn.await());
        hasReturned = true;
    });
    worker.start();
    mayReturn.set();
    worker.join();
    EXPECT_TRUE(hasReturned);
}

TEST(ThreadTest, StopExitAndJoinBeforeTheStartReturnAtOnce) {
    bool hasRun = false;
    Worker worker([&](Worker&) { hasRun = true; });
    worker.stop();
    worker.join();
    worker.exit();
    worker.start();
    worker.join();
    EXPECT_TRUE(hasRun);
}

TEST(ThreadTest, StopIsNotRequestedBeforeItIs) {
    bool isRequested = true;
    Worker worker([&](Worker& self) { isRequested = self.isStopRequested(); });
    worker.start();
    worker.join();
    EXPECT_FALSE(isRequested);
}

TEST(ThreadTest, StopBeforeTheStartIsNotForgotten) {
    Worker worker(untilStopped);
    worker.stop();
    worker.start();
    worker.join();
    EXPECT_TRUE(worker.isStopRequested());
}

TEST(ThreadTest, SecondJoinReturnsAtOnce) {
    Worker worker([](Worker&) {});
    worker.start();
    worker.join();
    worker.join();
    worker.exit();
}

TEST(ThreadTest, ExitAsksForTheStopAndWaits) {
    std::atomic<bool> hasReturned{false};
    Worker worker([&](Worker& self) {
        untilStopped(self);
        hasReturned = true;
    });
    worker.start();
    worker.exit();
    EXPECT_TRUE(hasReturned);
}

TEST(ThreadTest, JoinFromItsOwnBodyReturnsAtOnce) {
    Worker worker([](Worker& self) {
        self.join();
        self.exit();
    });
    worker.start();
    worker.join();
}

TEST(ThreadTest, TwoThreadsMayJoin) {
    Event mayReturn;
    std::atomic<bool> hasReturned{false};
    Worker worker([&](Worker&) {
        EXPECT_TRUE(mayReturn.await());
        hasReturned = true;
    });
    worker.start();
    const auto joinAndLook = [&] {
        worker.join();
        EXPECT_TRUE(hasReturned);
    };
    std::thread other(joinAndLook);
    mayReturn.set();
    joinAndLook();
    other.join();
}

TEST(ThreadTest, SecondStartIsRefused) {
    Worker worker([](Worker&) {});
    worker.start();
    EXPECT_THROW(worker.start(), std::logic_error);
    worker.join();
    EXPECT_THROW(worker.start(), std::logic_error);
}

TEST(ThreadTest, DestructorWithoutStartReturnsAtOnce) {
    bool hasRun = false;
    {
        const Worker worker([&](Worker&) { hasRun = true; });
    }
    EXPECT_FALSE(hasRun);
}

/// Its body uses nothing of its own, so the base's destructor may join it.
class JoinedByItsBase : public oru::Thread {
public:
    JoinedByItsBase(Event& hasBegun, Event& mayReturn, std::atomic<bool>& hasReturned)
        : m_shared(std::make_shared<Shared>(Shared{hasBegun, mayReturn, hasReturned})) {}
    void run() override {
        const std::shared_ptr<Shared> shared = m_shared;
        shared->hasBegun.set();
        EXPECT_TRUE(shared->mayReturn.await());
        shared->hasReturned = true;
    }

private:
    struct Shared {
        Event& hasBegun;
        Event& mayReturn;
        std::atomic<bool>& hasReturned;
    };
    std::shared_ptr<Shared> m_shared;
};

TEST(ThreadTest, DestructorJoinsWhatWasStarted) {
    Event hasBegun;
    Event mayReturn;
    std::atomic<bool> hasReturned{false};
    {
        JoinedByItsBase thread(hasBegun, mayReturn, hasReturned);
        thread.start();
        ASSERT_TRUE(hasBegun.await());
        mayReturn.set();
    }
    EXPECT_TRUE(hasReturned);
}

/// Nothing of the object, and so nothing that its destruction could take from the body.
class Counting : public oru::Thread {
public:
    void run() override { ++runs; }
    static std::atomic<int> runs;
};
std::atomic<int> Counting::runs{0};

TEST(ThreadTest, BodyRunsThoughItsObjectGoesRightAfterTheStart) {
    constexpr int starts = 1000;
    for (int i = 0; i < starts; ++i)
        Counting().start();
    EXPECT_EQ(Counting::runs, starts);
}

TEST(ThreadTest, DetachedThreadIsNotWaitedFor) {
    Event mayReturn;
    Event hasReturned;
    Worker worker([&](Worker&) {
        EXPECT_TRUE(mayReturn.await());
        hasReturned.set();
    });
    worker.start();
    worker.detach();
    worker.join();
    worker.exit();
    EXPECT_FALSE(hasReturned.isSet());
    mayReturn.set();
    EXPECT_TRUE(hasReturned.await());
}

/// Goes with the last thing that its body does.
class DestroysItself : public oru::Thread {
public:
    explicit DestroysItself(Event& isGone) : m_isGone(isGone) {}
    ~DestroysItself() override { m_isGone.set(); }
    void run() override { delete this; }

private:
    Event& m_isGone;
};

TEST(ThreadTest, BodyMayDestroyItsOwnObject) {
    Event isGone;
    (new DestroysItself(isGone))->start();
    EXPECT_TRUE(isGone.await());
}

TEST(ThreadTest, VirtualOperationsAreInTheOrderThatOverridersRelyOn) {
    const std::string overrider = "(anonymous namespace)::DestroysItself";
    EXPECT_EQ(cdxtest::differenceFrom({overrider + "::~DestroysItself()", overrider + "::~DestroysItself() [deleting]",
                                       "oru::Thread::start()", overrider + "::run()", "oru::Thread::stop()",
                                       "oru::Thread::exit()", "oru::Thread::join()", "oru::Thread::detach()"},
                                      cdxtest::vtableOf(overrider)),
              "");
}

} // namespace
