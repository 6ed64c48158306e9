#include "ServiceFixture.h"

#include <vector>

namespace cdxservice {
namespace {

using cdxtest::HttpTestClient;

class BodyLimit : public ServiceFixture {
protected:
    BodyLimit() { options.maxBodyBytes = 1000; }

    std::string bodyOf(std::size_t bytes) {
        const std::string frame = R"({"recordBody":""})";
        return R"({"recordBody":")" + std::string(bytes - frame.size(), 'x') + "\"}";
    }
};

TEST_F(BodyLimit, IsTheLargestBodyTaken) {
    EXPECT_EQ(client->post(configPath, bodyOf(1000)).status, 201);
    EXPECT_EQ(client->post(configPath, bodyOf(1001)).status, 413);
}

TEST_F(BodyLimit, IsAnsweredWithoutReadingOn) {
    ASSERT_TRUE(client->send("POST /CarDataExchange/cdxConfig HTTP/1.1\r\n" + host() + jsonType +
                             "Content-Length: 99999999999999999999\r\n\r\n"));
    const auto answer = client->read();
    EXPECT_EQ(answer.status, 413);
    EXPECT_EQ(answer.header("Connection"), "close");
    EXPECT_TRUE(client->isEnded());
}

TEST_F(BodyLimit, HoldsForChunksToo) {
    ASSERT_TRUE(client->send("POST /CarDataExchange/cdxConfig HTTP/1.1\r\n" + host() + jsonType +
                             "Transfer-Encoding: chunked\r\n\r\n3e9\r\n"));
    EXPECT_EQ(client->read().status, 413);
    EXPECT_TRUE(client->isEnded());
}

TEST_F(BodyLimit, IsLookedAtAfterTypeAndPreconditionAndBeforeTheBody) {
    const std::string path = std::string(configPath) + "/" + make(configPath, "{}");
    const std::string large(2000, 'x');
    EXPECT_EQ(client->request("POST", configPath, large).status, 415);
    EXPECT_EQ(client->request("PATCH", path, large, std::string(jsonType) + "If-Match: \"x\"\r\n").status, 412);
    EXPECT_EQ(client->request("PATCH", path, large, jsonType).status, 413);
    EXPECT_EQ(client->request("PUT", path, large, jsonType).status, 405);
}

TEST_F(BodyLimit, HoldsWithOneKibibyteMoreForTheElement) {
    const std::string path = std::string(configPath) + "/" + make(configPath, bodyOf(1000));
    const auto grow = [&](std::size_t bytes) {
        return client->patch(path, R"({"recordId":")" + std::string(bytes, 'x') + "\"}");
    };
    EXPECT_EQ(grow(950).status, 413);
    const std::size_t now = client->get(path).body.size();
    EXPECT_EQ(grow(2024 - now - 14).status, 200);
    EXPECT_EQ(client->get(path).body.size(), 2024u);
    EXPECT_EQ(grow(2024 - now - 13).status, 413);
}

class TimeLimits : public ServiceFixture {};

