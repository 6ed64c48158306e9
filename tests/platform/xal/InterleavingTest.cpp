#include "TestClient.h"

#include <cdxservice/Server.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
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

    void run(const std::function<void(std::mt19937&)>& disturb) {
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
        EXPECT_EQ(m_results, m_requests) << "seed " << m_seed;
    }

private:
    struct Held {
        std::shared_ptr<xal::Subscription> subscription;
        std::shared_ptr<std::atomic<bool>> isReleased = std::make_shared<std::atomic<bool>>(false);
    };

    void noteStart() {
        if (m_isClosed)
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
        case 3: {
            const auto dropped = take();
            return;
        }
        default:
            return request(*service);
        }
    }

    void subscribe(ItemService& service) {
        Held held;
        held.subscription =
            service.subscribeResource<Item>(ItemDescriptor(dice(2) == 0 ? "cdxConfig" : "cdxData"),
                                            [this, isReleased = held.isReleased](const Items&, const auto&) {
                                                noteStart();
                                                if (*isReleased)
                                                    ++m_startedLate;
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
        *held.isReleased = true;
    }

    void request(ItemService& service) {
        ++m_requests;
        const auto result = [this] {
            ++m_results;
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

    const unsigned m_seed;
    std::mutex m_mutex;
    std::mt19937 m_random{m_seed};
    std::shared_ptr<ItemService> m_service;
    std::vector<Held> m_held;
    std::atomic<bool> m_isClosed{false}, m_isSettling{false};
    std::atomic<int> m_startedLate{0}, m_requests{0}, m_results{0};
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
    for (int round = 0; round < rounds() && !testing::Test::HasFailure(); ++round) {
        Program program(server.uri(), static_cast<unsigned>(GetParam() * rounds() + round));
        program.run([&server](std::mt19937& random) {
            if (random() % 8 == 0) {
                server.stop();
                server.start();
            }
        });
    }
}

} // namespace
