// The calendar is set while somebody waits: nobody's time is over for that, and everybody's ends when it should.
#include "FrameworkUser.h"

#include <cdxservice/Server.h>
#include <support/HttpTestClient.h>
#include <support/Since.h>
#include <support/clock/MovableClock.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <platform/xal/ScriptedService.h>

namespace cdxtest {
namespace {

using movableclock::pass;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;
using std::chrono::steady_clock;
using std::chrono::system_clock;
using testing::ElementsAre;
using testing::HasSubstr;

class Calendar : public ::testing::TestWithParam<int> {
protected:
    void TearDown() override { movableclock::setCalendar(seconds(0)); }

    static void setByAnHour() {
        const auto before = system_clock::now();
        movableclock::setCalendar(seconds(GetParam()));
        const auto moved = system_clock::now() - before;
        ASSERT_GE(std::abs(std::chrono::duration_cast<minutes>(moved).count()), 59) << "the calendar was set";
    }
};

TEST_P(Calendar, BeingSetEndsNoConnectionAndNoRequest) {
    cdxservice::Server service;
    service.start();
    HttpTestClient other(service.port());
    ASSERT_EQ(other.get("/health").status, 200);
    FrameworkUser user(service.port(), 600'000, 600'000);
    ASSERT_TRUE(user.start());
    setByAnHour();
    for (int i = 0; i < 10; ++i) {
        const std::string name = std::to_string(i);
        user.create(name);
        EXPECT_EQ(user.statusOf(name), 201);
        EXPECT_TRUE(user.sees(name));
    }
    EXPECT_EQ(other.get("/health").status, 200) << "on the connection that it had";
    for (int i = 0; i < 40; ++i)
        pass(minutes(1)); // twice the watchdog's limits
    EXPECT_THAT(user.client.told.lines(), ElementsAre("connected"));
}

TEST_P(Calendar, BeingSetEndsIdleClientsOfTheServiceAtTheirTime) {
    cdxservice::ServerOptions options;
    options.idleTimeout = minutes(10);
    cdxservice::Server service(options);
    service.start();
    HttpTestClient idle(service.port());
    HttpTestClient other(service.port());
    ASSERT_EQ(idle.get("/health").status, 200);
    ASSERT_EQ(other.get("/health").status, 200);
    setByAnHour();
    pass(minutes(9));
    EXPECT_EQ(other.get("/health").status, 200);
    EXPECT_EQ(idle.tcp().read(milliseconds(0)), TcpPeer::Read::Late) << "it is not over yet";
    pass(minutes(1));
    EXPECT_TRUE(idle.isEnded());
    EXPECT_EQ(other.get("/health").status, 200);
}

/// A program whose requests, subscriptions and watchdog all have ten minutes, and the service that it waits for.
class CalendarWhileWaiting : public Calendar {
protected:
    static constexpr minutes most{10};
    static constexpr minutes notYet{9};
    static constexpr minutes rest{1};

    CalendarWhileWaiting() {
        user.client.setting.requestTimeout.setValue(milliseconds(most).count());
        user.client.setting.subscribeTimeout.setValue(milliseconds(most).count());
    }
    void listen() { user.client.listen(); }
    /// Connects, and reads the subscription that is asked for.
    WebSocketPeer connect() {
        listen();
        WebSocketPeer channel = peer.accept();
        EXPECT_EQ(xaltest::readMessage(channel).at("op").as_string(), "subscribe");
        return channel;
    }
    /// Makes a request and reads it.
    TcpPeer request(const std::string& name) {
        user.create(name);
        TcpPeer connection = peer.acceptTcp();
        EXPECT_TRUE(connection.takeUntil(name + "\"}"));
        return connection;
    }

