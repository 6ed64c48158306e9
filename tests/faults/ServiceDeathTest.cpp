#include "FrameworkUser.h"
#include "ServiceProcess.h"

#include <cdxservice/Server.h>
#include <support/FaultProxy.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <e2e/Vehicle.h>

namespace cdxtest {
namespace {

using End = FaultProxy::End;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int watchdog = 150;

milliseconds since(steady_clock::time_point begin) {
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
}

milliseconds processorTime() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return milliseconds(time.tv_sec * 1000 + time.tv_nsec / 1'000'000);
}

std::map<std::string, int> storedAt(std::uint16_t port) {
    std::map<std::string, int> names;
    for (const auto& element : Vehicle(port).list("cdxConfig"))
        ++names[element["name"].asString()];
    return names;
}

/// Kills the service when so many of twenty requests have had their result.
class ServiceDeath : public ::testing::TestWithParam<int> {};

TEST_P(ServiceDeath, GivesEachRequestOneResultAndTheNewServicesStateAfterwards) {
    ServiceProcess first;
    FaultProxy proxy(first.port());
    FrameworkUser user(proxy.port());
    ASSERT_TRUE(user.start());
    user.create("before");
    ASSERT_TRUE(user.sees("before"));
    for (int i = 0; i < 20; ++i)
        user.create("during-" + std::to_string(i));
    if (GetParam() > 0) {
        ASSERT_NE(user.statusOf("during-" + std::to_string(GetParam() - 1)), -1);
    }
    first.kill();
    ASSERT_TRUE(user.client.awaitDisconnected(1));
    ServiceProcess second;
    proxy.setServer(second.port());
    ASSERT_TRUE(user.client.connection(2));
    for (int i = 0; i < 20; ++i)
        EXPECT_NE(user.statusOf("during-" + std::to_string(i)), -1);
    user.create("after");
    EXPECT_EQ(user.statusOf("after"), 201);
    EXPECT_TRUE(user.sees("after"));
    // What the old service alone had shows as gone with the next change after the new one's state is complete.
    for (int i = 0; i < 10 && user.names() != storedAt(second.port()); ++i) {
        user.create("change-" + std::to_string(i));
        EXPECT_TRUE(user.sees("change-" + std::to_string(i)));
    }
    EXPECT_EQ(user.names(), storedAt(second.port()));
    for (const auto& [name, count] : user.results())
        EXPECT_EQ(count, 1) << name;
    user.stop();
    EXPECT_EQ(user.client.told.lines(), (std::vector<std::string>{"connected", "disconnected", "connected"}));
}

INSTANTIATE_TEST_SUITE_P(AfterResults, ServiceDeath, ::testing::Values(0, 1, 5, 10, 20));

class Silence : public ::testing::Test {
protected:
    /// The loss is told within ping interval and pong time-out, with leave for a busy machine.
    void expectDetected(FrameworkUser& user, steady_clock::time_point begin) {
        ASSERT_TRUE(user.client.awaitDisconnected(1));
        const milliseconds taken = since(begin);
        RecordProperty("detected_after_ms", static_cast<int>(taken.count()));
        std::cout << "silence detected after " << taken.count() << " ms\n";
        EXPECT_LT(taken, milliseconds(2 * watchdog + 500));
    }
};

TEST_F(Silence, OfAStoppedProcessIsDetectedAndItsReturnNoticed) {
    ServiceProcess service;
    FrameworkUser user(service.port(), watchdog, watchdog);
    ASSERT_TRUE(user.start());
    user.create("before");
    ASSERT_TRUE(user.sees("before"));
    const auto begin = steady_clock::now();
    service.suspend();
    expectDetected(user, begin);
    service.resume();
    ASSERT_TRUE(user.client.connection(2));
    user.create("after");
    EXPECT_TRUE(user.sees("after"));
    EXPECT_EQ(user.names(), storedAt(service.port()));
}

TEST_F(Silence, OfTheNetworkIsDetectedAndRecoveredFrom) {
    cdxservice::Server service;
    service.start();
    FaultProxy proxy(service.port());
    FrameworkUser user(proxy.port(), watchdog, watchdog);
    ASSERT_TRUE(user.start());
    user.create("before");
    ASSERT_TRUE(user.sees("before"));
    const auto begin = steady_clock::now();
    proxy.endAll(End::Silence);
    expectDetected(user, begin);
    Vehicle(service.port()).post("cdxConfig", json(R"({"name":"meanwhile"})"));
    EXPECT_TRUE(user.sees("meanwhile"));
}

TEST_F(Silence, OfAQuietServiceIsNone) {
    cdxservice::Server service;
    service.start();
    FrameworkUser user(service.port(), 100, 500);
    ASSERT_TRUE(user.start());
    // Twice both limits, with nothing but pongs: the time is what is tested.
    EXPECT_EQ(user.client.told.await("disconnected", milliseconds(1200)), "");
}

TEST(Refusal, CostsNextToNoProcessorTimeAndEndsWithTheServicesReturn) {
    cdxservice::Server service;
    service.start();
    FaultProxy proxy(service.port());
    FrameworkUser user(proxy.port());
    ASSERT_TRUE(user.start());
    proxy.refuse(true);
    const milliseconds used = processorTime();
    const auto begin = steady_clock::now();
    proxy.endAll(End::Reset);
    // The first four delays: at least 0.1, 0.2, 0.4 and 0.8 seconds. For docs/reliability.md: a minute.
    const milliseconds wanted(std::getenv("CDX_FULL_LOAD") ? 60'000 : 0);
    const auto attempts = [&] { return user.client.log->count("next attempt in"); };
    for (std::size_t lines = 1; attempts() < 4 || since(begin) < wanted; ++lines)
        ASSERT_TRUE(user.client.log->awaitCount(lines));
    const milliseconds refused = since(begin);
    const milliseconds cost = processorTime() - used;
    RecordProperty("refused_ms", static_cast<int>(refused.count()));
    RecordProperty("processor_ms", static_cast<int>(cost.count()));
    std::cout << "refused " << attempts() << " times in " << refused.count() << " ms at " << cost.count()
              << " ms of processor time\n";
    EXPECT_GE(refused, milliseconds(700));
    EXPECT_LT(cost, milliseconds(200));
    proxy.refuse(false);
    EXPECT_TRUE(user.client.connection(2));
}

} // namespace
} // namespace cdxtest
