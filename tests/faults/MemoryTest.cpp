// Memory runs out at one piece, or at fifty in a row, while a program on the framework exchanges.
#include "MemorySweep.h"
#include "OwnConnections.h"
#include "ServiceProcess.h"

#include <support/scarce/ScarceMemory.h>

#include <gtest/gtest.h>

#include <condition_variable>
#include <e2e/Vehicle.h>
#include <mutex>
#include <platform/xal/TestClient.h>
#include <set>

namespace cdxtest {
namespace {

using scarce::Spared;
using xaltest::Item;
using xaltest::ItemDescriptor;
using xaltest::ItemService;

std::multiset<std::string> storedAt(std::uint16_t port) {
    std::multiset<std::string> names;
    for (const auto& element : Vehicle(port).list("cdxConfig"))
        names.insert(element["name"].asString());
    return names;
}

/// A program on the framework. Its handlers have memory; what runs around them may have none.
class Program {
public:
    explicit Program(std::uint16_t port) : m_port(port), m_client("http://localhost:" + std::to_string(port)) {}

    void start() {
        insist([this] { m_client.makeRegistry(); });
        register_();
        // An error call is an answer too: who gets one tries again.
        demand(await([this] { return m_service != nullptr; }, [this] { register_(); }), "never connected");
    }
    void subscribe() {
        insist([this] {
            m_subscription = m_service->subscribeResource<Item>(
                ItemDescriptor(), [this](const Items& items, const std::shared_ptr<const xal::SubscriptionResponse>&) {
                    const Spared spared;
                    const std::lock_guard<std::mutex> lock(m_mutex);
                    m_names.clear();
                    for (const auto& item : items)
                        m_names.insert(item->name());
                    m_changed.notify_all();
                });
        });
        sees("first");
    }
    void notification() {
        Vehicle(m_port).post("cdxConfig", json(R"({"name":"second"})"));
        sees("second");
    }
    void create() {
        request([this](const Result& result) {
            m_service->createElement<Item>(
                ItemDescriptor::named("third"),
                [result](const std::shared_ptr<const Item>&, const Response& response) { result(response); }, result);
        });
    }
    void update(const std::string& id) {
        request([&](const Result& result) {
            ItemDescriptor descriptor = ItemDescriptor::withId(id);
            m_service->updateElement<Item>(descriptor, result, result);
        });
    }
    void read() {
        request([this](const Result& result) {
            m_service->readElements<Item>(
                ItemDescriptor(), [result](const Items&, const Response& response) { result(response); }, result);
        });
    }
    void remove(const std::string& id) {
        request(
            [&](const Result& result) { m_service->deleteElement<Item>(ItemDescriptor::withId(id), result, result); });
    }
    /// Cuts the program's connections.
    void lose() {
        const std::size_t before = connections();
        cutOwnConnections(m_port);
        demand(await([&] { return m_connections > before; }), "never connected again");
        Vehicle(m_port).post("cdxConfig", json(R"({"name":"after the loss"})"));
        sees("after the loss");
    }
    void stop() {
        insist([this] { m_subscription.reset(); });
        insist([this] { m_client.close(); });
        insist([this] { m_client.registry.reset(); });
        insist([this] { m_client.task->stop(); });
        insist([this] { m_client.http->stop(); });
        for (std::size_t i = 0; i < m_told.size(); ++i)
            demand(m_told[i] == (i % 2 == 0), "connected and disconnected do not alternate");
    }
    /// All is as if memory had never been short.
    void verify() {
        m_isShort = false;
        request([this](const Result& result) {
            m_service->createElement<Item>(
                ItemDescriptor::named("last"),
                [result](const std::shared_ptr<const Item>&, const Response& response) { result(response); }, result);
        });
        demand(m_status == 201, "a request after the shortage fails with " + std::to_string(m_status));
        sees("last");
        const auto stored = storedAt(m_port);
        demand(await([&] { return m_names == stored; }), "the subscriber has another state than the service");
    }

private:
    using Items = std::vector<std::shared_ptr<const Item>>;
    using Response = std::shared_ptr<const xal::XalResponse>;
    using Result = std::function<void(const Response&)>;

