#include "FrameworkUser.h"

#include <cdxservice/Server.h>
#include <support/Event.h>
#include <support/HttpTestClient.h>
#include <support/WebSocketPeer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <e2e/Vehicle.h>
#include <fstream>

namespace cdxtest {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// Resident memory of this process, in KiB.
long resident() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            long kibibytes = 0;
            status >> kibibytes;
            return kibibytes;
        }
    }
    return 0;
}

/// A size as it is measured for docs/reliability.md where CDX_FULL_LOAD is set, or the smaller one of daily runs.
std::size_t sized(std::size_t daily, std::size_t full) {
    return std::getenv("CDX_FULL_LOAD") ? full : daily;
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
    FrameworkUser user(m_service.port(), 100);
    Event arrived;
    Event released;
    user.onNotified = [&] {
        arrived.set();
        released.await(std::chrono::minutes(5));
    };
    ASSERT_TRUE(user.start());
    ASSERT_TRUE(arrived.await());
    const long before = resident();
    const auto begin = steady_clock::now();
    for (int i = 1; i <= changes; ++i) {
        const HttpAnswer answer =
            vehicle.patch("/CarDataExchange/cdxConfig/one",
                          R"({"name":")" + std::to_string(i) + R"(","recordBody":")" + std::string(500, 'x') + R"("})");
        ASSERT_EQ(answer.status, 200) << answer.body;
    }
    const long grown = resident() - before;
    const auto blocked = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
    released.set();
    EXPECT_TRUE(user.sees(std::to_string(changes)));
    RecordProperty("grown_kib", static_cast<int>(grown));
    std::cout << changes << " changes to a handler blocked for " << blocked.count() << " ms: grown by " << grown
              << " KiB\n";
    EXPECT_LT(grown, 64 * 1024);
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

TEST_F(Load, OfManyElementsReachesASubscriberWhole) {
    const std::size_t elements = sized(2'000, 10'000);
    HttpTestClient vehicle(m_service.port());
    for (std::size_t i = 0; i < elements; ++i)
        ASSERT_EQ(vehicle.post("/CarDataExchange/cdxConfig", R"({"name":"n"})").status, 201);
    const long before = resident();
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
    std::cout << elements << " elements in " << taken.count() << " ms, grown by " << resident() - before << " KiB\n";
    client.close();
}

/// Hostile clients beside a good one, whose requests are timed.
TEST_F(Load, OfHostileClientsLeavesTheOthersLatencyAsItWas) {
    HttpTestClient good(m_service.port());
    const auto slowest = [&] {
        std::vector<steady_clock::duration> times;
        for (int i = 0; i < 500; ++i) {
            const auto begin = steady_clock::now();
            EXPECT_EQ(good.get("/CarDataExchange/cdxConfig?limit=1").status, 200);
            times.push_back(steady_clock::now() - begin);
        }
        std::sort(times.begin(), times.end());
        return std::chrono::duration_cast<std::chrono::microseconds>(times[times.size() * 99 / 100]);
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
    EXPECT_LT(beside, milliseconds(100));
}

} // namespace
} // namespace cdxtest
