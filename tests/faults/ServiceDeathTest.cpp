#include "FrameworkUser.h"
#include "ServiceProcess.h"

#include <cdxservice/Server.h>
#include <support/ComesTrue.h>
#include <support/FaultProxy.h>
#include <support/Since.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>
#include <e2e/Vehicle.h>

namespace cdxtest {
namespace {

using Direction = FaultProxy::Direction;
using End = FaultProxy::End;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;

milliseconds processorTime() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return milliseconds(time.tv_sec * 1000 + time.tv_nsec / 1'000'000);
}

/// A program that exchanges with a service, which is killed at one moment or another and replaced by another one that
/// knows nothing of what it stored.
class ServiceDeath : public ::testing::Test {
protected:
    /// What is there before is made at the service itself: the proxy has carried the channel only.
    void SetUp() override {
        ASSERT_TRUE(m_user.start());
        Vehicle(m_first.port()).post("cdxConfig", json(R"({"name":"before"})"));
        ASSERT_TRUE(m_user.sees("before"));
    }

    /// Waits until more went to the service than by then.
    bool arrivesMoreThan(std::uint64_t bytes) const {
        return m_proxy.waitFor([&](const auto& counts) { return counts.toServer > bytes; });
    }
    std::uint64_t arrived() const { return m_proxy.counts().toServer; }

    void expectRecovery() {
        const ServiceProcess second;
        m_proxy.setServer(second.port());
        ASSERT_TRUE(m_user.client.connection(2));
        m_user.create("after");
        EXPECT_EQ(m_user.statusOf("after"), 201);
        EXPECT_TRUE(m_user.sees("after"));
        EXPECT_TRUE(m_user.comesToHoldWhatIsStoredAt(second.port()));
        for (const auto& [name, count] : m_user.results())
            EXPECT_EQ(count, 1) << name;
        m_user.stop();
        EXPECT_THAT(m_user.client.told.lines(), ElementsAre("connected", "disconnected", "connected"));
    }

    ServiceProcess m_first;
    FaultProxy m_proxy{m_first.port()};
    FrameworkUser m_user{m_proxy.port()};
};

TEST_F(ServiceDeath, BetweenRequestsIsOneLossWithTheNewServicesStateBehindIt) {
    m_user.create("answered");
    EXPECT_EQ(m_user.statusOf("answered"), 201);
    m_first.kill();
    ASSERT_TRUE(m_user.client.awaitDisconnected(1));
    expectRecovery();
}

TEST_F(ServiceDeath, DuringARequestFailsItOnce) {
    std::uint64_t before = arrived();
    m_user.create("first");
    ASSERT_EQ(m_user.statusOf("first"), 201);
    const std::uint64_t length = arrived() - before;
    m_first.suspend();
    before = arrived();
    m_user.create("other"); // as long as the first one
    ASSERT_TRUE(arrivesMoreThan(before + length - 1)) << "the whole of it";
    m_user.create("queued"); // waits for its turn
    EXPECT_EQ(m_user.results().size(), 1U) << "nothing is answered";
    m_first.kill();
    EXPECT_EQ(m_user.statusOf("other"), 0);
    EXPECT_EQ(m_user.statusOf("queued"), 0) << "there is no service";
    ASSERT_TRUE(m_user.client.awaitDisconnected(1));
    expectRecovery();
}

TEST_F(ServiceDeath, InTheMiddleOfAFrameTellsNothingOfIt) {
    const std::size_t told = m_user.notifications();
    // A part of the next frame on the channel, the only connection that there was.
    m_proxy.cut(Direction::ToClient, m_proxy.counts().toClient + 20, End::Loss);
    Vehicle(m_first.port()).post("cdxConfig", json(R"({"name":"half"})"));
    ASSERT_TRUE(comesTrue([&] { return m_proxy.hasCut(); }));
    EXPECT_EQ(m_user.client.told.count("disconnected"), 0U) << "the service lives";
    m_first.kill();
    ASSERT_TRUE(m_user.client.awaitDisconnected(1));
    EXPECT_EQ(m_user.notifications(), told);
    expectRecovery();
}

TEST_F(ServiceDeath, DuringTheUpgradeIsAFailedAttempt) {
    m_first.suspend();
    std::uint64_t before = arrived();
    m_proxy.endAll(End::Reset);
    ASSERT_TRUE(arrivesMoreThan(before)) << "the request for the upgrade";
    before = arrived();
    m_user.create("during");
    ASSERT_TRUE(arrivesMoreThan(before));
    EXPECT_THAT(m_user.client.told.lines(), ElementsAre("connected", "disconnected"));
    m_first.kill();
    EXPECT_EQ(m_user.statusOf("during"), 0);
    expectRecovery();
}

TEST_F(ServiceDeath, InTheMiddleOfTheAnswerToTheUpgradeIsAFailedAttempt) {
    m_proxy.refuse(true);
    m_proxy.endAll(End::Reset);
    ASSERT_TRUE(m_user.client.awaitDisconnected(1));
    m_proxy.cut(Direction::ToClient, 20, End::Loss);
    m_proxy.refuse(false);
    ASSERT_TRUE(comesTrue([&] { return m_proxy.hasCut(); }));
    m_first.kill();
    expectRecovery();
}

/// Killed when so many of twenty requests have had their result, wherever the next ones are then.
class ServiceDeathAfterResults : public ServiceDeath, public ::testing::WithParamInterface<int> {};

TEST_P(ServiceDeathAfterResults, GivesEachRequestOneResult) {
    const auto name = [](int number) { return "during-" + std::to_string(number); };
    for (int i = 0; i < 20; ++i)
        m_user.create(name(i));
    if (GetParam() > 0) {
        ASSERT_NE(m_user.statusOf(name(GetParam() - 1)), -1);
    }
    m_first.kill();
    ASSERT_TRUE(m_user.client.awaitDisconnected(1));
    for (int i = 0; i < 20; ++i)
        EXPECT_NE(m_user.statusOf(name(i)), -1);
    expectRecovery();
}

INSTANTIATE_TEST_SUITE_P(Of, ServiceDeathAfterResults, ::testing::Values(0, 1, 5, 10));

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
