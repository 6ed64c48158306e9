#include "FrameworkUser.h"

#include <cdxservice/Server.h>
#include <support/Event.h>
#include <support/HttpTestClient.h>
#include <support/P99.h>
#include <support/ProcessState.h>
#include <support/WebSocketPeer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <e2e/Vehicle.h>
#include <map>
#include <mutex>
#include <utility>

namespace cdxtest {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// A size as it is measured for docs/reliability.md where CDX_FULL_LOAD is set, or the smaller one of daily runs.
std::size_t sized(std::size_t daily, std::size_t full) {
    return std::getenv("CDX_FULL_LOAD") ? full : daily;
}

/// What the changes of one small element may hold, however many they are: 256 of them wait for a handler, some that the
/// service has not sent yet wait there.
constexpr long mostKib = 1024;

long allocatedKib() {
    return allocatedBytes() / 1024;
}

class Load : public ::testing::Test {
protected:
    Load() { m_service.start(); }

    cdxservice::Server m_service;
};

TEST_F(Load, OfChangesToABlockedHandlerTakesBoundedMemoryAndLosesNothing) {
    const auto changes = static_cast<int>(sized(5'000, 100'000));
    HttpTestClient vehicle(m_service.port());
    const std::string created =
        vehicle.post("/CarDataExchange/cdxConfig", R"({"id":"one","name":"first","recordBody":"0"})").body;
    FrameworkUser user(m_service.port(), 100, 1000);
    Event arrived;
    Event released;
    user.onNotified = [&] {
        arrived.set();
        released.await(std::chrono::minutes(5));
    };
    ASSERT_TRUE(user.start());
    ASSERT_TRUE(arrived.await());
    const long before = allocatedKib();
    const auto begin = steady_clock::now();
    for (int i = 1; i <= changes; ++i) {
        const HttpAnswer answer =
            vehicle.patch("/CarDataExchange/cdxConfig/one",
                          R"({"name":")" + std::to_string(i) + R"(","recordBody":")" + std::string(500, 'x') + R"("})");
        ASSERT_EQ(answer.status, 200) << answer.body;
    }
    const long grown = allocatedKib() - before;
    // The time is what is tested; daily runs test it by a clock that runs faster (BlockedHandler).
    const milliseconds wanted(sized(0, 10'000));
    const auto left = std::chrono::duration_cast<milliseconds>(begin + wanted - steady_clock::now());
    EXPECT_EQ(user.client.log->await("lost", std::max(left, milliseconds(0))), "");
    const auto blocked = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
    released.set();
    EXPECT_TRUE(user.sees(std::to_string(changes)));
    RecordProperty("grown_kib", static_cast<int>(grown));
    std::cout << changes << " changes to a handler blocked for " << blocked.count() << " ms: grown by " << grown
              << " KiB\n";
    EXPECT_TRUE(grown < mostKib || !memoryTells) << grown;
    EXPECT_EQ(user.client.told.count("disconnected"), 0U) << "one's own slow handler is no loss of the connection";
}

TEST_F(Load, OfTwoHundredSubscribersLeavesThemAllWithTheSameState) {
    const std::uint64_t changes = sized(500, 5'000);
    HttpTestClient vehicle(m_service.port());
    ASSERT_EQ(vehicle.post("/CarDataExchange/cdxConfig", R"({"id":"one","name":"0"})").status, 201);
    std::vector<WebSocketPeer> subscribers;
    for (int i = 0; i < 200; ++i) {
        subscribers.push_back(WebSocketPeer::connect(m_service.port()));
        subscribers.back().text(R"({"op":"subscribe","sub":1,"resource":"cdxConfig"})");
    }
    const auto begin = steady_clock::now();
    for (std::uint64_t i = 1; i <= changes; ++i)
        ASSERT_EQ(vehicle.patch("/CarDataExchange/cdxConfig/one", R"({"name":")" + std::to_string(i) + R"("})").status,
                  200);
    const std::string last = R"("rev":)" + std::to_string(changes + 1) + ",";
    const std::string name = R"("name":")" + std::to_string(changes) + '"';
    std::size_t messages = 0;
    for (WebSocketPeer& subscriber : subscribers) {
        bool isThere = false;
        while (!isThere) {
            const auto text = subscriber.readText();
            ASSERT_TRUE(text);
            ++messages;
            isThere = text->find(last) != std::string::npos && text->find(name) != std::string::npos;
        }
    }
    const auto taken = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
    RecordProperty("messages", static_cast<int>(messages));
    RecordProperty("milliseconds", static_cast<int>(taken.count()));
    std::cout << messages << " messages to 200 subscribers in " << taken.count() << " ms\n";
}

/// Registries with one thread and one connection each, which share their two executors.
TEST_F(Load, OfManyConnectionsThroughTheFrameworkLeavesThemAllWithTheSameState) {
    const std::size_t programs = sized(200, 1'000);
    HttpTestClient vehicle(m_service.port());
    ASSERT_EQ(vehicle.post("/CarDataExchange/cdxConfig", R"({"id":"one","name":"first"})").status, 201);
    const long before = allocatedKib();
    const auto begin = steady_clock::now();
    xaltest::TestClient shared(m_service.uri());
    shared.makeRegistry();
    const auto loggers = std::make_shared<xaltest::JournalLoggerFactory>(shared.log);
    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::string, std::size_t> states; // how many programs have the element under this name
    states[""] = programs;
    std::vector<std::string> latest(programs);
    std::vector<std::shared_ptr<xal::XalServiceRegistry>> registries;
    std::vector<std::shared_ptr<xal::Subscription>> subscriptions(programs); // of the task executor's thread
    for (std::size_t i = 0; i < programs; ++i) {
        registries.push_back(std::make_shared<xal::XalServiceRegistry>(
            shared.websockets, shared.config, loggers,
            std::make_shared<xal::HttpAccessFactory>(std::make_shared<xalutil::PocoHttpSessionFactory>()), shared.task,
            shared.http, shared.settings, nullptr));
        xal::ServiceListener<xaltest::ItemService> listener;
        listener.connected = [&, i](const std::shared_ptr<xaltest::ItemService>& service) {
            if (subscriptions[i])
                return;
            subscriptions[i] = service->subscribeResource<xaltest::Item>(
                xaltest::ItemDescriptor(), [&, i](const std::vector<std::shared_ptr<const xaltest::Item>>& items,
                                                  const std::shared_ptr<const xal::SubscriptionResponse>&) {
                    const std::lock_guard<std::mutex> lock(mutex);
                    const std::string name = items.empty() ? std::string() : items.front()->name();
                    --states[std::exchange(latest[i], name)];
                    ++states[name];
                    changed.notify_all();
                });
        };
        registries.back()->registerServiceListener(listener);
    }
    const auto allHave = [&](const std::string& name) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::minutes(2), [&] { return states[name] == programs; });
    };
    ASSERT_TRUE(allHave("first"));
    const auto connected = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
    const long grown = allocatedKib() - before;
    const auto changeBegin = steady_clock::now();
    ASSERT_EQ(vehicle.patch("/CarDataExchange/cdxConfig/one", R"({"name":"last"})").status, 200);
    EXPECT_TRUE(allHave("last"));
    const auto told = std::chrono::duration_cast<milliseconds>(steady_clock::now() - changeBegin);
    std::cout << programs << " connections in " << connected.count() << " ms, grown by " << grown
              << " KiB with the service's side; a change reached all in " << told.count() << " ms\n";
    shared.onTaskExecutor([&] { subscriptions.clear(); });
    for (const auto& registry : registries)
        registry->close();
}

/// A notification is one change told to one subscriber.
TEST_F(Load, OfNotificationsNamesEveryChangeToEverySubscriber) {
    constexpr std::size_t subscribers = 100;
    const std::size_t notifications = sized(20'000, 1'000'000);
    HttpTestClient vehicle(m_service.port());
    ASSERT_EQ(vehicle.post("/CarDataExchange/cdxConfig", R"({"id":"one","name":"0"})").status, 201);
    const std::string last = std::to_string(notifications / subscribers);
    std::mutex mutex;
    std::condition_variable changed;
    std::size_t told = 0;
    std::size_t current = 0; // so many subscribers were told the latest state
    std::string latest = "0";
    std::vector<std::shared_ptr<xal::Subscription>> subscriptions; // of the task executor's thread
    xaltest::TestClient client(m_service.uri());
    client.log->keepLatest(100);
    client.onConnected = [&](const std::shared_ptr<xaltest::ItemService>& service) {
        while (subscriptions.size() < subscribers)
            subscriptions.push_back(service->subscribeResource<xaltest::Item>(
                xaltest::ItemDescriptor(), [&](const std::vector<std::shared_ptr<const xaltest::Item>>& items,
                                               const std::shared_ptr<const xal::SubscriptionResponse>&) {
                    const std::lock_guard<std::mutex> lock(mutex);
                    ++told;
                    current += items.front()->name() == latest ? 1 : 0;
                    if (current == subscribers)
                        changed.notify_all();
                }));
    };
    client.listen();
    const auto allAreTold = [&] {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, xaltest::patience, [&] { return current == subscribers; });
    };
    ASSERT_TRUE(allAreTold());
    const long before = allocatedKib();
    const auto begin = steady_clock::now();
    for (std::size_t i = 1; i <= notifications / subscribers; ++i) {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            latest = std::to_string(i);
            current = 0;
        }
        ASSERT_EQ(vehicle.patch("/CarDataExchange/cdxConfig/one", R"({"name":")" + std::to_string(i) + R"("})").status,
                  200);
        ASSERT_TRUE(allAreTold()); // one after the other: what waits may merge
    }
    const auto taken = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
    const long grown = allocatedKib() - before;
    std::cout << notifications << " notifications to " << subscribers << " subscribers in " << taken.count()
              << " ms, grown by " << grown << " KiB\n";
    EXPECT_EQ(told, notifications + subscribers);
    EXPECT_TRUE(grown < 128 || !memoryTells) << grown << " though nothing waits";
    EXPECT_EQ(client.told.count("disconnected"), 0U);
    client.onTaskExecutor([&] { subscriptions.clear(); });
    client.close();
}

TEST_F(Load, OfChangesToASlowHandlerEndsWithTheLatestState) {
    const int changes = static_cast<int>(sized(2'000, 100'000));
    const milliseconds slowness(100);
    HttpTestClient vehicle(m_service.port());
    ASSERT_EQ(vehicle.post("/CarDataExchange/cdxConfig", R"({"id":"one","name":"first"})").status, 201);
    FrameworkUser user(m_service.port(), 100, 1000);
    std::mutex mutex;
    std::condition_variable over;
    bool isFast = false;
    user.onNotified = [&] {
        std::unique_lock<std::mutex> lock(mutex);
        over.wait_for(lock, slowness, [&] { return isFast; });
    };
    ASSERT_TRUE(user.start());
    ASSERT_TRUE(user.sees("first"));
    const long before = allocatedKib();
    const auto begin = steady_clock::now();
    for (int i = 1; i <= changes; ++i)
        ASSERT_EQ(vehicle.patch("/CarDataExchange/cdxConfig/one", R"({"name":")" + std::to_string(i) + R"("})").status,
                  200);
    const long grown = allocatedKib() - before;
    const auto taken = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
    const std::size_t told = user.notifications();
    {
        // What still waits is at most an inbox full; its seconds are no news.
        const std::lock_guard<std::mutex> lock(mutex);
        isFast = true;
        over.notify_all();
    }
    EXPECT_TRUE(user.sees(std::to_string(changes)));
    std::cout << changes << " changes in " << taken.count() << " ms to a handler of 100 ms: told " << told
              << ", grown by " << grown << " KiB, told " << user.notifications() << " in the end\n";
    EXPECT_TRUE(grown < mostKib || !memoryTells) << grown;
    EXPECT_EQ(user.client.told.count("disconnected"), 0U);
}

TEST_F(Load, OfManyElementsReachesASubscriberWhole) {
    const std::size_t elements = sized(2'000, 10'000);
    HttpTestClient vehicle(m_service.port());
    for (std::size_t i = 0; i < elements; ++i)
        ASSERT_EQ(vehicle.post("/CarDataExchange/cdxConfig", R"({"name":"n"})").status, 201);
    const long before = allocatedKib();
    const auto begin = steady_clock::now();
    xaltest::TestClient client(m_service.uri());
    std::shared_ptr<xal::Subscription> subscription;
    Event complete;
    std::size_t notifications = 0;
    client.onConnected = [&](const std::shared_ptr<xaltest::ItemService>& service) {
        subscription = service->subscribeResource<xaltest::Item>(
            xaltest::ItemDescriptor(), [&](const std::vector<std::shared_ptr<const xaltest::Item>>& items,
                                           const std::shared_ptr<const xal::SubscriptionResponse>&) {
                EXPECT_EQ(items.size(), ++notifications);
                if (items.size() == elements)
                    complete.set();
            });
    };
    client.listen();
    ASSERT_TRUE(complete.await(std::chrono::seconds(200)));
    const auto taken = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
    RecordProperty("milliseconds", static_cast<int>(taken.count()));
    std::cout << elements << " elements in " << taken.count() << " ms, grown by " << allocatedKib() - before
              << " KiB\n";
    client.close();
}

/// Hostile clients beside a good one, whose requests are timed.
TEST_F(Load, OfHostileClientsLeavesTheOthersServed) {
    HttpTestClient good(m_service.port());
    const auto slowest = [&] {
        std::vector<steady_clock::duration> times;
        for (int i = 0; i < 500; ++i) {
            const auto begin = steady_clock::now();
            EXPECT_EQ(good.get("/CarDataExchange/cdxConfig?limit=1").status, 200);
            times.push_back(steady_clock::now() - begin);
        }
        return p99(std::move(times));
    };
    HttpTestClient writer(m_service.port());
    for (int i = 0; i < 200; ++i)
        writer.post("/CarDataExchange/cdxConfig", R"({"name":"n","recordBody":")" + std::string(20'000, 'x') + R"("})");
    const auto alone = slowest();
    std::vector<TcpPeer> hostile;
    std::vector<WebSocketPeer> slowReaders;
    for (int i = 0; i < 300; ++i) {
        hostile.push_back(TcpPeer::connect(m_service.port())); // idle
        hostile.push_back(TcpPeer::connect(m_service.port()));
        hostile.back().send("GET /CarDataExchange HTTP/1.1\r\nHost: loc"); // a request that never ends
    }
    for (int i = 0; i < 20; ++i) {
        hostile.push_back(TcpPeer::connect(m_service.port()));
        hostile.back().send("GET /CarDataExchange/cdxConfig HTTP/1.1\r\nHost: localhost\r\n\r\n"); // never read
        slowReaders.push_back(WebSocketPeer::connect(m_service.port()));
        slowReaders.back().text(R"({"op":"subscribe","sub":1,"resource":"cdxConfig"})"); // never read
    }
    const auto beside = slowest();
    RecordProperty("p99_alone_us", static_cast<int>(alone.count()));
    RecordProperty("p99_beside_us", static_cast<int>(beside.count()));
    std::cout << "p99 " << alone.count() << " us alone, " << beside.count() << " us beside 640 hostile clients\n";
    EXPECT_TRUE(beside < std::chrono::seconds(1) || !timeTells);
}

} // namespace
} // namespace cdxtest
