#include "TestClient.h"

#include <support/ConformanceReport.h>

#include <gtest/gtest.h>

#include <atomic>

namespace {

using namespace cdxtest;
using xaltest::TestClient;

/// To the framework every message is a change of one more element; each must reach the subscriber, whole and in order.
class FrameworkDialect : public Dialect {
public:
    std::string carrying(std::size_t index, std::string_view bytes) const override {
        return R"({"op":"event","sub":1,"prev":)" + std::to_string(index) + R"(,"rev":)" + std::to_string(index + 1) +
               R"(,"element":{"id":"e)" + std::to_string(index) + R"(","name":")" + std::string(bytes) + R"("}})";
    }
    unsigned codeForUnreadable() const override { return 0; }
    std::size_t limit() const override { return 2 * 1024 * 1024; }
    unsigned codeForBinary(std::size_t size) const override { return size > limit() ? 1009 : 1003; }
    bool isServer() const override { return false; }
};

struct RawService {
    explicit RawService(std::shared_ptr<xal::IServiceConnection> made) : connection(std::move(made)) {}
    static std::string getServiceName() { return "CarDataExchange"; }
    std::shared_ptr<xal::IServiceConnection> connection;
};

/// A program that subscribes, and counts the changes that reach it in their order.
class Subscriber {
public:
    explicit Subscriber(std::uint16_t port) : m_client("http://127.0.0.1:" + std::to_string(port)) {
        m_client.makeRegistry();
        xal::ServiceListener<RawService> listener;
        listener.connected = [this](const std::shared_ptr<RawService>& service) {
            if (m_subscription)
                return;
            m_subscription = service->connection->subscribe(
                {xal::SubscribeRequest::RESOURCE, "CarDataExchange", "cdxConfig"}, [this](const xal::Event& event) {
                    if (event.element && event.element->getString("id") == "e" + std::to_string(m_taken))
                        ++m_taken;
                });
        };
        listener.disconnected = [this] { m_told.add("disconnected"); };
        m_client.registry->registerServiceListener(listener);
    }
    ~Subscriber() { m_client.close(); }

    /// The changes delivered, once the loss of the connection was told: nothing of it comes after that.
    std::size_t takenAtLoss() {
        EXPECT_NE(m_told.await("disconnected"), "");
        return m_taken;
    }

private:
    TestClient m_client;
    xaltest::Journal m_told;
    std::shared_ptr<xal::Subscription> m_subscription;
    std::atomic<std::size_t> m_taken{0};
};

class FrameworkConformance : public ::testing::TestWithParam<ConformanceSection> {
protected:
    ConformanceResult playCase(const ConformanceCase& played) {
        Subscriber subscriber(m_listener.port());
        WebSocketPeer peer = WebSocketPeer::accept(TcpPeer(m_listener.accept()));
        const std::string subscribe = peer.readText().value_or("");
        EXPECT_NE(subscribe.find(R"({"op":"subscribe","sub":1,)"), std::string::npos) << subscribe;
        peer.text(R"({"op":"subscribed","sub":1,"epoch":"0123456789abcdef","resumed":false})");
        ConformanceResult result = play(played, peer, [](const std::string&) { return false; });
        result.taken = subscriber.takenAtLoss();
        return result;
    }

    Listener m_listener;
};

TEST_P(FrameworkConformance, EveryCaseEndsAsItMust) {
    playSection("framework", GetParam(), FrameworkDialect(),
                [this](const ConformanceCase& played) { return playCase(played); });
}

INSTANTIATE_TEST_SUITE_P(Section, FrameworkConformance, ::testing::ValuesIn(conformanceSections()),
                         [](const auto& instance) { return std::string(instance.param.name); });

} // namespace
