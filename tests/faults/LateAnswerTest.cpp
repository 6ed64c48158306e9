#include <support/WebSocketPeer.h>

#include <gtest/gtest.h>

#include <platform/xal/TestClient.h>
#include <stdexcept>

namespace cdxtest {
namespace {

using namespace xaltest;

/// A service whose answers a test writes, and a program with a short time-out.
class LateAnswers : public ::testing::Test {
protected:
    LateAnswers() {
        m_client.setting.requestTimeout.setValue(1000);
        m_client.listen();
        m_channel.emplace(WebSocketPeer::accept(TcpPeer(m_listener.accept())));
        m_service = m_client.connection();
        if (!m_service)
            throw std::runtime_error("no connection");
    }

    void create(const std::string& name) {
        m_service->createElement<Item>(
            ItemDescriptor::named(name),
            [this, name](const std::shared_ptr<const Item>& item, const std::shared_ptr<const xal::XalResponse>&) {
                m_results.add(name + " created as " + item->name());
            },
            [this, name](const std::shared_ptr<const xal::XalResponse>& response) {
                m_results.add(name + " failed " + std::to_string(response->getStatusCode()));
            });
    }
    TcpPeer request() {
        TcpPeer connection(m_listener.accept());
        EXPECT_TRUE(connection.takeUntil("\r\n\r\n"));
        return connection;
    }
    static std::string created(const std::string& name) {
        const std::string body = R"({"id":"i","name":")" + name + R"("})";
        return "HTTP/1.1 201 Created\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }

    Listener m_listener;
    TestClient m_client{"http://127.0.0.1:" + std::to_string(m_listener.port())};
    std::optional<WebSocketPeer> m_channel;
    std::shared_ptr<ItemService> m_service;
    Journal m_results;
};

TEST_F(LateAnswers, FailOnceAndAreNotTakenForTheNextRequests) {
    create("first");
    TcpPeer late = request();
    EXPECT_EQ(m_results.await("first"), "first failed 0");
    create("second");
    late.send(created("first"));
    TcpPeer next = request();
    next.send(created("second"));
    EXPECT_EQ(m_results.await("second"), "second created as second");
    EXPECT_EQ(m_results.size(), 2U);
}

TEST_F(LateAnswers, ThatHaveBegunFailOnceWithTheirStatus) {
    create("first");
    TcpPeer late = request();
    late.send(created("first").substr(0, 50));
    EXPECT_EQ(m_results.await("first"), "first failed 201");
    EXPECT_TRUE(late.readToEnd()) << "the connection is not used again";
}

TEST_F(LateAnswers, BehindAnotherAnswerAreNotTaken) {
    create("first");
    TcpPeer connection = request();
    connection.send(created("first") + created("impostor"));
    EXPECT_EQ(m_results.await("first"), "first created as first");
    create("second");
    TcpPeer next = request();
    next.send(created("second"));
    EXPECT_EQ(m_results.await("second"), "second created as second");
}

TEST_F(LateAnswers, DoNotEndTheChannel) {
    create("first");
    TcpPeer late = request();
    EXPECT_EQ(m_results.await("first"), "first failed 0");
    m_channel->ping("still there");
    const auto pong = m_channel->read();
    ASSERT_TRUE(pong);
    EXPECT_EQ(pong->opcode, Opcode::pong);
}

} // namespace
} // namespace cdxtest
