// A silent service and a quiet one, by clocks that the test moves: what takes minutes takes none, to the minute.
#include "FrameworkUser.h"
#include "ServiceProcess.h"

#include <cdxservice/Server.h>
#include <support/FaultProxy.h>
#include <support/clock/MovableClock.h>

#include <gmock/gmock.h>

namespace cdxtest {
namespace {

using End = FaultProxy::End;
using movableclock::pass;
using std::chrono::milliseconds;
using std::chrono::minutes;
using testing::ElementsAre;

constexpr minutes pingInterval(10);
constexpr minutes pongTimeout(10);
/// Over before the loss is told, but not for the request that follows.
constexpr minutes requestTimeout(15);

int toMilliseconds(minutes time) {
    return static_cast<int>(milliseconds(time).count());
}

/// A program that exchanges, with a watchdog.
class Silence : public ::testing::Test {
protected:
    void exchangeWith(std::uint16_t port) {
        m_user = std::make_unique<FrameworkUser>(port, toMilliseconds(pingInterval), toMilliseconds(pongTimeout));
        m_user->client.setting.requestTimeout.setValue(toMilliseconds(requestTimeout));
        ASSERT_TRUE(m_user->start());
        m_user->create("before");
        ASSERT_TRUE(m_user->sees("before"));
        ASSERT_EQ(m_user->statusOf("before"), 201);
    }
    /// The service has just become silent: that is told after ping interval and pong time-out, and no sooner. The
    /// first of the requests that are made meanwhile ends at its own time.
    void expectDetection() {
        for (const char* const name : {"first", "second", "third"})
            m_user->create(name);
        pass(pingInterval);
        pass(pongTimeout - minutes(1));
        EXPECT_THAT(m_user->client.told.lines(), ElementsAre("connected"));
        EXPECT_EQ(m_user->results().count("second"), 0U) << "it has fifteen minutes of its own";
        pass(minutes(1));
        EXPECT_TRUE(m_user->client.awaitDisconnected(1));
        EXPECT_EQ(m_user->statusOf("first"), 0);
        EXPECT_THAT(m_user->client.told.lines(), ElementsAre("connected", "disconnected"));
    }
    /// The service can be heard again.
    void expectRecovery(std::uint16_t service) {
        ASSERT_TRUE(m_user->client.connection(2));
        m_user->create("after");
        EXPECT_EQ(m_user->statusOf("after"), 201);
        EXPECT_TRUE(m_user->sees("after"));
        EXPECT_TRUE(m_user->comesToHoldWhatIsStoredAt(service));
        for (const auto& [name, count] : m_user->results())
            EXPECT_EQ(count, 1) << name;
        m_user->stop();
        EXPECT_THAT(m_user->client.told.lines(), ElementsAre("connected", "disconnected", "connected"));
    }

    std::unique_ptr<FrameworkUser> m_user;
};

TEST_F(Silence, OfAStoppedProcessIsDetectedInTimeAndItsReturnNoticed) {
    ServiceProcess service;
    exchangeWith(service.port());
    service.suspend();
    expectDetection();
    EXPECT_EQ(m_user->results().count("second"), 0U) << "it waits for its answer";
    service.resume();
    EXPECT_EQ(m_user->statusOf("second"), 201);
    EXPECT_EQ(m_user->statusOf("third"), 201);
    expectRecovery(service.port());
}

TEST_F(Silence, OfTheNetworkIsDetectedInTimeAndRecoveredFrom) {
    cdxservice::Server service;
    service.start();
    FaultProxy proxy(service.port());
    exchangeWith(proxy.port());
    proxy.swallow(true);
    proxy.endAll(End::Silence);
    expectDetection();
    HttpTestClient(service.port()).post("/CarDataExchange/cdxConfig", R"({"name":"meanwhile"})");
    proxy.swallow(false);
    EXPECT_EQ(m_user->results().count("second"), 0U) << "what went into the silence never arrives";
    pass(requestTimeout);
    EXPECT_EQ(m_user->statusOf("second"), 0);
    EXPECT_EQ(m_user->statusOf("third"), 201);
    EXPECT_TRUE(m_user->sees("meanwhile"));
    expectRecovery(service.port());
}

TEST_F(Silence, OfAQuietServiceIsNone) {
    cdxservice::Server service;
    service.start();
    FaultProxy proxy(service.port());
    exchangeWith(proxy.port());
    const auto before = proxy.counts();
    for (int i = 0; i < 120; ++i)
        pass(minutes(1));
    EXPECT_THAT(m_user->client.told.lines(), ElementsAre("connected"));
    constexpr std::uint64_t pong = 2; // bytes
    const std::uint64_t pongs = (proxy.counts().toClient - before.toClient) / pong;
    EXPECT_GE(pongs, 10U);
    EXPECT_LE(pongs, 12U) << "one for each interval";
}

} // namespace
} // namespace cdxtest