    void register_() {
        xal::ServiceListener<ItemService> listener;
        listener.connected = [this](const std::shared_ptr<ItemService>& service) {
            const Spared spared;
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_service = service;
            ++m_connections;
            m_told.push_back(true);
            m_changed.notify_all();
        };
        listener.disconnected = [this] {
            const Spared spared;
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_told.push_back(false);
        };
        listener.error = [this](const std::exception&) {
            const Spared spared;
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_hasError = true;
            m_changed.notify_all();
        };
        insist([&] { m_client.registry->registerServiceListener(listener); });
    }

    /// A call that throws has no result, every other has one.
    void request(const std::function<void(const Result&)>& make) {
        m_results = 0;
        const bool threw = throws([&] {
            make([this](const Response& response) {
                const Spared spared;
                const std::lock_guard<std::mutex> lock(m_mutex);
                ++m_results;
                m_status = response->getStatusCode();
                m_changed.notify_all();
            });
        });
        demand(!threw || m_isShort, "a request throws after the shortage");
        if (!threw)
            demand(await([this] { return m_results > 0; }), "a request has no result");
        m_client.onTaskExecutor([] {});
        demand(m_results == (threw ? 0 : 1), "a request has " + std::to_string(m_results) + " results");
    }

    template <class Predicate>
    bool await(Predicate isThere, const std::function<void()>& onError = {}) {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            const bool came =
                m_changed.wait_for(lock, std::chrono::seconds(15), [&] { return m_hasError || isThere(); });
            if (!std::exchange(m_hasError, false))
                return came;
            lock.unlock();
            demand(onError != nullptr, "an error call while connected");
            onError();
            lock.lock();
        }
    }
    void sees(const std::string& name) {
        demand(await([&] { return m_names.count(name) != 0; }), "no notification of \"" + name + "\"");
    }
    std::size_t connections() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_connections;
    }

    const std::uint16_t m_port;
    xaltest::TestClient m_client;
    std::shared_ptr<xal::Subscription> m_subscription;
    bool m_isShort = true;

    std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_changed;
    std::shared_ptr<ItemService> m_service;
    std::vector<bool> m_told; ///< connected, disconnected
    std::size_t m_connections = 0;
    bool m_hasError = false;
    std::multiset<std::string> m_names; ///< of the latest notification
    int m_results = 0;
    int m_status = 0;
};

void exchange(const Shortage& shortage, std::uint16_t port) {
    const Vehicle vehicle(port);
    for (const auto& element : vehicle.list("cdxConfig"))
        vehicle.remove("cdxConfig", element["id"].asString());
    const std::string id = vehicle.post("cdxConfig", json(R"({"name":"first"})"))["id"].asString();
    Program program(port);
    shortage.phase("start", [&] { program.start(); });
    shortage.phase("subscribe", [&] { program.subscribe(); });
    shortage.phase("notification", [&] { program.notification(); });
    shortage.phase("create", [&] { program.create(); });
    shortage.phase("update", [&] { program.update(id); });
    shortage.phase("read", [&] { program.read(); });
    shortage.phase("remove", [&] { program.remove(id); });
    shortage.phase("loss", [&] { program.lose(); });
    program.verify();
    shortage.phase("stop", [&] { program.stop(); });
}

class OutOfMemoryForGood : public ::testing::Test {
protected:
    ServiceProcess m_service;
};

class OutOfMemory : public OutOfMemoryForGood, public ::testing::WithParamInterface<const char*> {};

TEST_P(OutOfMemory, AtOnePieceIsSurvivedByAProgramOnTheFramework) {
    sweep(GetParam(), 17, 1, [this](const Shortage& shortage) { exchange(shortage, m_service.port()); });
}

TEST_P(OutOfMemory, AtFiftyPiecesIsSurvivedByAProgramOnTheFramework) {
    sweep(GetParam(), 101, 50, [this](const Shortage& shortage) { exchange(shortage, m_service.port()); });
}

TEST_F(OutOfMemoryForGood, KeepsNobodyFromDroppingAndClosing) {
    constexpr std::size_t all = 1'000'000'000;
    sweep("stop", 5, all, [this](const Shortage& shortage) { exchange(shortage, m_service.port()); });
}

INSTANTIATE_TEST_SUITE_P(During, OutOfMemory,
                         ::testing::Values("start", "subscribe", "notification", "create", "update", "read", "remove",
                                           "loss", "stop"),
                         [](const auto& instance) { return std::string(instance.param); });

} // namespace
} // namespace cdxtest
