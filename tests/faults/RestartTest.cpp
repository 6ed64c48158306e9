// Minutes of refusals and of a blocked handler, and hundreds of restarts, by a clock that runs faster.
#include "FastClock.h"
#include "FrameworkUser.h"

#include <cdxservice/Server.h>
#include <support/ComesTrue.h>
#include <support/Event.h>
#include <support/FaultProxy.h>
#include <support/HttpTestClient.h>
#include <support/ProcessState.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

namespace cdxtest {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

/// Waits as long as the others do by the clock on the wall.
template <class Wait>
bool patiently(Wait wait) {
    for (int i = 0; i < 2 * fastclock::factor; ++i)
        if (wait())
            return true;
    return false;
}

/// The delays that the log announces, in their order.
std::vector<milliseconds> announcedDelays(const xaltest::Journal& log) {
    const std::string key = "next attempt in ";
    std::vector<milliseconds> delays;
    for (const std::string& line : log.lines())
        if (const auto at = line.find(key); at != std::string::npos)
            delays.emplace_back(std::stol(line.substr(at + key.size())));
    return delays;
}

/// What allocators keep at hand, and containers in reserve: the same however many attempts there were.
constexpr long little = 12 * 1024;

/// Bytes and descriptors that this process holds.
struct Held {
    long bytes = allocatedBytes();
    std::size_t descriptors = openDescriptors().size();
};

/// Expects that so many attempts or connections left nothing behind since `before`. Both times the program is
/// connected and at rest; what the service is just closing gets its time.
void expectNothingLeft(const Held& before, std::size_t attempts) {
    const long most = before.bytes + little;
    std::optional<Held> after;
    const auto isGone = [&] {
        after.emplace();
        return after->bytes <= most && after->descriptors <= before.descriptors;
    };
    patiently([&] { return comesTrue(isGone); });
    std::cout << attempts << " times: " << after->bytes - before.bytes << " bytes and "
              << static_cast<long>(after->descriptors) - static_cast<long>(before.descriptors) << " descriptors more\n";
    EXPECT_LE(after->bytes, most);
    EXPECT_LE(after->descriptors, before.descriptors);
}

class InFastTime : public ::testing::Test {
protected:
    InFastTime() {
        // What waits by the fast clock for something real.
        m_options.idleTimeout = m_options.requestTimeout = m_options.stallTimeout = std::chrono::hours(24);
        m_options.store = std::make_shared<cdxservice::Store>();
        m_service = std::make_unique<cdxservice::Server>(m_options);
        m_service->start();
    }

    static std::unique_ptr<FrameworkUser> userOf(std::uint16_t port) {
        auto user = std::make_unique<FrameworkUser>(port);
        waitForReal(user->client);
        return user;
    }
    static void waitForReal(xaltest::TestClient& client) {
        client.setting.requestTimeout.setValue(3'600'000);
        client.setting.subscribeTimeout.setValue(3'600'000);
    }
    static bool connects(xaltest::TestClient& client, std::size_t number = 1) {
        return patiently([&] { return client.connection(number) != nullptr; });
    }

    cdxservice::ServerOptions m_options;
    std::unique_ptr<cdxservice::Server> m_service;
};

/// A connection that is lost while the service cannot be had.
class Outage : public InFastTime {
protected:
    Outage() : m_proxy(m_service->port()), m_user(userOf(m_proxy.port())) {
        fastclock::watchConnections(m_proxy.port());
        m_user->client.listen();
        EXPECT_TRUE(connects(m_user->client));
        EXPECT_TRUE(patiently([&] { return !m_user->client.log->await("subscribed to").empty(); }));
        fastclock::takeConnections();
        makeRoomForLines();
        m_before.emplace();
    }

    /// Ends the connection and lets attempts fail for so long, each for the reason given; the processor is to have next
    /// to nothing to do.
    void failFor(seconds time, const std::string& reason) {
        xaltest::Journal& log = *m_user->client.log;
        const auto realBegin = fastclock::realTime();
        const auto used = fastclock::processorTime();
        const auto begin = steady_clock::now();
        std::size_t lines = log.size();
        m_proxy.endAll(FaultProxy::End::Close);
        for (; steady_clock::now() - begin < time; ++lines)
            ASSERT_TRUE(patiently([&] { return log.awaitCount(lines + 1); }));
        const auto cost = fastclock::processorTime() - used;
        const auto passed = fastclock::realTime() - realBegin;
        const auto attempts = fastclock::takeConnections();
        m_attempts = attempts.size();
        std::cout << "failing for " << time.count() << " s: " << std::chrono::duration_cast<milliseconds>(cost).count()
                  << " ms of processor time, " << std::chrono::duration_cast<milliseconds>(passed).count()
                  << " ms real time\n";
        EXPECT_LE(m_attempts, static_cast<std::size_t>(time / milliseconds(2500)) + 8) << "no busy loop";
        EXPECT_LT(cost, passed / 2) << "though a minute passes in a third of a second";
        EXPECT_GE(log.count(reason), m_attempts - 1) << log.lines().back();
        expectDelays(attempts);
    }

