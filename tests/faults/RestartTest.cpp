// Hours of refusals and hundreds of restarts, by a clock that runs faster.
#include "FastClock.h"
#include "FrameworkUser.h"

#include <cdxservice/Server.h>
#include <support/FaultProxy.h>
#include <support/HttpTestClient.h>
#include <support/ProcessState.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <malloc.h>
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

/// Memory in KiB and descriptors that this process holds.
struct Held {
    long allocated = static_cast<long>(::mallinfo2().uordblks / 1024);
    long descriptors = static_cast<long>(openDescriptors().size());
};

class Restarts : public ::testing::Test {
protected:
    Restarts() {
        // What waits by the fast clock for something real.
        m_options.idleTimeout = m_options.requestTimeout = std::chrono::hours(24);
        m_options.store = std::make_shared<cdxservice::Store>();
        m_service = std::make_unique<cdxservice::Server>(m_options);
        m_service->start();
    }

    std::unique_ptr<FrameworkUser> userOf(std::uint16_t port) {
        auto user = std::make_unique<FrameworkUser>(port);
        user->client.setting.requestTimeout.setValue(3'600'000);
        user->client.setting.subscribeTimeout.setValue(3'600'000);
        fastclock::watchConnections(port);
        user->client.listen();
        EXPECT_TRUE(connects(*user, 1));
        fastclock::takeConnections();
        return user;
    }
    static bool connects(FrameworkUser& user, std::size_t number) {
        return patiently([&] { return user.client.connection(number) != nullptr; });
    }

    /// Every delay from the loss on is within its bounds, and every attempt came after its delay.
    static void expectDelays(const FrameworkUser& user, const std::vector<steady_clock::time_point>& attempts) {
        const std::vector<milliseconds> delays = announcedDelays(*user.client.log);
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
        std::nth_element(late.begin(), late.begin() + static_cast<std::ptrdiff_t>(late.size() / 2), late.end());
        const milliseconds median = late[late.size() / 2];
        std::cout << attempts.size() << " attempts, late by " << median.count() / fastclock::factor
                  << " ms of real time in the median\n";
        EXPECT_LT(median, milliseconds(50) * fastclock::factor) << "with leave for a busy machine";
        const auto spread = std::minmax_element(delays.begin() + 6, delays.end());
        EXPECT_GT(*spread.second - *spread.first, milliseconds(500)) << "they are drawn";
    }

    /// Lets attempts fail for so long; the processor is to have next to nothing to do.
    static void failFor(FrameworkUser& user, seconds time) {
        const auto realBegin = fastclock::realTime();
        const auto used = fastclock::processorTime();
        const auto begin = steady_clock::now();
        for (std::size_t lines = user.client.log->size(); steady_clock::now() - begin < time; ++lines)
            ASSERT_TRUE(patiently([&] { return user.client.log->awaitCount(lines + 1); }));
        const auto cost = fastclock::processorTime() - used;
        const auto passed = fastclock::realTime() - realBegin;
        const auto attempts = fastclock::takeConnections();
        std::cout << "failing for " << time.count() << " s: " << std::chrono::duration_cast<milliseconds>(cost).count()
                  << " ms of processor time, " << std::chrono::duration_cast<milliseconds>(passed).count()
                  << " ms real time\n";
        EXPECT_LE(attempts.size(), static_cast<std::size_t>(time / milliseconds(2500)) + 8) << "no busy loop";
        EXPECT_LT(cost, passed / 2) << "though a minute passes in a third of a second";
        expectDelays(user, attempts);
    }

    cdxservice::ServerOptions m_options;
    std::unique_ptr<cdxservice::Server> m_service;
};

TEST_F(Restarts, RefusalsForTenMinutesKeepToTheirDelaysAndEndWithTheServicesReturn) {
    FaultProxy proxy(m_service->port());
    const auto user = userOf(proxy.port());
    proxy.refuse(true);
    proxy.endAll(FaultProxy::End::Reset);
    failFor(*user, std::chrono::minutes(10));
    proxy.refuse(false);
    const auto back = steady_clock::now();
    ASSERT_TRUE(connects(*user, 2));
    EXPECT_LT(steady_clock::now() - back, seconds(5) + seconds(1) * fastclock::factor)
        << "with leave for a busy machine";
}

TEST_F(Restarts, AServiceThatAcceptsAndClosesForTenMinutesIsMetWithTheSameDelays) {
    FaultProxy proxy(m_service->port());
    const auto user = userOf(proxy.port());
    proxy.setServer(0);
    proxy.endAll(FaultProxy::End::Close);
    failFor(*user, std::chrono::minutes(10));
    proxy.setServer(m_service->port());
    ASSERT_TRUE(connects(*user, 2));
}

TEST_F(Restarts, FiveHundredInARowLeaveNothingBehind) {
    constexpr std::size_t restarts = 500;
    constexpr std::size_t settled = 50;
    const auto user = userOf(m_service->port());
    user->client.log->keepLatest(10);
    std::optional<Held> before;
    steady_clock::duration longest{0};
    for (std::size_t i = 1; i <= restarts; ++i) {
        m_service->stop();
        m_service->start();
        const auto back = steady_clock::now();
        ASSERT_TRUE(connects(*user, i + 1)) << i;
        longest = std::max(longest, steady_clock::now() - back);
        if (i == settled)
            before.emplace();
    }
    const Held after;
    std::cout << restarts << " restarts: back after " << std::chrono::duration_cast<milliseconds>(longest).count()
              << " ms at most, " << after.allocated - before->allocated << " KiB and "
              << after.descriptors - before->descriptors << " descriptors more after the last than after " << settled
              << "\n";
    EXPECT_LE(longest, seconds(5) + seconds(1) * fastclock::factor) << "with leave for a busy machine";
    EXPECT_LT(after.allocated - before->allocated, 512);
    EXPECT_LE(after.descriptors, before->descriptors + 4) << "connections that the service is just closing";
    HttpTestClient vehicle(m_service->port());
    ASSERT_EQ(vehicle.post("/CarDataExchange/cdxConfig", R"({"name":"last"})").status, 201);
    EXPECT_TRUE(patiently([&] { return user->sees("last"); }));
    EXPECT_EQ(user->client.told.count("disconnected"), restarts);
    EXPECT_EQ(user->client.told.lines().size(), 2 * restarts + 1);
}

} // namespace
} // namespace cdxtest