TEST_F(TimeLimits, EndAnIdleConnectionAMinuteAfterTheLastByte) {
    ASSERT_EQ(client->get("/health").status, 200);
    clock->advance(std::chrono::milliseconds(59'999));
    ASSERT_EQ(client->get("/health").status, 200);
    EXPECT_EQ(client->tcp().read(std::chrono::milliseconds(300)), cdxtest::TcpPeer::Read::Late);
    clock->advance(std::chrono::seconds(60));
    EXPECT_TRUE(client->isEnded());
}

TEST_F(TimeLimits, EndAConnectionThatNeverAsks) {
    client->tcp();
    HttpTestClient other(server->port());
    ASSERT_EQ(other.get("/health").status, 200); // accepted after the first
    clock->advance(std::chrono::seconds(60));
    EXPECT_TRUE(client->isEnded());
}

TEST_F(TimeLimits, EndAnUnfinishedRequestAMinuteAfterTheLastByte) {
    ASSERT_TRUE(client->send("GET /health HTTP/1.1\r\nHo"));
    HttpTestClient other(server->port());
    ASSERT_EQ(other.get("/health").status, 200);
    clock->advance(std::chrono::seconds(60));
    EXPECT_TRUE(client->isEnded());
    EXPECT_EQ(client->tcp().received(), "");
}

TEST_F(TimeLimits, EndARequestThatTakesFiveMinutesByteByByte) {
    const std::string head =
        "POST /CarDataExchange/cdxConfig HTTP/1.1\r\n" + host() + jsonType + "Content-Length: 1000\r\n\r\n";
    ASSERT_TRUE(client->send(head));
    HttpTestClient other(server->port());
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(other.get("/health").status, 200); // the byte before has been read
        clock->advance(std::chrono::seconds(30));
        client->send(" ");
    }
    EXPECT_TRUE(client->isEnded());
}

TEST_F(TimeLimits, CountARequestFromItsFirstByteNotTheConnections) {
    for (int i = 0; i < 10; ++i) {
        clock->advance(std::chrono::seconds(50));
        ASSERT_EQ(client->get("/health").status, 200) << i;
    }
}

class ConnectionLimit : public ServiceFixture {
protected:
    ConnectionLimit() { options.maxConnections = 2; }

    void SetUp() override {
        ServiceFixture::SetUp();
        for (auto& each : served) {
            each = std::make_unique<HttpTestClient>(server->port());
            ASSERT_EQ(each->get("/health").status, 200);
        }
    }

    std::unique_ptr<HttpTestClient> served[2];
};

TEST_F(ConnectionLimit, IsToldToThoseBeyond) {
    const auto answer = client->get("/CarDataExchange");
    EXPECT_EQ(answer.status, 503);
    EXPECT_EQ(answer.header("Connection"), "close");
    EXPECT_EQ(client->get("/nowhere").status, 503);
    EXPECT_EQ(client->get("/health").status, 503);
    EXPECT_EQ(served[0]->get("/health").status, 200) << "the others are not harmed";
}

TEST_F(ConnectionLimit, IsToldOnlyToThoseWhoMayComeIn) {
    EXPECT_EQ(client->exchange("GET /health HTTP/1.1\r\nHost: evil\r\n\r\n").status, 421);
    client->close();
    EXPECT_EQ(client->request("POST", configPath, "{}", std::string(jsonType) + "Origin: http://evil\r\n").status, 403);
    EXPECT_EQ(client->exchange("GET /health HTTP/1.1\r\n\r\n").status, 400);
}

TEST_F(ConnectionLimit, EndsAChannelThatIsOneTooMany) {
    cdxtest::WebSocketPeer peer = channel();
    EXPECT_EQ(peer.readClose(), 1013u);
    EXPECT_EQ(
        client->exchange("GET /nowhere HTTP/1.1\r\n" + host() + "Connection: Upgrade\r\nUpgrade: websocket\r\n\r\n")
            .status,
        503);
}

TEST_F(ConnectionLimit, CountsChannels) {
    served[0]->close();
    served[1]->close();
    cdxtest::WebSocketPeer one = channel();
    one.text(R"({"op":"subscribe","sub":1,"resource":"cdxConfig"})");
    ASSERT_TRUE(one.readText());
    cdxtest::WebSocketPeer two = channel();
    two.text(R"({"op":"subscribe","sub":1,"resource":"cdxConfig"})");
    ASSERT_TRUE(two.readText());
    EXPECT_EQ(client->get("/health").status, 503);
}

TEST_F(ConnectionLimit, LetsAConnectionInOnceThereIsRoom) {
    client->tcp();
    HttpTestClient probe(server->port());
    ASSERT_EQ(probe.get("/health").status, 503); // the one before was accepted as one too many
    ASSERT_EQ(served[0]->request("GET", "/health", {}, "Connection: close\r\n").status, 200);
    ASSERT_EQ(served[1]->get("/health").status, 200);
    EXPECT_EQ(client->get("/health").status, 200);
}

TEST(Load, ManyIdleConnectionsHarmNobody) {
    ServerOptions options;
    options.maxConnections = 100;
    Server server(options);
    server.start();
    HttpTestClient client(server.port());
    ASSERT_EQ(client.get("/health").status, 200);
    std::vector<cdxtest::TcpPeer> idle;
    for (int i = 0; i < 400; ++i) {
        idle.push_back(cdxtest::TcpPeer::connect(server.port()));
    }
    EXPECT_EQ(client.get("/health").status, 200);
    HttpTestClient another(server.port());
    EXPECT_EQ(another.get("/health").status, 503);
}

} // namespace
} // namespace cdxservice