    /// The service can be had again: that is noticed soon, and nothing is left of the attempts.
    void expectReturn() {
        const auto back = steady_clock::now();
        ASSERT_TRUE(connects(m_user->client, 2));
        EXPECT_LT(steady_clock::now() - back, seconds(5) + seconds(1) * fastclock::factor)
            << "with leave for a busy machine";
        forgetLines();
        expectNothingLeft(*m_before, m_attempts);
    }

private:
    /// What the journal keeps of each attempt must not look like growth: it has its room from the beginning.
    void makeRoomForLines() {
        for (int i = 0; i < 1000; ++i)
            m_user->client.log->add({});
        forgetLines();
    }
    void forgetLines() {
        m_user->client.log->keepLatest(0);
        m_user->client.log->add("the first line from now on");
        m_user->client.log->keepLatest(1000);
    }

    /// Every delay from the loss on is within its bounds, and every attempt came after its delay.
    void expectDelays(const std::vector<steady_clock::time_point>& attempts) {
        const std::vector<milliseconds> delays = announcedDelays(*m_user->client.log);
        ASSERT_GE(delays.size(), attempts.size());
        std::vector<milliseconds> late;
        for (std::size_t n = 0; n < attempts.size(); ++n) {
            const milliseconds cap = std::min(milliseconds(5000), milliseconds(200 << std::min<std::size_t>(n, 10)));
            EXPECT_GE(delays[n], cap / 2) << n;
            EXPECT_LE(delays[n], cap) << n;
            if (n == 0)
                continue;
            const auto waited = std::chrono::duration_cast<milliseconds>(attempts[n] - attempts[n - 1]);
            EXPECT_GE(waited, delays[n]) << n;
            late.push_back(waited - delays[n]);
        }
        ASSERT_FALSE(late.empty());
        std::sort(late.begin(), late.end());
        const auto real = [](milliseconds time) { return time.count() / fastclock::factor; };
        std::cout << attempts.size() << " attempts, late by " << real(late.front()) << " ms of real time at least, "
                  << real(late[late.size() / 2]) << " ms in the median\n";
        EXPECT_LT(real(late.front()), 5) << "a busy machine delays many, but not all";
        const auto spread = std::minmax_element(delays.begin() + 6, delays.end());
        EXPECT_GT(*spread.second - *spread.first, milliseconds(500)) << "they are drawn";
    }

protected:
    FaultProxy m_proxy;

private:
    std::unique_ptr<FrameworkUser> m_user;
    std::optional<Held> m_before;
    std::size_t m_attempts = 0;
};

TEST_F(Outage, OfTenMinutesOfRefusalsKeepsToItsDelaysAndLeavesNothingBehind) {
    m_proxy.refuse(true);
    failFor(std::chrono::minutes(10), "Connection refused");
    m_proxy.refuse(false);
    expectReturn();
}

TEST_F(Outage, OfTenMinutesOfAcceptingAndClosingKeepsToItsDelaysAndLeavesNothingBehind) {
    m_proxy.hangUp(true);
    failFor(std::chrono::minutes(10), "end of stream");
    m_proxy.hangUp(false);
    expectReturn();
}

/// Listens for a program and counts: what a journal keeps of each call would look like growth.
class CallCount {
public:
    void listen(FrameworkUser& user) {
        xal::ServiceListener<xaltest::ItemService> listener;
        listener.connected = [this, &user](const std::shared_ptr<xaltest::ItemService>& service) {
            user.client.onConnected(service);
            const std::lock_guard<std::mutex> lock(m_mutex);
            EXPECT_EQ(++m_connected, m_disconnected + 1) << "in turns";
            m_changed.notify_all();
        };
        listener.disconnected = [this] {
            const std::lock_guard<std::mutex> lock(m_mutex);
            EXPECT_EQ(++m_disconnected, m_connected) << "in turns";
        };
        user.client.makeRegistry();
        user.client.registry->registerServiceListener(listener);
    }
    bool awaitConnected(std::size_t count) {
        return patiently([&] {
            std::unique_lock<std::mutex> lock(m_mutex);
            return m_changed.wait_for(lock, xaltest::patience, [&] { return m_connected >= count; });
        });
    }
    std::size_t connected() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_connected;
    }

private:
    std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_changed;
    std::size_t m_connected = 0;
    std::size_t m_disconnected = 0;
};