    xaltest::ScriptedService peer;
    FrameworkUser user{peer.listener().port()};
};

TEST_P(CalendarWhileWaiting, LeavesARequestItsTime) {
    WebSocketPeer channel = connect();
    channel.text(xaltest::subscribed(1));
    TcpPeer connection = request("one");
    setByAnHour();
    pass(notYet);
    connection.send("HTTP/1.1 201 Created\r\nContent-Length: 23\r\n\r\n{\"id\":\"a\",\"name\":\"one\"}");
    EXPECT_EQ(user.statusOf("one"), 201);
}

TEST_P(CalendarWhileWaiting, EndsARequestAtItsTime) {
    WebSocketPeer channel = connect();
    channel.text(xaltest::subscribed(1));
    const TcpPeer connection = request("one");
    setByAnHour();
    pass(notYet);
    EXPECT_EQ(user.results().size(), 0U);
    pass(rest);
    EXPECT_EQ(user.statusOf("one"), 0);
    EXPECT_THAT(user.client.log->await("POST"), HasSubstr("timed out"));
}

TEST_P(CalendarWhileWaiting, LeavesASubscriptionItsTime) {
    WebSocketPeer channel = connect();
    setByAnHour();
    pass(notYet);
    channel.text(xaltest::subscribed(1));
    channel.text(xaltest::changed(1, 0, 1, "a", "late"));
    EXPECT_TRUE(user.sees("late"));
    pass(most);
    EXPECT_THAT(user.client.told.lines(), ElementsAre("connected"));
}

TEST_P(CalendarWhileWaiting, EndsAConnectionWithoutAnAnswerToItsSubscriptionAtItsTime) {
    WebSocketPeer channel = connect();
    setByAnHour();
    pass(notYet);
    EXPECT_FALSE(channel.read(milliseconds(0)));
    pass(rest);
    EXPECT_EQ(channel.readClose(), 1000U);
}

TEST_P(CalendarWhileWaiting, LeavesAnAttemptItsTime) {
    listen();
    TcpPeer connection = peer.acceptTcp();
    setByAnHour();
    pass(notYet);
    const WebSocketPeer channel = WebSocketPeer::accept(std::move(connection));
    EXPECT_TRUE(user.client.connection());
    EXPECT_EQ(user.client.log->count("no connection"), 0U);
}

TEST_P(CalendarWhileWaiting, EndsAnAttemptAtItsTime) {
    listen();
    TcpPeer connection = peer.acceptTcp();
    setByAnHour();
    pass(notYet);
    EXPECT_EQ(user.client.log->count("no connection"), 0U);
    pass(rest);
    EXPECT_THAT(user.client.log->await("no connection"), HasSubstr("timed out"));
}

TEST_P(CalendarWhileWaiting, LeavesTheDelayBeforeAnAttemptAsItIs) {
    WebSocketPeer channel = connect();
    const auto begin = steady_clock::now();
    channel.tcp().reset();
    ASSERT_NE(user.client.log->await("next attempt"), "");
    setByAnHour();
    const WebSocketPeer next = peer.accept();
    const auto delays = user.client.announcedDelays();
    EXPECT_GE(since(begin), delays.at(0));
    EXPECT_EQ(delays.size(), 1U);
}

TEST_P(CalendarWhileWaiting, EndsASilentConnectionAtItsTime) {
    user.client.config->pingInterval = user.client.config->pongTimeout = static_cast<int>(milliseconds(most).count());
    WebSocketPeer channel = connect();
    channel.text(xaltest::subscribed(1));
    channel.text(xaltest::changed(1, 0, 1, "a", "here"));
    ASSERT_TRUE(user.sees("here"));
    setByAnHour();
    pass(notYet);
    EXPECT_FALSE(channel.read(milliseconds(0)));
    pass(rest);
    EXPECT_EQ(channel.read().value_or(Frame()).opcode, Opcode::ping);
    movableclock::setCalendar(seconds(0));
    pass(notYet);
    EXPECT_THAT(user.client.told.lines(), ElementsAre("connected"));
    pass(rest);
    EXPECT_TRUE(user.client.awaitDisconnected(1));
}

INSTANTIATE_TEST_SUITE_P(ByAnHour, Calendar, ::testing::Values(3600, -3600));
INSTANTIATE_TEST_SUITE_P(ByAnHour, CalendarWhileWaiting, ::testing::Values(3600, -3600));

} // namespace
} // namespace cdxtest
