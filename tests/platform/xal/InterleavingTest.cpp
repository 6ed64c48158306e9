#include "TestClient.h"

#include <cdxservice/Server.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <random>
#include <thread>

namespace {

using namespace xaltest;
using Items = std::vector<std::shared_ptr<const Item>>;
using Response = std::shared_ptr<const xal::XalResponse>;

/// The rounds are shared by tests that run beside each other.
constexpr int shares = 4;

/// How often a share throws the dice; more on demand.
int rounds() {
    const char* const wanted = std::getenv("XAL_INTERLEAVINGS");
    return (wanted == nullptr ? 60 : std::atoi(wanted)) / shares;
}

/// One program that does everything at once, on its own threads and inside of its handlers, and keeps count.
class Program {
public:
    Program(const std::string& uri, unsigned seed) : m_seed(seed), m_client(uri) {
        m_client.onConnected = [this](const std::shared_ptr<ItemService>& service) {
            noteStart();
            {
                const std::lock_guard<std::mutex> lock(m_mutex);
                m_service = service;
            }
            act();
            act();
        };
        m_client.onDisconnected = [this] {
            noteStart();
            act();
        };
    }

    struct Counts {
        std::size_t requests = 0, releases = 0;
    };

    /// What it did, once all of it is over.
    Counts run(const std::function<void(std::mt19937&)>& disturb) {
        m_client.listen();
        std::mt19937 random(m_seed);
        // Some rounds begin before there is a connection.
        if (random() % 4 != 0)
            m_client.connection();
        std::vector<std::thread> threads;
        for (int i = 0; i < 2; ++i)
            threads.emplace_back([this] {
                for (int step = 0; step < 12; ++step)
                    act();
            });
        disturb(random);
        const auto close = [this] {
            m_client.close();
            m_isClosed = true;
        };
        const bool isCloseEarly = random() % 2 == 0;
        if (isCloseEarly)
            random() % 2 == 0 ? close() : m_client.onTaskExecutor(close);
        for (auto& thread : threads)
            thread.join();
        random() % 2 == 0 ? close() : m_client.onTaskExecutor(close);
        // Requests made after the first close have their results as tasks like any other. The first wait is for
        // handlers that were acting still, the second for what they asked for.
        m_isSettling = true;
        m_client.onTaskExecutor([] {});
        m_client.http->stop();
        m_client.onTaskExecutor([] {});
        EXPECT_EQ(m_startedLate, 0) << "seed " << m_seed;
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (std::size_t request = 0; request < m_results.size(); ++request)
            EXPECT_EQ(m_results[request], 1) << "results of request " << request << ", seed " << m_seed;
        return {m_results.size(), m_releases};
    }

private:
    struct Held {
        std::shared_ptr<xal::Subscription> subscription;
        /// How many calls of its callback may still begin; empty until it is released.
        std::shared_ptr<std::optional<int>> callsLeft = std::make_shared<std::optional<int>>();
    };

    void noteStart() {
        if (m_isClosed)
            ++m_startedLate;
    }

    void noteCall(std::optional<int>& callsLeft) {
        noteStart();
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (callsLeft && (*callsLeft)-- <= 0)
            ++m_startedLate;
    }

    unsigned dice(unsigned sides) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return static_cast<unsigned>(m_random() % sides);
    }

    void act() {
        if (m_isSettling)
            return;
        std::shared_ptr<ItemService> service;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            service = m_service;
        }
        if (!service)
            return;
        switch (dice(6)) {
        case 0:
        case 1:
            return subscribe(*service);
        case 2:
            return unsubscribe();
        case 3:
            return drop();
        default:
            return request(*service);
        }
    }

    void subscribe(ItemService& service) {
        Held held;
        held.subscription =
            service.subscribeResource<Item>(ItemDescriptor(dice(2) == 0 ? "cdxConfig" : "cdxData"),
                                            [this, callsLeft = held.callsLeft](const Items&, const auto&) {
                                                noteCall(*callsLeft);
                                                if (dice(4) == 0)
                                                    act();
                                            });
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_held.push_back(held);
    }

    Held take() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_held.empty())
            return {};
        const auto place = m_held.begin() + static_cast<std::ptrdiff_t>(m_random() % m_held.size());
        Held held = *place;
        m_held.erase(place);
        return held;
    }

    void unsubscribe() {
        const Held held = take();
        if (!held.subscription)
            return;
        held.subscription->unsubscribe();
        noteRelease(held, 0);
    }

    void drop() {
        Held held = take();
        if (!held.subscription)
            return;
        held.subscription.reset();
        // A drop does not wait: elsewhere a call may be under way that has not come to be noted.
        noteRelease(held, m_client.task->isRunningHere() ? 0 : 1);
    }

    void noteRelease(const Held& held, int callsLeft) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        *held.callsLeft = callsLeft;
        ++m_releases;
    }

    void request(ItemService& service) {
        const auto result = [this, number = newRequest()] {
            noteResult(number);
            if (dice(4) == 0)
                act();
        };
        const auto failed = [result](const Response&) { result(); };
        if (dice(3) == 0)
            service.deleteElement<Item>(ItemDescriptor::withId("none"), failed, failed);
        else
            service.createElement<Item>(
                ItemDescriptor::named("x"), [result](const auto&, const Response&) { result(); }, failed);
    }

    std::size_t newRequest() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_results.push_back(0);
        return m_results.size() - 1;
    }

    void noteResult(std::size_t request) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_results[request];
    }

    const unsigned m_seed;
    std::mutex m_mutex; ///< guards what follows, up to the atomic members
    std::mt19937 m_random{m_seed};
    std::shared_ptr<ItemService> m_service;
    std::vector<Held> m_held;
    std::vector<int> m_results; ///< of each request, in the order in which they were made
    std::size_t m_releases = 0;
    std::atomic<bool> m_isClosed{false}, m_isSettling{false};
    std::atomic<int> m_startedLate{0};
    TestClient m_client;
};

class Interleavings : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(Share, Interleavings, testing::Range(0, shares));

TEST_P(Interleavings, KeepTheirPromises) {
    cdxservice::ServerOptions options;
    options.store = std::make_shared<cdxservice::Store>();
    options.closeTimeout = std::chrono::milliseconds(1);
    cdxservice::Server server(options);
    server.start();
    std::size_t requests = 0, releases = 0;
    for (int round = 0; round < rounds() && !testing::Test::HasFailure(); ++round) {
        Program program(server.uri(), static_cast<unsigned>(GetParam() * rounds() + round));
        const auto did = program.run([&server](std::mt19937& random) {
            if (random() % 8 == 0) {
                server.stop();
                server.start();
            }
        });
        requests += did.requests;
        releases += did.releases;
    }
    std::cout << rounds() << " rounds: " << requests << " requests, " << releases << " subscriptions released\n";
}

} // namespace