using Restarts = InFastTime;

TEST_F(Restarts, FiveHundredInARowLeaveNothingBehind) {
    constexpr std::size_t restarts = 500;
    constexpr std::size_t settled = 50;
    CallCount calls;
    const auto user = userOf(m_service->port());
    calls.listen(*user);
    ASSERT_TRUE(calls.awaitConnected(1));
    user->client.log->keepLatest(10);
    std::optional<Held> before;
    steady_clock::duration longest{0};
    for (std::size_t i = 1; i <= restarts; ++i) {
        m_service->stop();
        m_service->start();
        const auto back = steady_clock::now();
        ASSERT_TRUE(calls.awaitConnected(i + 1)) << i;
        longest = std::max(longest, steady_clock::now() - back);
        if (i == settled)
            before.emplace();
    }
    std::cout << restarts << " restarts: back after " << std::chrono::duration_cast<milliseconds>(longest).count()
              << " ms at most\n";
    EXPECT_LE(longest, seconds(5) + seconds(1) * fastclock::factor) << "with leave for a busy machine";
    expectNothingLeft(*before, restarts - settled);
    HttpTestClient vehicle(m_service->port());
    ASSERT_EQ(vehicle.post("/CarDataExchange/cdxConfig", R"({"name":"last"})").status, 201);
    EXPECT_TRUE(patiently([&] { return user->sees("last"); }));
    EXPECT_EQ(calls.connected(), restarts + 1);
}

using BlockedHandler = InFastTime;

TEST_F(BlockedHandler, BeyondSeveralPongTimeoutsIsNoLossOfTheConnection) {
    constexpr seconds pongTimeout(80); // not too short for a busy machine: less than half a second
    constexpr seconds blocked = 5 * pongTimeout;
    constexpr std::size_t mostWaiting = 256; // then the reading stops
    constexpr int changes = 600;
    Event arrived;
    Event released;
    Event written;
    std::shared_ptr<xaltest::ItemService> service;
    const auto failed = [](const auto& response) { ADD_FAILURE() << response->getStatusCode(); };
    const auto changed = [&](const std::shared_ptr<const xaltest::Item>& item, const auto&) {
        for (int number = 1; number <= changes; ++number) {
            auto descriptor = xaltest::ItemDescriptor::withId(item->id());
            descriptor.setName(std::to_string(number));
            service->updateElement<xaltest::Item>(
                descriptor, [&, number](const auto&) { number == changes ? written.set() : void(); }, failed);
        }
    };
    const auto user = userOf(m_service->port());
    user->client.config->pingInterval = 20'000;
    user->client.config->pongTimeout = static_cast<int>(milliseconds(pongTimeout).count());
    user->onNotified = [&] {
        arrived.set();
        patiently([&] { return released.await(); });
    };
    user->client.listen();
    xaltest::TestClient writer(m_service->uri());
    waitForReal(writer);
    writer.listen();
    ASSERT_TRUE(connects(user->client));
    ASSERT_TRUE(connects(writer));
    service = writer.connection();
    service->createElement<xaltest::Item>(xaltest::ItemDescriptor::named("0"), changed, failed);
    ASSERT_TRUE(patiently([&] { return arrived.await(); }));
    ASSERT_TRUE(patiently([&] { return written.await(); }));
    // The time is what is tested.
    EXPECT_EQ(user->client.log->await("lost", blocked), "");
    released.set();
    EXPECT_TRUE(patiently([&] { return user->sees(std::to_string(changes)); }));
    EXPECT_EQ(user->client.told.count("disconnected"), 0U);
    EXPECT_GT(user->notifications(), mostWaiting);
    std::cout << "blocked for " << blocked.count() << " s with " << changes << " changes: told "
              << user->notifications() << " times\n";
}

} // namespace
} // namespace cdxtest
