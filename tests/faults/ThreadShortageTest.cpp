// The system gives no thread: this program's own pthread_create stands before the system's.
#include <CdxMoroClient.h>
#include <cdxservice/Server.h>
#include <oru/Log.h>
#include <oru/Thread.h>
#include <support/ComesTrue.h>
#include <support/Event.h>
#include <support/ProcessState.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <dlfcn.h>
#include <e2e/Application.h>
#include <e2e/Vehicle.h>
#include <platform/xal/TestClient.h>
#include <pthread.h>
#include <system_error>
#include <thread>

namespace {

constexpr int never = -1;
std::atomic<int> threadsLeft{never}; ///< so many are still given

bool isRefused() {
    int left = threadsLeft;
    while (left > 0 && !threadsLeft.compare_exchange_weak(left, left - 1)) {
    }
    return left == 0;
}

} // namespace

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                              void* argument) noexcept {
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto next = reinterpret_cast<Create>(::dlsym(RTLD_NEXT, "pthread_create"));
    return isRefused() ? EAGAIN : next(thread, attributes, run, argument);
}

namespace cdxtest {
namespace {

/// While it lives, the system gives this process so many threads more.
class ThreadShortage {
public:
    explicit ThreadShortage(int left = 0) { threadsLeft = left; }
    ~ThreadShortage() { threadsLeft = never; }
    ThreadShortage(const ThreadShortage&) = delete;
    ThreadShortage& operator=(const ThreadShortage&) = delete;
};

/// Threads and descriptors of this process.
struct Held {
    std::size_t threads = cdxtest::threads().size();
    std::size_t descriptors = openDescriptors().size();
};

/// Not at once: a thread that was joined is still listed for a moment, and the service closes its own sides later.
bool isBackTo(const Held& before) {
    return comesTrue([&] {
        const Held now;
        return now.threads <= before.threads && now.descriptors <= before.descriptors;
    });
}

class NoThread : public ::testing::Test {
protected:
    NoThread() { m_service.start(); }

    /// So that what a first use sets up for good counts neither as a leak nor as a thread that cannot be had.
    void exchangeOnce() {
        xaltest::TestClient client(m_service.uri());
        client.listen();
        ASSERT_TRUE(client.connection());
    }

    cdxservice::Server m_service;
};

TEST_F(NoThread, ForAThreadObjectIsAnErrorAndItMayBeStartedLater) {
    class Body : public oru::Thread {
    public:
        ~Body() override { join(); }
        void run() override { hasRun.set(); }
        Event hasRun;
    };
    const Held before;
    {
        Body body;
        {
            const ThreadShortage shortage;
            EXPECT_THROW(body.start(), std::system_error);
        }
        body.start();
        EXPECT_TRUE(body.hasRun.await());
    }
    EXPECT_TRUE(isBackTo(before));
}

TEST_F(NoThread, ForAnExecutorIsAnErrorThatLeavesNothingBehind) {
    exchangeOnce();
    const Held before;
    {
        const ThreadShortage shortage;
        EXPECT_THROW(xalutil::SingleThreadAsyncTaskExecutor("tasks", nullptr), std::system_error);
    }
    EXPECT_TRUE(isBackTo(before));
    xalutil::SingleThreadAsyncTaskExecutor executor("tasks", nullptr);
    Event hasRun;
    executor.execute([&] { hasRun.set(); });
    EXPECT_TRUE(hasRun.await());
}

TEST_F(NoThread, ForAConnectionIsAnErrorAndTheListenerMayBeRegisteredLater) {
    exchangeOnce();
    xaltest::TestClient client(m_service.uri());
    client.makeRegistry();
    const Held before;
    {
        const ThreadShortage shortage;
        EXPECT_THROW(client.listen(), std::system_error);
    }
    EXPECT_TRUE(isBackTo(before));
    client.listen();
    EXPECT_TRUE(client.connection());
    EXPECT_EQ(client.told.lines(), std::vector<std::string>{"connected"}) << "nothing was registered by the first";
}

TEST_F(NoThread, ForANamesResolutionIsAFailedAttempt) {
    xaltest::TestClient client("http://localhost:" + std::to_string(m_service.port()));
    {
        // One for the connection, none for the resolver.
        client.makeRegistry();
        const ThreadShortage shortage(1);
        client.listen();
        EXPECT_NE(client.log->await("no connection to"), "") << "the log says what is short";
    }
    EXPECT_TRUE(client.connection());
}

/// How many of the library's threads can be had: for requests, for handlers, for the connection.
class NoThreadForTheLibrary : public NoThread, public ::testing::WithParamInterface<int> {};

TEST_P(NoThreadForTheLibrary, IsAnErrorOfTheStartAndTheNextStartSucceeds) {
    exchangeOnce();
    const Vehicle vehicle(m_service.port());
    vehicle.announce("navigation");
    const auto start = [&](Event& announced) {
        const auto client = zepclient::CdxMoroClient::getInstance();
        client->setMsgProcessorCallback([&](const oru::Json::Value&) { announced.set(); });
        oru::Json::Value registry = registryDocument();
        oru::Json::Value service = serviceDocument(m_service.port());
        client->StartCdxMoroClient(registry, service);
    };
    const auto stop = [] {
        zepclient::CdxMoroClient::getInstance()->StopCdxMoroClient();
        zepclient::CdxMoroClient::ReleaseCdxMoroClientThread();
    };
    Event first;
    start(first);
    ASSERT_TRUE(first.await());
    stop();
    const Held before;
    Event during;
    {
        const ThreadShortage shortage(GetParam());
        EXPECT_THROW(start(during), std::system_error);
    }
    Event after;
    start(after);
    EXPECT_TRUE(after.await());
    EXPECT_FALSE(during.isSet());
    stop();
    EXPECT_TRUE(isBackTo(before));
}

INSTANTIATE_TEST_SUITE_P(OfThree, NoThreadForTheLibrary, ::testing::Values(0, 1, 2));

} // namespace
} // namespace cdxtest
